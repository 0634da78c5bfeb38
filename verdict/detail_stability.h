#pragma once

#include "VoAlgorithms/prereg/cpointset.h"

namespace prereg::detail {

/// How well the shape of the overlap holds a pose, 0 to 1/3: the smallest eigenvalue of the point-to-plane problem's
/// normal matrix per pair, lengths in units of the overlap's radius. Near 0 the scans could slide or turn against each
/// other: a plane, a cylinder, a sphere. `radius` (mm) and `angle` (rad) bound the pairs; 0 for fewer than 10 pairs.
/// Source: N. Gelfand, L. Ikemoto, S. Rusinkiewicz, M. Levoy, Geometrically Stable Sampling for the ICP Algorithm, 3DIM
/// 2003.
double PoseStability(const CPointSet& fix, const CPointSet& flt, const VoAlgo::CTrafo& pose, double radius,
                     double angle);

} // namespace prereg::detail
