#pragma once

#include <cstdint>
#include <string>

namespace voalgo {

/// What is needed from a header in order to read a PLY file.
struct PlyHeader {
    std::uint64_t dataOffset = 0;   ///< bytes before the data
    bool isBinary = false;          ///< the data are binary
    std::uint64_t faces = 0;        ///< number of faces announced
    bool beginsWithSingleX = false; ///< the data begin with a little-endian float x of a vertex
};

/// Reads the header of a PLY file. Throws InputError when it is malformed or announces more data than the file has. The
/// reader library trusts the header: a wrong one makes it fill points with uninitialised memory, or never end.
PlyHeader ReadPlyHeader(const std::string& path);

} // namespace voalgo
