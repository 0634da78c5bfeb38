#pragma once

#include "VoAlgorithms/export.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// What std::filesystem::path lacks for the names of files.
namespace VoAlgo::filename {

///@{
/// Between paths and Unicode. To text: parts that are not Unicode become U+FFFD, so that the text can be shown and
/// stored but may name another file. From text: throws std::invalid_argument for text that is not valid.
[[nodiscard]] VOALGO_API std::string ToUtf8(const std::filesystem::path& path);
[[nodiscard]] VOALGO_API std::u16string ToUtf16(const std::filesystem::path& path);
[[nodiscard]] VOALGO_API std::filesystem::path FromUtf8(std::string_view text);
[[nodiscard]] VOALGO_API std::filesystem::path FromUtf16(std::u16string_view text);
///@}

///@{
/// The names along a path, a root first ("/", or "C:\\" on Windows), and the path that they make. Empty names, as from
/// "a//b" and "a/", are left out.
[[nodiscard]] VOALGO_API std::vector<std::filesystem::path> Split(const std::filesystem::path& path);
[[nodiscard]] VOALGO_API std::filesystem::path Join(const std::vector<std::filesystem::path>& names);
///@}

///@{
/// The extension with its dot, together with the one before that of a compressed file: ".ply", ".tar.gz", "" for
/// ".profile" and "a."; and the file's name without it. The case is kept.
[[nodiscard]] VOALGO_API std::filesystem::path Extension(const std::filesystem::path& path);
[[nodiscard]] VOALGO_API std::filesystem::path Stem(const std::filesystem::path& path);
///@}
/// The path with another such extension, which begins with a dot or is empty.
[[nodiscard]] VOALGO_API std::filesystem::path WithExtension(const std::filesystem::path& path,
                                                             const std::filesystem::path& extension);

/// The path from a folder to a file, both made absolute and freed from "." and ".." without a look at the disk, so
/// that links are not followed. The file's absolute path when they have no common root.
[[nodiscard]] VOALGO_API std::filesystem::path Relative(const std::filesystem::path& file,
                                                        const std::filesystem::path& folder);

/// The path itself, or the first of "name (2).ext", "name (3).ext" ... of which nothing exists. Another process may
/// take the name before it is used. Throws std::filesystem::filesystem_error when a name cannot be looked up.
[[nodiscard]] VOALGO_API std::filesystem::path Unique(const std::filesystem::path& path);

/// A name for a file that all common systems accept: in valid UTF-8, control characters and any of <>:"/\|?* replaced
/// by "_", no blank or dot at its end, "_" appended to the stem of a device's name (CON, NUL, COM1 ...), at most 255
/// bytes without losing the extension. "_" for a name without characters left. A safe name stays as it is.
[[nodiscard]] VOALGO_API std::string Safe(std::string_view utf8);

/// Whether two names are one file's in a folder of this system: byte for byte, but for ASCII letters of either case on
/// Windows. Whether two existing paths lead to the same file is known to std::filesystem::equivalent.
[[nodiscard]] VOALGO_API bool AreSameName(const std::filesystem::path& a, const std::filesystem::path& b);

} // namespace VoAlgo::filename
