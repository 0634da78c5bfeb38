#pragma once

#include "cloud.h"

namespace voalgo {

/// Share of a's points whose nearest point in b lies within `radius` mm, with normals less than 60 degrees apart. Both
/// clouds lie in one frame.
double OverlapShare(const Cloud& a, const Cloud& b, double radius);

} // namespace voalgo
