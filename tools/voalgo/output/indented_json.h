#pragma once

#include <string>

namespace voalgo {

/// Indents valid JSON text: objects and arrays down to `depth` get a line for each member, deeper ones stay as they
/// are.
std::string Indented(const std::string& json, unsigned depth);

} // namespace voalgo
