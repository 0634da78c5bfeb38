#pragma once

#include "VoAlgorithms/verdict/scan.h"

namespace voalgo {

/// Share of a's points whose nearest point in b lies within `radius` mm, with normals less than 60 degrees apart. Both
/// clouds lie in one frame.
double OverlapShare(const prereg::Scan& a, const prereg::Scan& b, double radius);

} // namespace voalgo
