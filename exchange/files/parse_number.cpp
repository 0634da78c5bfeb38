#include "exchange/files/parse_number.h"

#include <charconv>

namespace voalgo {

std::optional<double> ParseNumber(std::string_view word)
{
    if (!word.empty() && word.front() == '+') word.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc{} || end != word.data() + word.size()) return std::nullopt;
    return value;
}

} // namespace voalgo
