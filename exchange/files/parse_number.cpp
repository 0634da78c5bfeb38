#include "exchange/files/parse_number.h"

#include <charconv>

namespace voalgo {

std::optional<double> ParseNumber(std::string_view word)
{
    if (word.size() > 1 && word[0] == '+' && word[1] != '-') word.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc{} || end != word.data() + word.size()) return std::nullopt;
    return value;
}

} // namespace voalgo
