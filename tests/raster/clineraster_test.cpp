#include "VoAlgorithms/raster/clineraster.h"

#include "VoAlgorithms/platform/logging.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using VoAlgo::CLineRaster;
using VoAlgo::PixelRect;
using EConnection = CLineRaster::EConnection;
using Pixel = CLineRaster::Pixel;
using Pixels = std::vector<Pixel>;

Pixels PixelsOf(const CLineRaster& line)
{
    Pixels pixels;
    line.ForEachPixel([&](std::int32_t x, std::int32_t y) { pixels.push_back({x, y}); });
    return pixels;
}

int FloorQuotient(int a, int b)
{
    return static_cast<int>(std::floor(static_cast<double>(a) / b));
}

/// Ends in quarters of pixels.
struct Segment {
    int x0, y0, x1, y1;

    [[nodiscard]] CLineRaster Raster(EConnection connection) const
    {
        if (x0 % 4 == 2 && y0 % 4 == 2 && x1 % 4 == 2 && y1 % 4 == 2) // centres
            return {x0 / 4, y0 / 4, x1 / 4, y1 / 4, connection};
        return {x0 / 4.0, y0 / 4.0, x1 / 4.0, y1 / 4.0, connection};
    }
    /// Whether the pixel's square, with its border or without, meets the segment.
    [[nodiscard]] bool Meets(int x, int y, bool isClosed) const
    {
        const auto meet = [isClosed](int low, int high, int begin, int end) {
            if (isClosed) return high >= begin && low <= end;
            return low == high ? low > begin && low < end : high > begin && low < end;
        };
        int least = INT32_MAX, most = INT32_MIN;
        for (const int cx : {4 * x, 4 * x + 4})
            for (const int cy : {4 * y, 4 * y + 4}) {
                const int side = (x1 - x0) * (cy - y0) - (y1 - y0) * (cx - x0);
                least = std::min(least, side);
                most = std::max(most, side);
            }
        return meet(std::min(x0, x1), std::max(x0, x1), 4 * x, 4 * x + 4) &&
               meet(std::min(y0, y1), std::max(y0, y1), 4 * y, 4 * y + 4) && meet(0, 0, least, most);
    }
    /// Whether the pixel has the segment at the centre of its column, or of its row when that is steep.
    [[nodiscard]] bool IsNearest(int x, int y) const
    {
        if (std::abs(y1 - y0) > std::abs(x1 - x0)) return Segment{y0, x0, y1, x1}.IsNearest(y, x);
        const int first = FloorQuotient(std::min(x0, x1), 4), last = FloorQuotient(std::max(x0, x1), 4);
        const int low = FloorQuotient(std::min(y0, y1), 4), high = FloorQuotient(std::max(y0, y1), 4);
        if (x < first || x > last) return false;
        if (x0 == x1) return y == low;
        const int sign = x1 > x0 ? 1 : -1;
        const int row = FloorQuotient(sign * (y0 * (x1 - x0) + (y1 - y0) * (4 * x + 2 - x0)), 4 * std::abs(x1 - x0));
        return y == std::clamp(row, low, high);
    }
};

