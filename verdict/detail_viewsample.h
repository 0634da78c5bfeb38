#pragma once

#include "VoAlgorithms/verdict/viewdirection.h"

#include <cstddef>
#include <vector>

namespace prereg::detail {

/// Some of a scan's points, in which views of it are compared.
struct ViewSample {
    std::vector<kdtree::Vector<3>> points;  ///< without isolated ones
    std::vector<kdtree::Vector<3>> normals; ///< unit length; as given, or of either sign
    std::vector<float> density;             ///< points per area, relative to the mean
    float spacing = 0.0F;                   ///< median distance to the nearest neighbour, mm
};

/// Indices of at most `count` of n items, one from each of equal ranges; the same for the same n and count.
std::vector<std::size_t> SpreadIndices(std::size_t n, std::size_t count);

/// Measures points whose normals are unit vectors; drops isolated points. O(n log n).
ViewSample MeasureViewSample(std::vector<kdtree::Vector<3>> points, std::vector<kdtree::Vector<3>> normals);

/// The best view near that in which the density fits the normals; the direction is zero when no fit exists.
ViewDirection BestView(const ViewSample& sample);

/// Whether all but a few points are seen in this view.
bool SeesAll(const ViewDirection& view);

} // namespace prereg::detail
