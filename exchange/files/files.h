#pragma once

#include <string>
#include <vector>

namespace voalgo {

/// Makes a directory and its parents; throws InputError when that fails.
void MakeDirectory(const std::string& path);
/// The path of a file in a directory.
std::string InDirectory(const std::string& directory, const std::string& name);
/// The ending of the file's name in lower case, with its dot.
std::string Ending(const std::string& path);
/// The whole content of a file; throws InputError when the file is missing or cannot be read.
std::string ReadText(const std::string& path);
/// Throws InputError when the file cannot be written.
void WriteText(const std::string& path, const std::string& text);
/// Throws InputError unless the files can be written once `directory` exists; leaves everything as it is. Empty: the
/// current directory.
void RequireWritable(const std::string& directory, const std::vector<std::string>& files);
/// Throws InputError unless the path names a file that can be opened.
void RequireFile(const std::string& path);

} // namespace voalgo
