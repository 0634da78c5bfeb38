#pragma once

#include "exchange/report/outcome.h"

#include <string>
#include <vector>

namespace voalgo {

/// Writes all files of the output directory, removes those of an earlier run with another outcome, and returns the
/// paths. Without a result there is no pose and no merged cloud, only what was tried.
std::vector<std::string> WriteOutput(const std::string& directory, const Outcome& outcome);

} // namespace voalgo
