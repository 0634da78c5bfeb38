#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// For every point the index of the first point with exactly the same coordinates: its own when it is the first, or
/// when it is not finite. Fewer than 2³² points. O(n).
[[nodiscard]] VOALGO_API std::vector<std::size_t> FirstAtSamePlace(const std::vector<kdtree::Vector<3>>& points);

} // namespace prereg
