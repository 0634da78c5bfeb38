#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <string>
#include <vector>

namespace voalgo {

/// A cloud as the registration takes it: points in millimetres, one unit normal each (zero where unknown).
struct Cloud {
    std::vector<kdtree::Vector<3>> points;
    std::vector<kdtree::Vector<3>> normals;
};

} // namespace voalgo
