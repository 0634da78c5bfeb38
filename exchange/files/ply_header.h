#pragma once

#include <cstdint>
#include <string>

namespace voalgo {

/// What the reading of a PLY file needs to know of its header.
struct PlyHeader {
    std::uint64_t dataOffset = 0;   ///< bytes before the data
    bool isBinary = false;          ///< the data are
    bool beginsWithSingleX = false; ///< they begin with a little-endian float x of a vertex
};

/// Reads the header. Throws InputError when the header of a PLY file is not well formed, or announces more data than
/// the file has. Why: the reader library trusts the header; where that is wrong it fills points with whatever lies in
/// memory, or does not end.
PlyHeader ReadPlyHeader(const std::string& path);

} // namespace voalgo
