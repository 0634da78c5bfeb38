#include "VoAlgorithms/runtime/filename.h"

#include "platform/utf8.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>

namespace VoAlgo::filename {
namespace {

namespace fs = std::filesystem;

#if defined(_WIN32)
constexpr bool IsCaseIgnored = true;
#else
constexpr bool IsCaseIgnored = false;
#endif

char AsciiLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string AsciiLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return AsciiLower(c); });
    return text;
}

/// The UTF-8 of a path as it is, valid or not.
std::string BytesOf(const fs::path& path)
{
#if defined(_WIN32)
    return Utf8FromWide(path.native());
#else
    return path.native();
#endif
}

/// Valid UTF-8.
std::string Repaired(std::string_view text)
{
    std::string repaired;
    while (!text.empty()) AppendUtf8(repaired, TakeCodePoint(text));
    return repaired;
}

bool IsCompression(const fs::path& extension)
{
    constexpr std::array<std::string_view, 7> Known = {".gz", ".bz2", ".xz", ".zst", ".lz4", ".lzma", ".z"};
    return std::find(Known.begin(), Known.end(), AsciiLower(BytesOf(extension))) != Known.end();
}

bool IsDevice(std::string_view stem)
{
    constexpr std::array<std::string_view, 4> Names = {"con", "prn", "aux", "nul"};
    const std::string lower = AsciiLower(std::string(stem));
    if (std::find(Names.begin(), Names.end(), lower) != Names.end()) return true;
    return lower.size() == 4 && (lower.starts_with("com") || lower.starts_with("lpt")) && lower[3] >= '1' &&
           lower[3] <= '9';
}

/// The longest beginning of at most so many bytes that ends with a whole character.
std::string_view Shortened(std::string_view utf8, std::size_t size)
{
    if (utf8.size() <= size) return utf8;
    while (size > 0 && (static_cast<unsigned char>(utf8[size]) & 0xC0U) == 0x80U) --size;
    return utf8.substr(0, size);
}

fs::path Absolute(const fs::path& path)
{
    const fs::path absolute = fs::absolute(path).lexically_normal();
    return absolute.has_filename() ? absolute : absolute.parent_path(); // "a/" is the folder "a"
}

} // namespace

std::string ToUtf8(const fs::path& path)
{
    return Repaired(BytesOf(path));
}

std::u16string ToUtf16(const fs::path& path)
{
    const std::string utf8 = ToUtf8(path);
    std::u16string text;
    for (std::string_view rest = utf8; !rest.empty();) {
        const char32_t c = TakeCodePoint(rest);
        if (c >= 0x10000) {
            text += static_cast<char16_t>(0xD7C0 + (c >> 10U));
            text += static_cast<char16_t>(0xDC00 + (c & 0x3FFU));
        } else {
            text += static_cast<char16_t>(c);
        }
    }
    return text;
}

fs::path FromUtf8(std::string_view text)
{
    if (Repaired(text) != text) throw std::invalid_argument("filename: text is not UTF-8");
    return fs::path(std::u8string(text.begin(), text.end()));
}

fs::path FromUtf16(std::u16string_view text)
{
    std::string utf8;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto isBetween = [&](std::size_t at, char16_t first, char16_t last) {
            return at < text.size() && text[at] >= first && text[at] <= last;
        };
        if (isBetween(i, 0xD800, 0xDBFF) && isBetween(i + 1, 0xDC00, 0xDFFF)) {
            AppendUtf8(utf8, 0x10000 + ((text[i] & 0x3FFU) << 10U) + (text[i + 1] & 0x3FFU));
            ++i;
        } else if (isBetween(i, 0xD800, 0xDFFF)) {
            throw std::invalid_argument("filename: text is not UTF-16");
        } else {
            AppendUtf8(utf8, text[i]);
        }
    }
    return FromUtf8(utf8);
}

std::vector<fs::path> Split(const fs::path& path)
{
    std::vector<fs::path> names;
    if (path.has_root_path()) names.push_back(path.root_path());
    for (const fs::path& name : path.relative_path())
        if (!name.empty()) names.push_back(name);
    return names;
}

fs::path Join(const std::vector<fs::path>& names)
{
    fs::path path;
    for (const fs::path& name : names) path /= name;
    return path;
}

fs::path Extension(const fs::path& path)
{
    fs::path last = path.extension();
    if (last == ".") return {};
    if (!IsCompression(last)) return last;
    fs::path before = path.stem().extension();
    return before == "." ? last : before += last;
}

fs::path Stem(const fs::path& path)
{
    const fs::path::string_type name = path.filename().native();
    return name.substr(0, name.size() - Extension(path).native().size());
}

fs::path WithExtension(const fs::path& path, const fs::path& extension)
{
    fs::path name = Stem(path);
    return path.parent_path() / (name += extension);
}

fs::path Relative(const fs::path& file, const fs::path& folder)
{
    const fs::path absolute = Absolute(file);
    const fs::path relative = absolute.lexically_relative(Absolute(folder));
    return relative.empty() ? absolute : relative;
}

fs::path Unique(const fs::path& path)
{
    fs::path candidate = path;
    for (unsigned n = 2; fs::exists(fs::symlink_status(candidate)); ++n) {
        fs::path name = Stem(path);
        name += " (" + std::to_string(n) + ")";
        candidate = path.parent_path() / (name += Extension(path));
    }
    return candidate;
}

std::string Safe(std::string_view utf8)
{
    constexpr std::size_t LongestName = 255; // bytes
    constexpr std::string_view Reserved = "<>:\"/\\|?*\x7F";
    std::string name = Repaired(utf8);
    for (char& c : name)
        if (static_cast<unsigned char>(c) < ' ' || Reserved.find(c) != std::string_view::npos) c = '_';
    name.erase(name.find_last_not_of(" .") + 1);
    if (name.empty()) return "_";

    const std::string extension = BytesOf(Extension(FromUtf8(name)));
    std::string stem = name.substr(0, name.size() - extension.size());
    if (IsDevice(stem.substr(0, stem.find('.')))) stem.insert(std::min(stem.find('.'), stem.size()), 1, '_');
    if (extension.size() >= LongestName) return std::string(Shortened(stem + extension, LongestName));
    return std::string(Shortened(stem, LongestName - extension.size())) + extension;
}

bool AreSameName(const fs::path& a, const fs::path& b)
{
    return IsCaseIgnored ? AsciiLower(BytesOf(a)) == AsciiLower(BytesOf(b)) : a.native() == b.native();
}

} // namespace VoAlgo::filename
