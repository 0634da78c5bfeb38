#include "VoAlgorithms/raster/ctriangle2d.h"

#include "raster/biginteger.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <vector>

namespace {

using VoAlgo::CTriangle2D;
using VoAlgo::PixelRect;
using VoAlgo::test::BigInteger;
using Point = CTriangle2D::Point;

/// Differences from the last point, as integers in units of the smallest double.
std::vector<std::array<BigInteger, 2>> DifferencesFromLast(const std::vector<Point>& points)
{
    std::vector<std::array<BigInteger, 2>> differences;
    const Point& last = points.back();
    for (std::size_t i = 0; i + 1 < points.size(); ++i)
        differences.push_back({BigInteger::FromDouble(points[i][0]) - BigInteger::FromDouble(last[0]),
                               BigInteger::FromDouble(points[i][1]) - BigInteger::FromDouble(last[1])});
    return differences;
}

BigInteger Cross(const std::array<BigInteger, 2>& p, const std::array<BigInteger, 2>& q)
{
    return p[0] * q[1] - p[1] * q[0];
}

int ExactOrientation(const Point& a, const Point& b, const Point& c)
{
    const auto d = DifferencesFromLast({a, b, c});
    return Cross(d[0], d[1]).Sign();
}

int ExactInCircle(const Point& a, const Point& b, const Point& c, const Point& p)
{
    const auto d = DifferencesFromLast({a, b, c, p});
    BigInteger sum;
    for (std::size_t i = 0; i < 3; ++i)
        sum = sum + (d[i][0] * d[i][0] + d[i][1] * d[i][1]) * Cross(d[(i + 1) % 3], d[(i + 2) % 3]);
    return sum.Sign();
}

int Below(std::mt19937& engine, unsigned n)
{
    return static_cast<int>(engine() % n);
}

/// Points whose signs hang on the last bits: of a lattice, next to a line or a circle, of all exponents, with products
/// that vanish.
class NastyPoints {
public:
    explicit NastyPoints(unsigned seed) : engine_(seed) {}

    std::vector<Point> Next(unsigned kind)
    {
        std::vector<Point> points;
        const double turn = angle_(engine_), size = std::ldexp(1, below(120) - 60);
        for (int i = 0; i < 4; ++i) {
            const double t = angle_(engine_) - 3;
            if (kind == 0) points.push_back({1.0 * below(5), 1.0 * below(5)});
            if (kind == 1) points.push_back({0.5 + below(64) * 0x1p-53, 0.5 + below(64) * 0x1p-53});
            if (kind == 2) points.push_back({size * t * std::cos(turn), size * t * std::sin(turn)});
            if (kind == 3) points.push_back({7.3 + size * std::cos(t), -2.1 + size * std::sin(t)});
            if (kind == 4) points.push_back({anyDouble(), anyDouble()});
            if (kind == 5) points.push_back({below(4) * 5e-324, below(4) * 5e-324});
            if (kind == 7) points.push_back({std::ldexp(below(9) + 0.1, -270), std::ldexp(below(9) + 0.1, -270)});
            if (kind == 6) points.push_back({(below(4) - 2) * 0x1.fffffffffffffp1022, (below(4) - 2) * 0x1.8p1022});
        }
        return points;
    }

private:
    int below(unsigned n) { return Below(engine_, n); }
    double anyDouble()
    {
        for (;;) {
            const auto v = std::bit_cast<double>(std::uint64_t{engine_()} << 32 | engine_());
            if (std::isfinite(v)) return v;
        }
    }

