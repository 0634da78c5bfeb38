#pragma once

#include "exchange/files/staged_directory.h"
#include "exchange/report/outcome.h"

#include <string>
#include <vector>

namespace voalgo {

/// The names of all files that WriteOutput may write.
const std::vector<std::string>& OutputNames();

/// Writes the files of the output directory. Without a registration there is neither a pose nor a merged cloud.
void WriteOutput(StagedDirectory& directory, const Outcome& outcome);

} // namespace voalgo
