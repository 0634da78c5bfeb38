#pragma once

#include "report.h"

#include <string>

namespace voalgo {

/// Makes the directory and removes what an earlier run with another outcome has left. Throws InputError.
void PrepareOutput(const std::string& directory);
/// All files of the output directory. Without a result there is no pose and no merged cloud, only what was tried.
void WriteOutput(const std::string& directory, const Report& report);

} // namespace voalgo
