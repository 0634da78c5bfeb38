#pragma once

#include <string>
#include <vector>

namespace voalgo {

/// Throws UsageError, with both names, if an output is also an input or another output, by whatever links. Empty names
/// are no files.
void RequireDistinct(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs);

} // namespace voalgo