/// Holds pixels, their order, runs and clipping against the definitions.
void ExpectLine(const Segment& s, const PixelRect& clip)
{
    for (const EConnection connection : {EConnection::Eight, EConnection::Four, EConnection::Supercover}) {
        const CLineRaster line = s.Raster(connection);
        const Pixels pixels = PixelsOf(line);
        const auto has = [&](int x, int y) { return std::ranges::find(pixels, Pixel{x, y}) != pixels.end(); };
        std::size_t numTouched = 0;
        for (int y = -3; y < 12; ++y)
            for (int x = -3; x < 12; ++x) {
                const bool isWanted = connection == EConnection::Eight  ? s.IsNearest(x, y)
                                      : connection == EConnection::Four ? has(x, y) || s.Meets(x, y, false)
                                                                        : s.Meets(x, y, true);
                ASSERT_EQ(has(x, y), isWanted) << x << ' ' << y;
                numTouched += has(x, y);
            }
        ASSERT_EQ(numTouched, pixels.size()); // each once
        for (std::size_t i = 1; i < pixels.size() && connection != EConnection::Supercover; ++i) {
            const int dx = std::abs(pixels[i][0] - pixels[i - 1][0]), dy = std::abs(pixels[i][1] - pixels[i - 1][1]);
            ASSERT_EQ(connection == EConnection::Four ? dx + dy : std::max(dx, dy), 1);
        }
        const auto distance = [&](const Pixel& p) {
            return std::hypot(p[0] + 0.5 - s.x0 / 4.0, p[1] + 0.5 - s.y0 / 4.0);
        };
        ASSERT_LE(distance(pixels.front()), distance(pixels.back()) + 1.5);

        Pixels back = PixelsOf(Segment{s.x1, s.y1, s.x0, s.y0}.Raster(connection));
        std::ranges::reverse(back);
        ASSERT_TRUE(connection == EConnection::Supercover || back == pixels);

        Pixels visible = pixels, byRuns, byIterator;
        std::erase_if(visible, [&](const Pixel& p) { return !clip.Contains(p[0], p[1]); });
        const CLineRaster clipped = s.Raster(connection).ClipTo(clip);
        ASSERT_EQ(PixelsOf(clipped), visible);
        for (const Pixel& p : clipped) byIterator.push_back(p);
        ASSERT_EQ(byIterator, visible);
        clipped.ForEachRun([&](std::int32_t y, std::int64_t xBegin, std::int64_t xEnd) {
            for (; xBegin < xEnd; ++xBegin) byRuns.push_back({static_cast<std::int32_t>(xBegin), y});
        });
        std::ranges::sort(visible, {}, [](const Pixel& p) { return std::pair(p[1], p[0]); });
        ASSERT_EQ(byRuns, visible);
    }
}

// Every segment of a lattice of 9 × 9 pixels, and real ends on borders, on corners and between.
TEST(CLineRaster, EqualsDefinitionsOnSmallLattices)
{
    std::mt19937 engine(1);
    const auto below = [&engine](unsigned n) { return static_cast<int>(engine() % n); };
    const auto anyClip = [&]() -> PixelRect { return {below(7) - 1, below(7) - 1, below(11), below(11)}; };
    for (int i = 0; i < 81 * 81; ++i) {
        const Segment s{i % 9 * 4 + 2, i / 9 % 9 * 4 + 2, i / 81 % 9 * 4 + 2, i / 729 * 4 + 2};
        ASSERT_NO_FATAL_FAILURE(ExpectLine(s, anyClip())) << i;
    }
    for (int i = 0; i < 10'000; ++i) {
        const Segment s{below(37) - 2, below(37) - 2, below(37) - 2, below(37) - 2};
        ASSERT_NO_FATAL_FAILURE(ExpectLine(s, anyClip())) << s.x0 << ' ' << s.y0 << ' ' << s.x1 << ' ' << s.y1;
    }
}

// Overflow, and clipping that walks the whole line: m times (a, b) repeats the pixels of (a, b).
TEST(CLineRaster, LongLinesRepeatShortOnes)
{
    constexpr std::int32_t Far = INT32_MIN;
    constexpr std::int64_t M = 500'000'000;
    for (const auto& [a, b] : {Pixel{7, 3}, {3, 8}, {7, -5}, {-1, 8}, {-8, -8}, {8, 0}, {0, 5}, {-5, 2}})
        for (const EConnection connection : {EConnection::Eight, EConnection::Four, EConnection::Supercover})
            for (const std::int64_t k : {std::int64_t{0}, std::int64_t{123'456'789}, M - 1}) {
                const std::int32_t x0 = a >= 0 ? Far : INT32_MAX, y0 = b >= 0 ? Far : INT32_MAX;
                const std::int64_t x = x0 + k * a, y = y0 + k * b;
                const PixelRect period{std::min(x, x + a), std::min(y, y + b), std::max(x, x + a) + 1,
                                       std::max(y, y + b) + 1};
                Pixels expected = PixelsOf({0, 0, a, b, connection});
                for (Pixel& p : expected)
                    p = {static_cast<std::int32_t>(x + p[0]), static_cast<std::int32_t>(y + p[1])};
                CLineRaster far(x0, y0, x0 + M * a, y0 + M * b, connection);
                ASSERT_EQ(PixelsOf(far.ClipTo(period)), expected) << a << ' ' << b << ' ' << k;
            }
    const double last = std::nextafter(2147483648.0, 0);
    EXPECT_EQ(PixelsOf(CLineRaster(-2147483648.0, -2147483648.0, last, last).ClipTo({5, -9, 7, 9})),
              (Pixels{{5, 5}, {6, 6}}));
    EXPECT_EQ(PixelsOf(CLineRaster(0.5, 3.0, 4.5, std::nextafter(3.0, 0))).size(), 5);
}

