#pragma once

#include "VoAlgorithms/verdict/samplemesh.h"

#include <string>
#include <vector>

namespace voalgo {

/// The contents of a PLY, OBJ or STL file, in the file's order and unit.
struct Model {
    prereg::TriangleMesh mesh;              ///< no triangles: a cloud
    std::vector<kdtree::Vector<3>> normals; ///< one per vertex; empty when the file has none
};

/// Throws InputError with the file's name and the reason.
Model ReadModel(const std::string& path);

} // namespace voalgo
