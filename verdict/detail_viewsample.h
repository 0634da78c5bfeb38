#pragma once

#include "VoAlgorithms/verdict/viewdirection.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace prereg::detail {

/// Some of a scan's points, in which views of it are compared.
struct ViewSample {
    std::vector<std::size_t> index;         ///< of the point in the scan
    std::vector<kdtree::Vector<3>> points;  ///< without isolated ones
    std::vector<kdtree::Vector<3>> normals; ///< unit length; as given, or of either sign
    std::vector<kdtree::Vector<3>> rise;    ///< from the mean of its neighbours to the point, mm
    std::vector<float> density;             ///< points per area, relative to the median
    float spacing = 0.0F;                   ///< median distance to the nearest neighbour, mm
    double disagreeing = 0.0;               ///< share of points whose normal faces away from their neighbour's
};

constexpr std::size_t FewestViewPoints = 50;

/// Measures at most 4,500 of the points, those with normals; drops isolated points. O(n).
ViewSample TakeViewSample(const std::vector<kdtree::Vector<3>>& points, const std::vector<kdtree::Vector<3>>& normals);

/// Share of points at which the surface bulges towards the normal; 0.5 for none.
double ConvexShare(const ViewSample& sample);

/// The view in which the fewest points are hidden, found without the signs of the normals, which then face its viewer.
/// The sign of the direction makes more of the surface convex than concave. Nothing when no view sees all points.
std::optional<ViewDirection> FindView(ViewSample& sample);

/// The share of `points` that lie behind others of them, seen along d. Spacing: of the points, mm.
double HiddenShare(const std::vector<kdtree::Vector<3>>& points, float spacing, const kdtree::Vector<3>& d);

/// Indices of at most `count` of n items, one from each of equal ranges; the same for the same n and count.
std::vector<std::size_t> SpreadIndices(std::size_t n, std::size_t count);

} // namespace prereg::detail
