#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kdtree::detail {

/// Ascending indices of the points (n of `dimension` floats each, `stride` floats apart) that are finite and do not
/// repeat an earlier one; −0 equals 0. Expected linear time.
std::vector<std::uint32_t> UniqueFinite(const float* points, std::size_t n, std::size_t stride, unsigned dimension);

} // namespace kdtree::detail
