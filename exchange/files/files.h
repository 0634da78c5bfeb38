#pragma once

#include <string>

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
///@{
/// Throws InputError unless the file, or files in the directory, can be written; leaves everything as it is.
void RequireWritable(const std::string& path);
void RequireWritableDirectory(const std::string& path);
///@}
/// Throws InputError unless the path names a file that can be opened.
void RequireFile(const std::string& path);

} // namespace voalgo
