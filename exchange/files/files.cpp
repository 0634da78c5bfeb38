#include "exchange/files/files.h"

#include "VoAlgorithms/runtime/sha1.h"
#include "exchange/files/input_error.h"
#include "exchange/files/staged_file.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

namespace voalgo {

namespace fs = std::filesystem;

std::string InDirectory(const std::string& directory, const std::string& name)
{
    return (fs::path(directory) / name).string();
}

std::string Ending(const std::string& path)
{
    std::string ending = fs::path(path).extension().string();
    for (char& c : ending)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a'); // whatever the host's locale
    return ending;
}

void RequireFile(const std::string& path)
{
    if (!fs::exists(path)) throw InputError(path + ": no such file");
    if (fs::is_directory(path)) throw InputError(path + ": is a directory, not a file");
    if (!std::ifstream(path)) throw InputError(path + ": cannot be opened");
}

std::string ReadText(const std::string& path)
{
    RequireFile(path);
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (file.bad()) throw InputError(path + ": cannot be read");
    return text.str();
}

std::string ChecksumOf(const std::string& path)
{
    constexpr std::size_t PieceSize = 1 << 16;
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return {};
    std::ifstream file(path, std::ios::binary);
    std::vector<char> piece(PieceSize);
    VoAlgo::SHA1 sum;
    while (file) {
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        sum.Update(std::string_view(piece.data(), static_cast<std::size_t>(file.gcount())));
    }
    return file.eof() ? VoAlgo::SHA1::ToHex(sum.Finish()) : std::string();
}

void RequireWritable(const std::string& path)
{
    (void)StagedFile(path);
}

void WriteText(const std::string& path, const std::string& text)
{
    StagedFile file(path);
    file.Write(text);
    file.Keep();
}

} // namespace voalgo