    std::mt19937 engine_;
    std::uniform_real_distribution<double> angle_{0, 6.283185307179586};
};

// Filters that trust rounded values, under- and overflow, lost carries of exact sums.
TEST(CTriangle2D, SignsEqualIntegerArithmetic)
{
    unsigned numZeros = 0;
    for (unsigned kind = 0; kind < 8; ++kind) {
        SCOPED_TRACE(kind);
        NastyPoints nasty(kind);
        for (int trial = 0; trial < 400; ++trial) {
            const std::vector<Point> p = nasty.Next(kind);
            const int orientation = ExactOrientation(p[0], p[1], p[2]);
            ASSERT_EQ(CTriangle2D::Orientation(p[0], p[1], p[2]), orientation);
            ASSERT_EQ(CTriangle2D::Orientation(p[1], p[0], p[2]), -orientation);
            ASSERT_EQ(CTriangle2D::InCircle(p[0], p[1], p[2], p[3]), ExactInCircle(p[0], p[1], p[2], p[3]));
            numZeros += orientation == 0;
        }
    }
    EXPECT_GT(numZeros, 100);
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(CTriangle2D::Orientation({0, 0}, {1, 0}, {0, inf}), 0);
    EXPECT_EQ(CTriangle2D::InCircle({0, 0}, {1, 0}, {0, 1}, {nan, 0}), 0);
    EXPECT_EQ(CTriangle2D::Orientation({0, 0}, {1, 0}, {0, 1}), 1);
    EXPECT_EQ(CTriangle2D::InCircle({0, 0}, {1, 0}, {0, 1}, {0.5, 0.5}), 1);
}

TEST(CTriangle2D, MeasuresEqualClosedForms)
{
    const CTriangle2D t({1e6, 1}, {1e6 + 4, 1}, {1e6, 4}); // sides 3, 4, 5
    EXPECT_EQ(t.SignedArea(), 6);
    EXPECT_EQ(CTriangle2D(t[0], t[2], t[1]).SignedArea(), -6);
    EXPECT_EQ(t.Circumcircle()->radius, 2.5);
    EXPECT_EQ(t.Circumcircle()->centre, (Point{1e6 + 2, 2.5}));
    EXPECT_DOUBLE_EQ(t.Incircle()->radius, 1);
    EXPECT_EQ(t.Incircle()->centre, (Point{1e6 + 1, 2}));
    const auto weights = *t.Barycentric({1e6 + 1, 2.5});
    EXPECT_DOUBLE_EQ(weights[0], 0.25);
    EXPECT_DOUBLE_EQ(weights[1], 0.25);
    EXPECT_DOUBLE_EQ(weights[2], 0.5);

    const CTriangle2D flat({0, 0}, {4, 2}, {2, 1}), invalid({0, 0}, {1, 0}, {0, std::nan("")});
    EXPECT_EQ(flat.Area(), 0);
    EXPECT_FALSE(flat.Circumcircle() || flat.Barycentric({0, 0}));
    EXPECT_EQ(flat.Incircle()->radius, 0);
    EXPECT_FALSE(invalid.IsValid() || invalid.Incircle() || invalid.Contains({0, 0}));
}

/// Two closed convex polygons on a small lattice are apart when their shadows along or across a line through two of
/// their corners are.
bool AreSeparated(const std::vector<Point>& a, const std::vector<Point>& b)
{
    std::vector<Point> all(a);
    all.insert(all.end(), b.begin(), b.end());
    for (const Point& p : all)
        for (const Point& q : all) {
            if (p == q) continue;
            const auto range = [&](const std::vector<Point>& ring, const Point& normal) {
                double low = 1e9, high = -1e9;
                for (const Point& r : ring) {
                    low = std::min(low, r[0] * normal[0] + r[1] * normal[1]);
                    high = std::max(high, r[0] * normal[0] + r[1] * normal[1]);
                }
                return std::pair(low, high);
            };
            for (const Point& normal : {Point{p[1] - q[1], q[0] - p[0]}, Point{q[0] - p[0], q[1] - p[1]}}) {
                const auto [lowA, highA] = range(a, normal);
                const auto [lowB, highB] = range(b, normal);
                if (highA < lowB || highB < lowA) return true;
            }
        }
    return false;
}

// Touching corners and borders, one within the other, corners on one line or in one place.
TEST(CTriangle2D, OverlapsUnlessALineSeparates)
{
    std::mt19937 engine(1);
    const auto any = [&engine] { return Point{1.0 * Below(engine, 5), 1.0 * Below(engine, 5)}; };
    std::array<unsigned, 2> counts{};
    for (int trial = 0; trial < 20'000; ++trial) {
        const std::vector<Point> a = {any(), any(), any()}, b = {any(), any(), any()};
        const CTriangle2D s(a[0], a[1], a[2]), t(b[0], b[1], b[2]);
        const Point p = b[0], q = b[1];
        ASSERT_EQ(s.Overlaps(t), !AreSeparated(a, b)) << trial;
        ASSERT_EQ(s.OverlapsSegment(p, q), !AreSeparated(a, {p, q})) << trial;
        ASSERT_EQ(s.OverlapsRectangle(p, q), !AreSeparated(a, {p, {q[0], p[1]}, q, {p[0], q[1]}})) << trial;
        ASSERT_EQ(s.Contains(p), !AreSeparated(a, {p})) << trial;
        ++counts[s.Overlaps(t)];
    }
    EXPECT_GT(counts[0], 1000);
    EXPECT_GT(counts[1], 1000);
}

/// Whether the centre of pixel (x, y), moved right by a little and down by much less, lies strictly within: the rule of
/// left and top edges. Corners are multiples of 1/4.
bool OwnsCentre(const std::array<Point, 3>& t, int x, int y)
{
    const auto scaled = [](double v) { return static_cast<std::int64_t>(v * 4) << 24; };
    const std::int64_t px = scaled(x + 0.5) + (1 << 12), py = scaled(y + 0.5) + 1;
    int sum = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const Point &a = t[i], &b = t[(i + 1) % 3];
        const std::int64_t cross =
            (scaled(b[0]) - scaled(a[0])) * (py - scaled(a[1])) - (scaled(b[1]) - scaled(a[1])) * (px - scaled(a[0]));
        sum += cross > 0 ? 1 : -1;
    }
    return std::abs(sum) == 3;
}

