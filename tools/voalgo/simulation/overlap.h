#pragma once

#include "VoAlgorithms/verdict/scan.h"

namespace voalgo {

/// The share of a's points whose nearest point in b lies within `radius` mm and has a normal less than 60 degrees
/// apart. Both clouds are in one frame.
double OverlapShare(const prereg::Scan& a, const prereg::Scan& b, double radius);

} // namespace voalgo
