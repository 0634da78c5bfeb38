#pragma once

#include "exchange/report/outcome.h"

#include <string>
#include <vector>

namespace voalgo {

/// Writes the files of the output directory, making it if necessary, and returns their paths. Without a registration
/// there is neither a pose nor a merged cloud; those of an earlier run are removed.
std::vector<std::string> WriteOutput(const std::string& directory, const Outcome& outcome);

} // namespace voalgo
