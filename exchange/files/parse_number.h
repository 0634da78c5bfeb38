#pragma once

#include <optional>
#include <string_view>

namespace voalgo {

/// The number that a word states, perhaps with a leading plus sign; nothing unless all of the word is a number.
std::optional<double> ParseNumber(std::string_view word);

} // namespace voalgo
