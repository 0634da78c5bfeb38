#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <optional>
#include <vector>

namespace voalgo {

/// Estimates unit normals of a surface cloud: the direction of least spread of each point's `neighbours` nearest
/// points. With a viewpoint, normals point towards it. Without, the signs are made consistent from neighbour to
/// neighbour, over the edges between the most similar normals first, and each connected piece is turned so that most of
/// its normals point away from its own centroid. The points are finite. O(n log n).
std::vector<kdtree::Vector<3>> EstimateNormals(const std::vector<kdtree::Vector<3>>& points,
                                               const std::optional<kdtree::Vector<3>>& viewpoint,
                                               unsigned neighbours = 16);

} // namespace voalgo
