#pragma once

#include <string>

namespace voalgo {

/// Valid JSON text with line breaks for the reader: objects and arrays down to `depth` have a line for each member,
/// deeper ones stay as they are.
std::string Indented(const std::string& json, unsigned depth);

} // namespace voalgo
