#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/write_ply.h"
#include "pictures/image.h"
#include "simulation/frame.h"

#include <vector>

namespace voalgo {

/// The largest distance of a point from the frame's axes 0 and 1, mm: what a picture from there has to show.
struct Field {
    double middle[2];
    double halfWidth;
    double halfHeight;
};

/// What the clouds take up in the picture plane of `eye` (axis 0 to the right, axis 1 up, axis 2 towards the viewer).
Field FieldOf(const std::vector<ColouredCloud>& clouds, const Frame& eye);

/// Draws the clouds as shaded discs without perspective, `scale` pixels per mm, the middle of the field in the middle
/// of the picture. `radius`: of a disc, mm. Surfaces seen from behind are drawn darker; depth steps get a dark edge.
void DrawSplats(Image& image, const std::vector<ColouredCloud>& clouds, const Frame& eye, const Field& field,
                double scale, double radius);

} // namespace voalgo
