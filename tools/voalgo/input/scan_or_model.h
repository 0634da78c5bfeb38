#pragma once

#include "input/cloud_options.h"

#include <string>
#include <utility>

namespace voalgo {

/// Reads and prepares both inputs of a registration. A mesh is sampled at the spacing of the other input's points; if
/// both are meshes, at a 200th of the smaller diagonal. Reports on the console what was found and done. Throws
/// InputError.
std::pair<prereg::PreparedScan, prereg::PreparedScan>
LoadScansOrModels(const CloudOptions& options, const std::string& fix, const std::string& flt, Console& console);

} // namespace voalgo
