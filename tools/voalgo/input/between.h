#pragma once

#include <CLI/CLI.hpp>

namespace voalgo {

inline constexpr double LongestLength = 1e9; ///< mm; whatever is longer is a mistake

/// Accepts numbers from `low` to `high` and nothing else, NaN neither.
CLI::Validator Between(double low, double high);

} // namespace voalgo
