#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/verdict/viewdirection.h"

#include <optional>
#include <vector>

namespace prereg {

/// What decides the signs of normals.
enum class ENormalSigns {
    Given,      ///< whoever made them
    Viewpoint,  ///< the stated viewpoint
    View,       ///< one direction that sees all points, found from the points
    Propagation ///< the neighbours, from point to point
};

/// How normals were oriented, and how well.
struct NormalOrientation {
    ENormalSigns by = ENormalSigns::Given;  ///< what decided the signs
    std::optional<ViewDirection> view = {}; ///< that orients the normals when by is View
    /// Share of points whose normal is more than 90 degrees from that of their nearest neighbour in a sample.
    /// A few per cent on sharp edges; more where signs are mixed.
    double disagreeing = 0.0;
    /// Share of points at which the surface is convex, seen from the side of the normals. What scanners see is mostly
    /// convex: 0.55 to 0.75. A share below 0.4 suggests that all normals point inwards; near 0.5 it says nothing.
    double convex = 0.5;
};

/// Assesses normals as given: unit length or zero, one per point.
[[nodiscard]] VOALGO_API NormalOrientation AssessNormals(const std::vector<kdtree::Vector<3>>& points,
                                                         const std::vector<kdtree::Vector<3>>& normals);

/// Gives normals of either sign one side of the surface: towards the viewpoint if there is one, else towards the
/// direction that sees all points if there is one, else signs are propagated from neighbour to neighbour, between the
/// most similar normals first (H. Hoppe et al. 1992). Without a viewpoint the side of each piece is that from which
/// more of it is convex, which is a likelihood only: the inside of a bowl comes out wrong. Points are finite, mm. O(n)
/// with a view, else O(n log n).
VOALGO_API NormalOrientation OrientNormals(const std::vector<kdtree::Vector<3>>& points,
                                           std::vector<kdtree::Vector<3>>& normals,
                                           const std::optional<kdtree::Vector<3>>& viewpoint = {});

/// Estimates the unit normals of a surface: at each point the direction of least spread of its `neighbours` nearest
/// points; zero where that is undefined and at isolated points. OrientNormals decides the signs; `orientation`, if
/// given, receives how. The points are finite. O(n log n), on all cores; the result does not depend on their number.
/// Source: H. Hoppe, T. DeRose, T. Duchamp, J. McDonald, W. Stuetzle, Surface Reconstruction from Unorganized Points,
/// SIGGRAPH 1992.
[[nodiscard]] VOALGO_API std::vector<kdtree::Vector<3>>
EstimateNormals(const std::vector<kdtree::Vector<3>>& points, const std::optional<kdtree::Vector<3>>& viewpoint,
                unsigned neighbours = 16, NormalOrientation* orientation = nullptr);

} // namespace prereg