// The squared distance in integers, for centres, radii and ends in halves.
TEST(CLineRaster, ThickLinesAreThePixelsWithinReach)
{
    std::mt19937 engine(2);
    const auto below = [&engine](unsigned n) { return static_cast<int>(engine() % n); };
    for (int trial = 0; trial < 3000; ++trial) {
        const int x0 = below(12), y0 = below(12), x1 = below(12), y1 = below(12), thickness = below(9);
        CLineRaster line(x0, y0, x1, y1);
        const PixelRect clip = trial % 2 ? PixelRect{2, 3, 9, 8} : PixelRect{-9, -9, 30, 30};
        Pixels pixels, expected;
        line.ClipTo(clip).ForEachThickRun(thickness, [&](std::int32_t y, std::int64_t xBegin, std::int64_t xEnd) {
            ASSERT_LT(xBegin, xEnd);
            for (; xBegin < xEnd; ++xBegin) pixels.push_back({static_cast<std::int32_t>(xBegin), y});
        });
        const int dx = x1 - x0, dy = y1 - y0, lengthSq = dx * dx + dy * dy;
        for (int y = -9; y < 30; ++y)
            for (int x = -9; x < 30; ++x) {
                const int along = dx * (x - x0) + dy * (y - y0), across = dx * (y - y0) - dy * (x - x0);
                const int fromFirst = (x - x0) * (x - x0) + (y - y0) * (y - y0);
                const int fromLast = (x - x1) * (x - x1) + (y - y1) * (y - y1);
                const bool isNear = along <= 0          ? 4 * fromFirst <= thickness * thickness
                                    : along >= lengthSq ? 4 * fromLast <= thickness * thickness
                                                        : 4 * across * across <= thickness * thickness * lengthSq;
                if (isNear && clip.Contains(x, y)) expected.push_back({x, y});
            }
        ASSERT_EQ(pixels, expected) << x0 << ' ' << y0 << ' ' << x1 << ' ' << y1 << ' ' << thickness;
    }
}

TEST(CLineRaster, BadEndsAreLogged)
{
    std::vector<std::string> channels;
    Logging::SetSink([&](const Logging::Message& message) {
        EXPECT_EQ(message.level, Logging::ELogLevel::Error);
        channels.emplace_back(message.channel);
    });
    const double nan = std::nan(""), infinity = std::numeric_limits<double>::infinity();
    for (const CLineRaster& line :
         {CLineRaster(nan, 0, 1, 1), CLineRaster(0, 0, 1, infinity), CLineRaster(0, 2147483648.0, 1, 0),
          CLineRaster(0, 0, std::int64_t{1} << 31, 0), CLineRaster(0U, 4294967295U, 0U, 0U)}) {
        EXPECT_TRUE(PixelsOf(line).empty());
        line.ForEachThickRun(5, [](auto, auto, auto) { FAIL(); });
    }
    Logging::SetSink({});
    EXPECT_EQ(channels, std::vector<std::string>(5, "KEP2.CLineRaster"));
    CLineRaster(0, 0, 5, 5).ForEachThickRun(nan, [](auto, auto, auto) { FAIL(); });
}

} // namespace
