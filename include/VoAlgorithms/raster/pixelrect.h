#pragma once

#include <cstdint>

namespace VoAlgo {

/// The pixels [xBegin, xEnd) × [yBegin, yEnd); none if an end does not lie behind its begin. 64 bits, so that the ends
/// can lie behind the last of 32-bit pixels.
struct PixelRect {
    ///@{
    /// A bound.
    std::int64_t xBegin = 0, yBegin = 0, xEnd = 0, yEnd = 0;
    ///@}

    /// All pixels of 32-bit coordinates.
    static constexpr PixelRect Everything()
    {
        return {INT32_MIN, INT32_MIN, std::int64_t{INT32_MAX} + 1, std::int64_t{INT32_MAX} + 1};
    }

    /// Whether there are no pixels.
    [[nodiscard]] constexpr bool IsEmpty() const { return xBegin >= xEnd || yBegin >= yEnd; }
    /// Whether pixel (x, y) is among them.
    [[nodiscard]] constexpr bool Contains(std::int64_t x, std::int64_t y) const
    {
        return x >= xBegin && x < xEnd && y >= yBegin && y < yEnd;
    }
    /// The pixels of both.
    [[nodiscard]] constexpr PixelRect Intersection(const PixelRect& other) const
    {
        return {xBegin > other.xBegin ? xBegin : other.xBegin, yBegin > other.yBegin ? yBegin : other.yBegin,
                xEnd < other.xEnd ? xEnd : other.xEnd, yEnd < other.yEnd ? yEnd : other.yEnd};
    }
    /// Whether all bounds are the same.
    constexpr bool operator==(const PixelRect&) const = default;
};

} // namespace VoAlgo
