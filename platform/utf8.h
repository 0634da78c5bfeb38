#pragma once

#include <string>
#include <string_view>

namespace VoAlgo {

/// Replaces anything that is not Unicode.
constexpr char32_t ReplacementCharacter = 0xFFFD;

/// Removes the first code point from `text`, which is not empty. Broken UTF-8 (truncated, overlong, a surrogate, too
/// large) gives the replacement character and removes the longest piece that could have begun a character, at least one
/// byte.
char32_t TakeCodePoint(std::string_view& text);
/// Appends a code point as one to four bytes.
void AppendUtf8(std::string& text, char32_t codePoint);

///@{
/// Wide characters are UTF-16 or UTF-32, depending on their width. Surrogate pairs are joined in either; lone
/// surrogates are replaced.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);
///@}

} // namespace VoAlgo
