#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <vector>

namespace prereg::detail {

/// Share of the unit normals that are more than 10 degrees off three directions: those that most of them face, one
/// after the other. 0 for none. A corner of three flat faces has a share near 0.
double ShareBeyondThreeFaces(std::vector<kdtree::Vector<3>> normals);

} // namespace prereg::detail
