#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <vector>

namespace prereg::detail {

/// How well the shape of an overlap holds a pose, 0 to 1/3: the smallest eigenvalue of the point-to-plane problem's
/// normal matrix per pair, lengths in units of the overlap's radius. Near 0 the scans could slide or turn against each
/// other: a plane, a cylinder, a sphere. One point (mm) and unit normal a pair; 0 for fewer than 10 pairs. Source:
/// N. Gelfand, L. Ikemoto, S. Rusinkiewicz, M. Levoy, Geometrically Stable Sampling for the ICP Algorithm, 3DIM 2003.
double Stability(const std::vector<kdtree::Vector<3>>& points, const std::vector<kdtree::Vector<3>>& normals);

} // namespace prereg::detail
