#pragma once

#include <string>

namespace voalgo {

/// Throws InputError when the header of a PLY file is not well formed, or announces more data than the file has. Why:
/// the reader library trusts the header; where that is wrong it fills points with whatever lies in memory, or does not
/// end.
void RequireSoundPlyHeader(const std::string& path);

} // namespace voalgo
