#include "VoAlgorithms/raster/distancetransform.h"

#include "platform/tasks.h"
#include "raster/detail_columncounts.h"
#include "raster/detail_envelope.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace VoAlgo {
namespace {

/// Runs work(y, counts) for all rows; `counts` is a row's distances along columns. Each worker has a copy of `work`.
template <class Work>
void ForEachRowOfCounts(const ColumnCounts& columns, unsigned numThreads, const Work& work)
{
    tasks::ForRanges(columns.Height(), numThreads, [&](std::size_t begin, std::size_t end) {
        Work ownWork(work);
        std::vector<std::uint32_t> counts(columns.Width());
        for (std::size_t y = begin; y < end; ++y) {
            columns.Load(y, counts.data());
            ownWork(y, counts.data());
        }
    });
}

/// Squared distances of a row whose counts are all small, by trying all neighbours up to the largest distance left:
/// sixteen at a time where an envelope takes them one by one.
class NearRow {
public:
    static constexpr std::uint32_t LargestCount = 15;

    explicit NearRow(std::size_t width) : costs_(Margin + padded(width) + Margin, Far), best_(padded(width)) {}

    void Solve(const std::uint32_t* counts, std::size_t width, std::uint64_t* squared)
    {
        unsigned largest = 0;
        for (std::size_t x = 0; x < width; ++x) {
            const std::uint32_t cost = counts[x] * counts[x];
            costs_[Margin + x] = static_cast<std::uint16_t>(cost);
            best_[x] = static_cast<std::uint16_t>(cost);
            largest = std::max(largest, cost);
        }
        for (unsigned k = 1; k * k < largest; ++k) largest = tryNeighbours(k);
        for (std::size_t x = 0; x < width; ++x) squared[x] = best_[x];
    }

private:
    using Chunk = std::array<std::uint16_t, 32>;
    static constexpr std::size_t Margin = LargestCount;
    static constexpr std::uint16_t Far = 0x4000;

    static std::size_t padded(std::size_t width)
    {
        return (width + Chunk{}.size() - 1) / Chunk{}.size() * Chunk{}.size();
    }
    /// Returns the largest squared distance left.
    unsigned tryNeighbours(unsigned k)
    {
        Chunk largest{};
        for (std::size_t x = 0; x < best_.size(); x += largest.size()) {
            const std::uint16_t* left = costs_.data() + Margin + x - k;
            const std::uint16_t* right = costs_.data() + Margin + x + k;
            Chunk best;
            std::copy_n(best_.data() + x, best.size(), best.data());
            for (std::size_t i = 0; i < best.size(); ++i) {
                const auto nearer = static_cast<std::uint16_t>(std::min(left[i], right[i]) + k * k);
                best[i] = std::min(best[i], nearer);
                largest[i] = std::max(largest[i], best[i]);
            }
            std::copy_n(best.data(), best.size(), best_.data() + x);
        }
        return *std::ranges::max_element(largest);
    }

    std::vector<std::uint16_t> costs_, best_;
};

/// Squared distances of one row after another.
template <class Number>
class RowSolver {
public:
    explicit RowSolver(std::size_t width) : width_(width), near_(width), envelope_(width) {}

    void Solve(const std::uint32_t* counts, std::uint64_t* squared)
    {
        if (*std::max_element(counts, counts + width_) <= NearRow::LargestCount)
            return near_.Solve(counts, width_, squared);
        SolveByEnvelope(counts, squared, [](auto&&...) {});
    }
    /// Calls visit(begin, end, column) for each run of pixels with the column of their nearest pixel.
    template <class Visit>
    void SolveByEnvelope(const std::uint32_t* counts, std::uint64_t* squared, Visit&& visit)
    {
        envelope_.Clear();
        for (std::size_t x = 0; x < width_; ++x) {
            const auto count = static_cast<Number>(counts[x]);
            if (counts[x] != ColumnCounts::Far) envelope_.Add(static_cast<std::int32_t>(x), count * count);
        }
        if (envelope_.IsEmpty()) std::fill_n(squared, width_, InfiniteDistanceSq);
        envelope_.ForEachPart([&](std::int32_t begin, std::int32_t end, std::int32_t column, Number cost) {
            Number distance = static_cast<Number>(begin) - column;
            for (std::int32_t x = begin; x < end; ++x, ++distance) {
                const Number sum = distance * distance + cost;
                squared[x] = static_cast<std::uint64_t>(sum);
            }
            visit(begin, end, column);
        });
    }

private:
    std::size_t width_;
    NearRow near_;
    Envelope<Number> envelope_;
};

/// Calls f with a solver of rows in the integers that suffice.
template <class F>
void WithSolver(const MaskView& mask, F&& f)
{
    const auto width = static_cast<std::size_t>(mask.width);
    if (std::max(mask.width, mask.height) < 1 << 15) // 2·2^30 < 2^31
        f(RowSolver<std::int32_t>(width));
    else
        f(RowSolver<std::int64_t>(width));
}

} // namespace

