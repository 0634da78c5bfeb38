#pragma once

#include "exchange/files/mesh.h"

#include <string>

namespace voalgo {

/// What a PLY, OBJ or STL file holds, in the file's order and unit.
struct Model {
    Mesh mesh;                              ///< no triangles: a cloud
    std::vector<kdtree::Vector<3>> normals; ///< one per vertex, or none when the file has none
};

/// Throws InputError with the file's name and the reason.
Model ReadModel(const std::string& path);

} // namespace voalgo
