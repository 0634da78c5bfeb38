#pragma once

#include <string_view>

namespace voalgo {

/// Cuts the first word off `text`, whose words are separated by blanks and tabs; empty when there is none.
inline std::string_view NextWord(std::string_view& text)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    std::size_t begin = 0;
    while (begin < text.size() && isBlank(text[begin])) ++begin;
    std::size_t end = begin;
    while (end < text.size() && !isBlank(text[end])) ++end;
    const std::string_view word = text.substr(begin, end - begin);
    text.remove_prefix(end);
    return word;
}

} // namespace voalgo
