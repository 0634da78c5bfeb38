#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <array>
#include <cstdint>
#include <vector>

namespace voalgo {

/// A triangle mesh; lengths in millimetres. Neighbouring triangles need not share their vertices.
struct Mesh {
    std::vector<kdtree::Vector<3>> vertices;
    std::vector<std::array<std::uint32_t, 3>> triangles;
};

} // namespace voalgo
