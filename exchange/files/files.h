#pragma once

#include <string>

namespace voalgo {

/// The path of a file in a directory.
std::string InDirectory(const std::string& directory, const std::string& name);
/// The ending of the file's name in lower case, with its dot.
std::string Ending(const std::string& path);
/// The whole content of a file; throws InputError when the file is missing or cannot be read.
std::string ReadText(const std::string& path);
/// The SHA-1 of a regular file in hexadecimal; empty when it cannot be read, or is something that is read only once.
std::string ChecksumOf(const std::string& path);
/// Writes a StagedFile; throws OutputError.
void WriteText(const std::string& path, const std::string& text);
/// Throws OutputError unless the file can be written; leaves no trace.
void RequireWritable(const std::string& path);
/// Throws InputError unless the path names a file that can be opened.
void RequireFile(const std::string& path);

} // namespace voalgo
