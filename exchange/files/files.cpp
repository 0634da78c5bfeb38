#include "exchange/files/files.h"

#include "exchange/files/input_error.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace voalgo {

void MakeDirectory(const std::string& path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error || !std::filesystem::is_directory(path)) throw InputError("cannot create the directory " + path);
}

std::string InDirectory(const std::string& directory, const std::string& name)
{
    return (std::filesystem::path(directory) / name).string();
}

std::string Ending(const std::string& path)
{
    std::string ending = std::filesystem::path(path).extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

void RequireFile(const std::string& path)
{
    if (!std::filesystem::exists(path)) throw InputError(path + ": no such file");
    if (std::filesystem::is_directory(path)) throw InputError(path + ": is a directory, not a file");
    if (!std::ifstream(path)) throw InputError(path + ": cannot be opened");
}

void RequireWritable(const std::string& path)
{
    const bool isNew = !std::filesystem::exists(path);
    if (!std::ofstream(path, std::ios::app)) throw InputError("cannot write " + path);
    if (isNew) std::filesystem::remove(path);
}

void RequireWritableDirectory(const std::string& path)
{
    namespace fs = std::filesystem;
    const fs::path directory = fs::absolute(path).lexically_normal();
    fs::path existing = directory;
    while (!fs::exists(existing)) existing = existing.parent_path();
    MakeDirectory(path);
    RequireWritable((directory / "voalgo.tmp").string());
    for (fs::path made = directory; made != existing; made = made.parent_path()) fs::remove(made);
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

void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw InputError("cannot write " + path);
}

} // namespace voalgo
