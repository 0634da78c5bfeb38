#pragma once

#include "exchange/files/byte_input.h"

#include <cstdint>
#include <string>
#include <vector>

namespace voalgo {

/// How a number of a PLY file is stored.
struct PlyType {
    char kind = 'f';      ///< 'i' signed, 'u' unsigned, 'f' floating point
    std::size_t size = 0; ///< bytes in a binary file
};

/// A value of each row of an element, or a list of values after their number.
struct PlyProperty {
    std::string name;
    PlyType type; ///< of a list, that of its values
    bool isList = false;
    PlyType countType = {};
};

/// Rows of the same properties.
struct PlyElement {
    std::string name;
    std::uint64_t rows = 0;
    std::vector<PlyProperty> properties = {};

    [[nodiscard]] bool HasList() const;
    /// Bytes of a row in a binary file, of lists only the counts.
    [[nodiscard]] std::uint64_t LeastRowSize() const;
};

struct PlyHeader {
    enum class Form { Text, LittleEndian, BigEndian };
    Form form = Form::Text;
    std::vector<PlyElement> elements = {}; ///< in the order of the data
};

/// Reads the header; the input then stands at the data. Throws InputError when the header is malformed or announces
/// more data than the input holds.
PlyHeader ReadPlyHeader(ByteInput& input);

} // namespace voalgo
