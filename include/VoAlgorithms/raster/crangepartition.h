#pragma once

#include "VoAlgorithms/raster/tplanepartition.h"

namespace VoAlgo {

/// A rectangle of places in the plane divided into disjoint rectangles with a value each.
using CRangePartition = TPlanePartition<RealRect>;

} // namespace VoAlgo
