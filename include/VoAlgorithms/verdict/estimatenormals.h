#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <optional>
#include <vector>

namespace prereg {

/// Estimates the unit normals of a surface: at each point the direction of least spread of its `neighbours` nearest
/// points; zero where that is undefined. With a viewpoint, normals point towards it. Without one, signs are
/// propagated from neighbour to neighbour, between the most similar normals first, and each connected piece is oriented
/// so that most of its normals point away from its own centroid. The points are finite. O(n log n). Source: H. Hoppe,
/// T. DeRose, T. Duchamp, J. McDonald, W. Stuetzle, Surface Reconstruction from Unorganized Points, SIGGRAPH 1992.
[[nodiscard]] VOALGO_API std::vector<kdtree::Vector<3>>
EstimateNormals(const std::vector<kdtree::Vector<3>>& points, const std::optional<kdtree::Vector<3>>& viewpoint,
                unsigned neighbours = 16);

} // namespace prereg
