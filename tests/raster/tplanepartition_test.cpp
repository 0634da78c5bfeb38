#include "VoAlgorithms/raster/cintpartition.h"
#include "VoAlgorithms/raster/crangepartition.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <random>
#include <vector>

namespace {

using VoAlgo::CIntPartition;
using VoAlgo::CRangePartition;
using VoAlgo::PixelRect;
using VoAlgo::RealRect;

constexpr int Size = 40;

/// An image painted pixel by pixel.
struct Painting {
    std::array<int, std::size_t{Size} * Size> pixels{};

    int& operator()(int x, int y) { return pixels[static_cast<std::size_t>(y * Size + x)]; }
    int operator()(int x, int y) const { return pixels[static_cast<std::size_t>(y * Size + x)]; }
};

/// Holds a partition of [0, Size)² against a painted array; cells are `scale` wide.
template <class Partition>
void ExpectPainting(const Partition& partition, const Painting& painting, double scale)
{
    using Bound = typename Partition::Bound;
    const auto bound = [scale](int v) { return static_cast<Bound>(v * scale); };
    Painting visited;
    std::map<int, double> areas;
    std::size_t numPieces = 0;
    const auto paint = [&](const auto& r, int value) {
        ++numPieces;
        for (int y = static_cast<int>(static_cast<double>(r.yBegin) / scale); bound(y) < r.yEnd; ++y)
            for (int x = static_cast<int>(static_cast<double>(r.xBegin) / scale); bound(x) < r.xEnd; ++x) {
                ASSERT_EQ(value, painting(x, y));
                ++visited(x, y);
            }
    };
    partition.Visit(paint);
    EXPECT_EQ(numPieces, partition.NumRectangles());
    for (const auto& piece : partition.GetMerged()) paint(piece.rectangle, piece.value);
    for (int y = 0; y < Size; ++y)
        for (int x = 0; x < Size; ++x) {
            ASSERT_EQ(visited(x, y), 2); // once as it is, once merged
            const auto [piece, value] = partition.Locate(bound(x), bound(y));
            ASSERT_EQ(value, painting(x, y));
            ASSERT_TRUE(piece.xBegin <= bound(x) && bound(x) < piece.xEnd && piece.yBegin <= bound(y) &&
                        bound(y) < piece.yEnd);
            areas[value] += scale * scale;
        }
    for (const auto& [value, area] : partition.GetAreas()) ASSERT_EQ(static_cast<double>(area), areas[value]);
    EXPECT_TRUE(partition.Locate(bound(Size), 0).first.IsEmpty());
}

// Wrong cuts, pieces lost when parts are built again, values that win though they came earlier.
TEST(TPlanePartition, EqualsAPaintedArray)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 engine(seed);
        const auto below = [&engine](unsigned n) { return static_cast<int>(engine() % n); };
        CIntPartition pixels({0, 0, Size, Size}, -1);
        CRangePartition places({0, 0, Size * 0.25, Size * 0.25}, -1);
        Painting painting;
        painting.pixels.fill(-1);
        const int numValues = 1 + below(9), largest = 1 + below(30);
        for (int i = 0; i < 150; ++i) {
            const bool isStrip = seed % 3 == 0; // one beside another: deep trees
            const int x = isStrip ? i % Size : below(Size) - 3, y = isStrip ? 0 : below(Size) - 3,
                      value = below(static_cast<unsigned>(numValues));
            const int xEnd = x + (isStrip ? 1 : below(static_cast<unsigned>(largest))),
                      yEnd = y + (isStrip ? Size - i % 7 : below(static_cast<unsigned>(largest)));
            pixels.Set({x, y, xEnd, yEnd}, value);
            places.Set({x * 0.25, y * 0.25, xEnd * 0.25, yEnd * 0.25}, value);
            for (int v = std::max(y, 0); v < std::min(yEnd, Size); ++v)
                for (int u = std::max(x, 0); u < std::min(xEnd, Size); ++u) painting(u, v) = value;
            int numMet = 0;
            pixels.Visit({x, y, xEnd, yEnd}, [&](const PixelRect& r, int v) {
                ASSERT_EQ(v, value);
                ASSERT_FALSE(r.Intersection({x, y, xEnd, yEnd}).IsEmpty());
                ++numMet;
            });
            ASSERT_EQ(numMet > 0, !PixelRect({x, y, xEnd, yEnd}).Intersection(pixels.GetDomain()).IsEmpty());
        }
        ASSERT_NO_FATAL_FAILURE(ExpectPainting(pixels, painting, 1));
        ASSERT_NO_FATAL_FAILURE(ExpectPainting(places, painting, 0.25));
    }
}

// Without parts built again, a path is as long as the strips are many.
TEST(TPlanePartition, StripsInOrderStayFast)
{
    constexpr int N = 20'000;
    CIntPartition partition(PixelRect::Everything());
    for (int i = 0; i < N; ++i) partition.Set({i, 0, i + 1, 9}, i + 1);
    for (int i = 0; i < N; ++i) ASSERT_EQ(partition.Locate(i, 8).second, i + 1);
    partition.Set(PixelRect::Everything(), 7);
    EXPECT_EQ(partition.NumRectangles(), 1);
    EXPECT_EQ(partition.Locate(INT32_MAX, INT32_MIN).second, 7);
}

TEST(TPlanePartition, EmptyAndBadRectanglesDoNothing)
{
    CRangePartition none({1, 1, 1, 2}, 5), some({0, 0, 1, 1}, 5);
    none.Set({0, 0, 9, 9}, 1);
    EXPECT_EQ(none.NumRectangles(), 0);
    EXPECT_TRUE(none.GetAreas().empty() && none.GetMerged().empty());
    some.Set({std::nan(""), 0, 1, 1}, 1);
    some.Set({0, 0, 1, std::nan("")}, 1);
    some.Set({0.5, 0.5, 0.25, 1}, 1);
    EXPECT_EQ(some.NumRectangles(), 1);
    EXPECT_EQ(some.Locate(std::nan(""), 0).second, 0);
    EXPECT_EQ(some.GetAreas().at(5), 1);
}

} // namespace
