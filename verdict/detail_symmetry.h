#pragma once

#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/cpointset.h"

#include <vector>

namespace prereg::detail {

/// Rotations that may map a whole object onto itself: by a half, a third, and a quarter of a turn about its principal
/// axes. The axis of a rotational symmetry goes through the centroid and is a principal axis. A cube has no principal
/// axes; those of its fourth-order moments, the directions that most normals have, take their place. For a scan of a
/// part of the object they mean nothing.
std::vector<VoAlgo::CTrafo> LikelySymmetries(const CPointSet& scan);

} // namespace prereg::detail
