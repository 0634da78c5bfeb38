#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace voalgo {

/// A value of each row of an element.
struct PlyProperty {
    std::string name;
    char kind = 'f';        ///< 'i' signed, 'u' unsigned, 'f' floating point
    std::uint64_t size = 0; ///< bytes in a binary file; of a list, those of its count
    bool isList = false;    ///< a row's bytes vary
};

/// Rows of the same properties.
struct PlyElement {
    std::string name;
    std::uint64_t rows = 0;
    std::vector<PlyProperty> properties = {};
};

/// What is needed from a header in order to read a PLY file.
struct PlyHeader {
    std::vector<PlyElement> elements = {}; ///< in the order of the data
    bool isLittleEndian = false;           ///< of binary data
    std::uint64_t dataOffset = 0;          ///< bytes before the data
    bool isBinary = false;                 ///< the data are binary
    bool beginsWithSingleX = false;        ///< the data begin with a little-endian float x of a vertex
};

/// Reads the header of a PLY file. Throws InputError when it is malformed or announces more data than the file has. The
/// reader library trusts the header: a wrong one makes it fill points with uninitialised memory, or never end.
PlyHeader ReadPlyHeader(const std::string& path);

} // namespace voalgo
