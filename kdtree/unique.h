#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kdtree::detail {

/// Indices, ascending, of the points (n of `dimension` floats each, `stride` apart) that are finite and not a
/// repetition of an earlier one; −0 equals 0. O(n) expected.
std::vector<std::uint32_t> UniqueFinite(const float* points, std::size_t n, std::size_t stride, unsigned dimension);

} // namespace kdtree::detail