// Pixels missed or drawn twice along shared edges, wrong clipping, values off the plane.
TEST(CTriangle2D, RunsAreThePixelsOfTheTopLeftRule)
{
    std::mt19937 engine(2);
    const auto any = [&engine] { return Point{Below(engine, 40) * 0.25 - 1, Below(engine, 40) * 0.25 - 1}; };
    for (int trial = 0; trial < 4000; ++trial) {
        const std::array<Point, 3> corners = {any(), any(), any()};
        const CTriangle2D t(corners[0], corners[1], corners[2]);
        const PixelRect clip = trial % 2 ? PixelRect{2, 1, 7, 5} : PixelRect{-9, -9, 20, 20};
        std::vector<int> covered(32 * 32);
        std::array<std::array<double, 2>, 3> values;
        for (std::size_t i = 0; i < 3; ++i)
            values[i] = {2 * corners[i][0] - corners[i][1] + 3, corners[i][0] + corners[i][1]};
        std::int32_t last = -100;
        t.ForEachRun(clip, values, [&](std::int32_t y, std::int64_t xBegin, std::int64_t xEnd, auto& v, auto& step) {
            ASSERT_TRUE(y > last && xBegin < xEnd);
            last = y;
            ASSERT_NEAR(v[0], 2 * (static_cast<double>(xBegin) + 0.5) - (y + 0.5) + 3, 1e-10);
            ASSERT_NEAR(v[1] + step[1], static_cast<double>(xBegin) + 1.5 + (y + 0.5), 1e-10);
            for (std::int64_t x = xBegin; x < xEnd; ++x) ++covered[static_cast<std::size_t>((y + 9) * 32 + x + 9)];
        });
        for (int y = -9; y < 20; ++y)
            for (int x = -9; x < 20; ++x)
                ASSERT_EQ(covered[static_cast<std::size_t>((y + 9) * 32 + x + 9)],
                          t.GetOrientation() != 0 && clip.Contains(x, y) && OwnsCentre(corners, x, y))
                    << trial << ' ' << x << ' ' << y;
    }
}

// Edges that pass next to many centres: a fan of needles, far from the origin and beyond the last pixels.
TEST(CTriangle2D, FansCoverEachPixelOnce)
{
    constexpr int Size = 60;
    for (const double origin : {0.0, 1e6 + 0.3, 2147483600.0, -2147483648.0 - 5}) {
        const auto low = static_cast<std::int64_t>(origin) - 2;
        const PixelRect clip{low, low, low + Size + 4, low + Size + 4};
        std::vector<Point> border;
        for (int i = 0; i < Size; ++i) border.push_back({origin + i, origin});
        for (int i = 0; i < Size; ++i) border.push_back({origin + Size, origin + i});
        for (int i = 0; i < Size; ++i) border.push_back({origin + Size - i, origin + Size});
        for (int i = 0; i < Size; ++i) border.push_back({origin, origin + Size - i});
        std::map<std::pair<std::int64_t, std::int64_t>, int> covered;
        for (std::size_t i = 0; i < border.size(); ++i)
            CTriangle2D({origin + 20.5, origin + 7.5}, border[i], border[(i + 1) % border.size()])
                .ForEachRun(clip, [&](std::int32_t y, std::int64_t xBegin, std::int64_t xEnd) {
                    for (std::int64_t x = xBegin; x < xEnd; ++x) ++covered[{x, y}];
                });
        const auto isInside = [origin](std::int64_t v) {
            const double centre = static_cast<double>(v) + 0.5;
            return v >= INT32_MIN && v <= INT32_MAX && centre >= origin && centre < origin + Size;
        };
        for (std::int64_t y = clip.yBegin; y < clip.yEnd; ++y)
            for (std::int64_t x = clip.xBegin; x < clip.xEnd; ++x)
                ASSERT_EQ((covered[{x, y}]), isInside(x) && isInside(y));
    }
    const CTriangle2D huge({-1e300, -1e300}, {1e300, -1e300}, {0, 1e300});
    int numRuns = 0;
    huge.ForEachRun({-2, -2, 3, 3}, [&](auto, std::int64_t xBegin, std::int64_t xEnd) {
        EXPECT_TRUE(xBegin == -2 && xEnd == 3);
        ++numRuns;
    });
    EXPECT_EQ(numRuns, 5);
}

} // namespace
