#pragma once

#include <string>
#include <string_view>

namespace VoAlgo::bson::detail {

/// What stands for anything that is not Unicode.
constexpr char32_t ReplacementCharacter = 0xFFFD;

/// Takes the first code point off `text`, which is not empty. Broken UTF-8 (cut off, overlong, surrogates, too large)
/// gives the replacement character and takes the longest piece that could have begun a character, at least one byte.
char32_t TakeCodePoint(std::string_view& text);
void AppendUtf8(std::string& text, char32_t codePoint);

/// Wide characters are UTF-16 or UTF-32, by their width. Surrogate pairs are joined in either, single ones replaced.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

} // namespace VoAlgo::bson::detail