void DistanceTransform(const MaskView& mask, std::vector<std::uint64_t>& squared, unsigned numThreads)
{
    squared.resize(mask.Size());
    if (mask.IsEmpty()) return;
    const ColumnCounts columns = ColumnCounts::ToMask(mask, squared.data(), sizeof squared[0], numThreads);
    WithSolver(mask, [&](const auto& solver) {
        ForEachRowOfCounts(columns, numThreads, [&, own = solver](std::size_t y, const std::uint32_t* counts) mutable {
            own.Solve(counts, squared.data() + y * columns.Width());
        });
    });
}

void DistanceTransform(const MaskView& mask, std::vector<std::uint64_t>& squared, std::vector<std::size_t>& nearest,
                       unsigned numThreads)
{
    squared.resize(mask.Size());
    nearest.assign(mask.Size(), NoPixel);
    if (mask.IsEmpty()) return;
    const ColumnCounts columns = ColumnCounts::ToMask(mask, squared.data(), sizeof squared[0], numThreads);
    const std::size_t width = columns.Width();
    WithSolver(mask, [&](const auto& solver) {
        ForEachRowOfCounts(columns, numThreads, [&, own = solver](std::size_t y, const std::uint32_t* counts) mutable {
            own.SolveByEnvelope(counts, squared.data() + y * width, [&](auto begin, auto end, std::int32_t column) {
                const std::size_t count = counts[column];
                const bool isAbove = count <= y && mask(column, static_cast<std::int32_t>(y - count)) != 0;
                const std::size_t index = (isAbove ? y - count : y + count) * width + static_cast<std::size_t>(column);
                std::fill(nearest.data() + y * width + begin, nearest.data() + y * width + end, index);
            });
        });
    });
}

void DistanceTransform(const MaskView& mask, double pixelWidth, double pixelHeight, std::vector<double>& squared,
                       unsigned numThreads)
{
    for (const double size : {pixelWidth, pixelHeight})
        if (!(size > 0 && size < HUGE_VAL))
            throw std::invalid_argument("DistanceTransform: a pixel's width or height is " + std::to_string(size) +
                                        "; must be positive and finite");
    squared.resize(mask.Size());
    if (mask.IsEmpty()) return;
    const ColumnCounts columns = ColumnCounts::ToMask(mask, squared.data(), sizeof squared[0], numThreads);
    const std::size_t width = columns.Width();
    ForEachRowOfCounts(columns, numThreads,
                       [&, envelope = Envelope<double>(width, pixelWidth * pixelWidth)](
                           std::size_t y, const std::uint32_t* counts) mutable {
                           double* out = squared.data() + y * width;
                           envelope.Clear();
                           for (std::size_t x = 0; x < width; ++x) {
                               const double height = pixelHeight * counts[x];
                               if (counts[x] != ColumnCounts::Far)
                                   envelope.Add(static_cast<std::int32_t>(x), height * height);
                           }
                           if (envelope.IsEmpty()) std::fill_n(out, width, HUGE_VAL);
                           envelope.ForEachPart([&](auto begin, auto end, std::int32_t column, double cost) {
                               for (std::int32_t x = begin; x < end; ++x) {
                                   const double distance = pixelWidth * (x - column);
                                   out[x] = distance * distance + cost;
                               }
                           });
                       });
}

