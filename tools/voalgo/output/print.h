#pragma once

#include "exchange/report/outcome.h"

#include <string>
#include <vector>

namespace voalgo {

/// Prints the outcome to standard output: as JSON with the times, or as text, which is a table of the results with the
/// best pose or the reason for the refusal, and the files that were written.
void Print(const Outcome& outcome, bool json, const std::vector<std::string>& files);

} // namespace voalgo
