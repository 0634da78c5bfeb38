#pragma once

#include "cloud.h"

namespace voalgo {

/// How finely and how smoothly a cloud samples its surface, from a sample of its points.
struct Sampling {
    double spacing = 0.0; ///< mean distance of a point to its nearest neighbour, mm; 0 for less than two points
    double roughness =
        0.0; ///< root mean square distance of neighbours to each other's tangent planes, mm, outliers cut
};
Sampling MeasureSampling(const Cloud& cloud);
/// The spacing alone.
double MeanSpacing(const Cloud& cloud);

} // namespace voalgo
