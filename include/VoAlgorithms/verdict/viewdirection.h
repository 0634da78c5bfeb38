#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <optional>
#include <vector>

namespace prereg {

/// The direction from which a scan was taken.
struct ViewDirection {
    kdtree::Vector<3> direction; ///< unit vector from the object to the viewer
    double hidden = 0.0;         ///< share of points that lie behind others in this view
    double facingAway = 0.0;     ///< share of normals that face away from the viewer
};

/// Finds the direction from which a single view of an object was taken; nothing for merged scans, models and fewer than
/// 50 points, whose normals face everywhere or hide each other in any view. A range scanner samples a regular grid of
/// its image, so that the density of points on the surface is proportional to n·d: a robust fit of this gives the
/// direction, which then yields to a neighbouring one where clearly fewer points hide behind others. Thinning to one
/// point per cube erases the density: prefer the scan as it was read. Zero normals and isolated points do not count.
/// At most 4,500 points are looked at, chosen by a fixed seed. points are finite, mm, as many as normals.
[[nodiscard]] VOALGO_API std::optional<ViewDirection> InferViewDirection(const std::vector<kdtree::Vector<3>>& points,
                                                                         const std::vector<kdtree::Vector<3>>& normals);

} // namespace prereg
