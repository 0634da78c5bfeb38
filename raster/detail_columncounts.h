#pragma once

#include "VoAlgorithms/raster/imageview.h"
#include "platform/tasks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace VoAlgo {

/// For each pixel the number of rows to the nearest pixel of a mask in its column, in memory that is lent: row y of
/// counts lies at the start of row y of a result whose pixels have at least four bytes.
class ColumnCounts {
public:
    /// In columns without such a pixel.
    static constexpr std::uint32_t Far = UINT32_MAX;

    /// To what is not 0.
    static ColumnCounts ToMask(const MaskView& mask, void* memory, std::size_t bytesPerPixel, unsigned numThreads)
    {
        ColumnCounts counts(mask, memory, bytesPerPixel);
        counts.count(mask, numThreads, [](std::uint32_t beyond, bool isSet, bool) { return isSet ? 0 : beyond; });
        return counts;
    }
    /// To what is 0 from pixels that are not, and the other way round.
    static ColumnCounts ToOtherKind(const MaskView& mask, void* memory, std::size_t bytesPerPixel, unsigned numThreads)
    {
        ColumnCounts counts(mask, memory, bytesPerPixel);
        counts.count(mask, numThreads,
                     [](std::uint32_t beyond, bool isSet, bool wasSet) { return isSet == wasSet ? beyond : 1; });
        return counts;
    }

    [[nodiscard]] std::size_t Width() const { return width_; }
    [[nodiscard]] std::size_t Height() const { return height_; }
    /// Copies a row; its memory is free then.
    void Load(std::size_t y, std::uint32_t* counts) const
    {
        std::memcpy(counts, memory_ + y * stride_, width_ * sizeof(std::uint32_t));
    }

private:
    // As many pixels as compilers turn into a few vectors, side by side.
    static constexpr std::size_t Lanes = 32;
    using Counts = std::array<std::uint32_t, Lanes>;
    using Pixels = std::array<std::uint8_t, Lanes>;
    /// What was seen last in each of a few columns.
    struct State {
        Counts counts;
        Pixels pixels;
    };

    ColumnCounts(const MaskView& mask, void* memory, std::size_t bytesPerPixel)
        : width_(static_cast<std::size_t>(mask.width)), height_(static_cast<std::size_t>(mask.height)),
          memory_(static_cast<std::byte*>(memory)), stride_(width_ * bytesPerPixel)
    {
    }

    /// Downwards, then upwards keeping the less; step(count of the pixel before + 1, pixel, pixel before) counts.
    template <class Step>
    void count(const MaskView& mask, unsigned numThreads, const Step& step)
    {
        const std::size_t numChunks = (width_ + Lanes - 1) / Lanes;
        tasks::ForRanges(numChunks, numThreads, [&](std::size_t begin, std::size_t end) {
            for (const bool isUpwards : {false, true}) {
                std::vector<State> states(end - begin);
                for (std::size_t k = 0; k < height_; ++k) {
                    const std::size_t y = isUpwards ? height_ - 1 - k : k;
                    const std::uint8_t* pixels = mask.Row(static_cast<std::int32_t>(y));
                    for (std::size_t c = begin; c < end; ++c)
                        countChunk(pixels, y, c * Lanes, k == 0, isUpwards, states[c - begin], step);
                }
            }
        });
    }

    template <class Step>
    void countChunk(const std::uint8_t* row, std::size_t y, std::size_t x, bool isFirst, bool isUpwards, State& state,
                    const Step& step)
    {
        const std::size_t n = std::min(Lanes, width_ - x);
        std::byte* place = memory_ + y * stride_ + x * sizeof(std::uint32_t);
        Pixels pixels{};
        Counts counts, least;
        copy(pixels.data(), row + x, n, 1);
        if (isFirst) state = {{}, pixels};
        if (isFirst) state.counts.fill(Far);
        for (std::size_t i = 0; i < Lanes; ++i) {
            const std::uint32_t beyond = state.counts[i] + (state.counts[i] != Far ? 1U : 0U);
            counts[i] = step(beyond, pixels[i] != 0, state.pixels[i] != 0);
        }
        if (isUpwards) {
            least.fill(Far);
            copy(least.data(), place, n, sizeof(std::uint32_t));
            for (std::size_t i = 0; i < Lanes; ++i) counts[i] = std::min(counts[i], least[i]);
        }
        copy(place, counts.data(), n, sizeof(std::uint32_t));
        state = {counts, pixels};
    }
    /// Most chunks are whole, and their size is a constant then.
    static void copy(void* to, const void* from, std::size_t n, std::size_t size)
    {
        if (n == Lanes)
            std::memcpy(to, from, Lanes * size);
        else
            std::memcpy(to, from, n * size);
    }

    std::size_t width_, height_;
    std::byte* memory_;
    std::size_t stride_;
};

} // namespace VoAlgo
