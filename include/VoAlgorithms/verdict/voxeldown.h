#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/verdict/scan.h"

namespace prereg {

/// Thins a scan to one point per cube of the given edge (mm): the means of its points and, normalised, of its normals,
/// if it has any. Points are finite. The cubes come in the order of a search grid; the same scan gives the same bits.
[[nodiscard]] VOALGO_API Scan VoxelDown(const Scan& scan, double edge);

} // namespace prereg
