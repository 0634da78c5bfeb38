#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace prereg {

/// Fewest inliers with which a refinement goes on.
inline constexpr std::size_t MinInliers = 5;

/// Fewest pairs of a pass with which a refinement goes on: a hundredth of its samples, but at least 5.
inline std::size_t MinPairs(std::uint32_t numSamples)
{
    return std::max(static_cast<std::size_t>(numSamples * 0.01), std::size_t{5});
}

} // namespace prereg
