#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/verdict/scan.h"

namespace prereg {

/// How densely and how smoothly a scan samples its surface, measured at about 2,000 of its points.
struct Sampling {
    double spacing = 0.0;   ///< mean distance of a point to its nearest neighbour, mm; 0 for fewer than two points
    double roughness = 0.0; ///< root mean square distance of neighbours to each other's tangent planes, mm; the largest
                            ///< tenth of the distances is left out
};

/// Measures a scan with normals; the points are finite. O(n).
[[nodiscard]] VOALGO_API Sampling MeasureSampling(const Scan& scan);

} // namespace prereg