void SignedDistanceTransform(const MaskView& mask, std::vector<std::int64_t>& squared, unsigned numThreads)
{
    squared.resize(mask.Size());
    if (mask.IsEmpty()) return;
    const ColumnCounts columns = ColumnCounts::ToOtherKind(mask, squared.data(), sizeof squared[0], numThreads);
    const std::size_t width = columns.Width();
    // A pixel of the other kind counts 0, one of the same kind its distance to the other along the column.
    WithSolver(mask, [&](const auto& solver) {
        ForEachRowOfCounts(
            columns, numThreads,
            [&, own = solver, other = std::vector<std::uint32_t>(width),
             found = std::vector<std::uint64_t>(width)](std::size_t y, const std::uint32_t* counts) mutable {
                const std::uint8_t* pixels = mask.Row(static_cast<std::int32_t>(y));
                std::int64_t* out = squared.data() + y * width;
                for (const bool isInside : {false, true}) {
                    for (std::size_t x = 0; x < width; ++x) other[x] = (pixels[x] != 0) == isInside ? counts[x] : 0;
                    own.Solve(other.data(), found.data());
                    for (std::size_t x = 0; x < width; ++x) {
                        const auto limited = static_cast<std::int64_t>(std::min<std::uint64_t>(found[x], INT64_MAX));
                        if ((pixels[x] != 0) == isInside) out[x] = isInside ? -limited : limited;
                    }
                }
            });
    });
}

void PixelsWithin(const MaskView& mask, std::uint64_t limitSq, std::vector<std::uint8_t>& within, unsigned numThreads)
{
    within.resize(mask.Size());
    if (mask.IsEmpty()) return;
    std::vector<std::uint32_t> between(mask.Size());
    const ColumnCounts columns = ColumnCounts::ToMask(mask, between.data(), sizeof between[0], numThreads);
    const std::size_t width = columns.Width();
    WithSolver(mask, [&](const auto& solver) {
        ForEachRowOfCounts(columns, numThreads,
                           [&, own = solver, found = std::vector<std::uint64_t>(width)](
                               std::size_t y, const std::uint32_t* counts) mutable {
                               own.Solve(counts, found.data());
                               for (std::size_t x = 0; x < width; ++x)
                                   within[y * width + x] = found[x] <= limitSq && found[x] != InfiniteDistanceSq;
                           });
    });
}

namespace {

/// Forth and back over the pixels, each from its neighbours already seen: exact for steps of one kind.
/// Source: A. Rosenfeld, J. L. Pfaltz, Pattern Recognition 1 (1968) 33–61.
template <bool HasDiagonals>
void CountSteps(const MaskView& mask, std::vector<std::uint32_t>& distance)
{
    constexpr std::uint32_t Far = UINT32_MAX;
    distance.resize(mask.Size());
    if (mask.IsEmpty()) return;
    const auto width = static_cast<std::size_t>(mask.width), height = static_cast<std::size_t>(mask.height);
    const std::vector<std::uint32_t> outside(width, Far);
    // The least of the row before and the pixel before, plus 1; `backwards` counts x from the right.
    const auto pass = [&](std::uint32_t* row, const std::uint32_t* before, bool isBackwards) {
        std::uint32_t last = Far;
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t x = isBackwards ? width - 1 - i : i;
            std::uint32_t least = std::min(last, before[x]);
            if (HasDiagonals && x > 0) least = std::min(least, before[x - 1]);
            if (HasDiagonals && x + 1 < width) least = std::min(least, before[x + 1]);
            last = row[x] = std::min(row[x], least + (least != Far));
        }
    };
    for (std::size_t y = 0; y < height; ++y) {
        std::uint32_t* row = distance.data() + y * width;
        std::transform(mask.Row(static_cast<std::int32_t>(y)), mask.Row(static_cast<std::int32_t>(y)) + width, row,
                       [](std::uint8_t pixel) { return pixel != 0 ? 0 : Far; });
        pass(row, y > 0 ? row - width : outside.data(), false);
    }
    for (std::size_t y = height; y-- > 0;)
        pass(distance.data() + y * width, y + 1 < height ? distance.data() + (y + 1) * width : outside.data(), true);
}

} // namespace

void CityBlockTransform(const MaskView& mask, std::vector<std::uint32_t>& distance)
{
    CountSteps<false>(mask, distance);
}

void ChessboardTransform(const MaskView& mask, std::vector<std::uint32_t>& distance)
{
    CountSteps<true>(mask, distance);
}

} // namespace VoAlgo
