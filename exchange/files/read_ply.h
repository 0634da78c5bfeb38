#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/byte_input.h"
#include "exchange/files/ply_header.h"
#include "exchange/files/read_model.h"

#include <istream>
#include <string>

namespace voalgo {

/// Reads a PLY file: text or binary of either byte order, any order of elements and properties. One of Points and
/// Surface may be called, once. All throw InputError with the file's name and the reason.
class PlyReader {
public:
    /// Reads the header. `stream` is borrowed, binary and seekable; `name` begins every message.
    PlyReader(std::istream& stream, std::string name) : input_(stream, std::move(name)), header_(ReadPlyHeader(input_))
    {
    }

    /// Whether the file has rows of faces or strips of triangles.
    [[nodiscard]] bool HasFaces() const;
    /// The vertices, in mm, with their normals if all three components are there; floats in millimetres are kept
    /// exactly.
    prereg::Scan Points(double mmPerUnit);
    /// The vertices and faces in the file's unit. Polygons become fans of triangles.
    Model Surface();

private:
    ByteInput input_;
    PlyHeader header_;
};

} // namespace voalgo
