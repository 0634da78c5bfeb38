#pragma once

#include <string>

namespace voalgo {

/// Throws InputError when a binary PLY file is shorter than the rows that its header announces; every other file
/// passes. Why: the reader library takes a file that was cut off for whole and fills the missing points with whatever
/// lies in memory.
void RequirePlyLength(const std::string& path);

} // namespace voalgo
