#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/write_ply.h"
#include "pictures/image.h"
#include "simulation/frame.h"

#include <vector>

namespace voalgo {

/// The rectangle of the picture plane that a picture has to show, mm.
struct Field {
    double middle[2]; ///< along the axes 0 and 1 of the eye
    double halfWidth;
    double halfHeight;
};

/// The bounds of the clouds in the picture plane of `eye` (axis 0 to the right, axis 1 up, axis 2 towards the viewer).
Field FieldOf(const std::vector<ColouredCloud>& clouds, const Frame& eye);

/// Draws the clouds as shaded discs of `radius` mm without perspective, at `scale` pixels per mm, with the middle of
/// the field in the middle of the picture. Surfaces seen from behind are darker; steps in depth get a dark edge.
void DrawSplats(Image& image, const std::vector<ColouredCloud>& clouds, const Frame& eye, const Field& field,
                double scale, double radius);

} // namespace voalgo
