#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/verdict/scan.h"

namespace prereg {

/// Thins a scan to one point per cube of the given edge length (mm): the mean of the points in the cube and the
/// normalised mean of their normals. Points follow the order of the search grid; the same scan gives the same bits.
[[nodiscard]] VOALGO_API Scan VoxelDown(const Scan& scan, double edge);

} // namespace prereg
