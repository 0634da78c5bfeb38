#include "exchange/files/files.h"

#include "exchange/files/input_error.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace voalgo {

namespace {

namespace fs = std::filesystem;

/// Tries it and leaves the file as it is.
bool CanBeWritten(const std::string& path)
{
    const bool isNew = !fs::exists(path);
    const bool isOpen = std::ofstream(path, std::ios::app).is_open();
    if (isNew && isOpen) fs::remove(path);
    return isOpen;
}

} // namespace

void MakeDirectory(const std::string& path)
{
    std::error_code error;
    fs::create_directories(path, error);
    if (error || !fs::is_directory(path)) throw InputError("cannot create the directory " + path);
}

std::string InDirectory(const std::string& directory, const std::string& name)
{
    return (fs::path(directory) / name).string();
}

std::string Ending(const std::string& path)
{
    std::string ending = fs::path(path).extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

void RequireFile(const std::string& path)
{
    if (!fs::exists(path)) throw InputError(path + ": no such file");
    if (fs::is_directory(path)) throw InputError(path + ": is a directory, not a file");
    if (!std::ifstream(path)) throw InputError(path + ": cannot be opened");
}

void RequireWritable(const std::string& directory, const std::vector<std::string>& files)
{
    const fs::path wanted = fs::absolute(directory.empty() ? "." : directory).lexically_normal();
    fs::path existing = wanted;
    while (!fs::exists(existing)) existing = existing.parent_path();
    MakeDirectory(wanted.string());
    const auto unwritable = std::find_if_not(files.begin(), files.end(), CanBeWritten);
    for (fs::path made = wanted; made != existing; made = made.parent_path()) fs::remove(made);
    if (unwritable != files.end()) throw InputError("cannot write " + *unwritable);
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
