#pragma once

#include "VoAlgorithms/raster/pixelrect.h"
#include "VoAlgorithms/raster/tplanepartition.h"

namespace VoAlgo {

/// A rectangle of pixels divided into disjoint rectangles with a value each.
using CIntPartition = TPlanePartition<PixelRect>;

} // namespace VoAlgo
