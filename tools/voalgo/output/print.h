#pragma once

#include "exchange/report/outcome.h"

#include <string>
#include <vector>

namespace voalgo {

/// The ranked results as a table with the best one's pose, or the reason why there is none with the causes of the
/// refusals.
std::string ToText(const Outcome& outcome);
/// Prints the outcome on standard output, as text with the files that were written or, with the times, as JSON.
void Print(const Outcome& outcome, bool json, const std::vector<std::string>& files);

} // namespace voalgo
