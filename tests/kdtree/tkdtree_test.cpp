#include "VoAlgorithms/kdtree/tkdtree.h"

#include "kdtree/unique.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr float Infinity = std::numeric_limits<float>::infinity();
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

template <unsigned D>
using Points = std::vector<std::array<float, D>>;

// First occurrences of the finite points, by comparing each with all before it.
template <unsigned D>
std::vector<std::uint32_t> PlainUniqueFinite(const Points<D>& points)
{
    std::vector<std::uint32_t> survivors;
    for (std::uint32_t i = 0; i < points.size(); ++i) {
        const auto& p = points[i];
        const bool isFinite = std::all_of(p.begin(), p.end(), [](float x) { return std::isfinite(x); });
        const bool isNew =
            std::none_of(survivors.begin(), survivors.end(), [&](std::uint32_t k) { return points[k] == p; });
        if (isFinite && isNew) survivors.push_back(i);
    }
    return survivors;
}

template <unsigned D>
double PlainDistanceSq(const std::array<float, D>& a, const std::array<float, D>& b)
{
    return std::transform_reduce(a.begin(), a.end(), b.begin(), 0.0, std::plus(),
                                 [](double x, double y) { return (x - y) * (x - y); });
}

// Compares every query of a tree with linear scans. The distances are taken from the tree's own unbounded search, which
// prunes nothing, after they were checked; all further comparisons are exact.
template <unsigned D, unsigned B>
void CompareWithScan(const std::string& name, const Points<D>& points, const Points<D>& queries)
{
    SCOPED_TRACE(name);
    using Tree = kdtree::TKdTree<D, B>;
    const Tree tree(points.empty() ? nullptr : points[0].data(), points.size(), D);
    const std::vector<std::uint32_t> survivors = PlainUniqueFinite<D>(points);
    ASSERT_EQ(tree.Size(), survivors.size());
    EXPECT_EQ(tree.Empty(), survivors.empty());

    for (const auto& query : queries) {
        std::vector<typename Tree::Neighbour> all;
        tree.NearestK(query.data(), static_cast<unsigned>(points.size()) + 1, Infinity, all);
        ASSERT_EQ(all.size(), survivors.size());
        std::vector<float> distanceOf(points.size(), -1.0F);
        std::vector<float> ascending;
        for (const auto& [index, distanceSq] : all) {
            const double exact = PlainDistanceSq<D>(points[static_cast<std::size_t>(index)], query);
            ASSERT_NEAR(distanceSq, exact, 1e-6 * exact);
            ASSERT_EQ(distanceOf[static_cast<std::size_t>(index)], -1.0F) << "found twice";
            distanceOf[static_cast<std::size_t>(index)] = distanceSq;
            ascending.push_back(distanceSq);
        }
        ASSERT_TRUE(std::is_sorted(ascending.begin(), ascending.end()));
        std::vector<typename Tree::Neighbour> ranked; // ties by index
        for (const std::uint32_t i : survivors) ranked.emplace_back(static_cast<int>(i), distanceOf[i]);
        std::stable_sort(ranked.begin(), ranked.end(),
                         [](const auto& p, const auto& q) { return p.second < q.second; });

        std::vector<float> radii{0.0F, Infinity};
        for (std::size_t i = 1; i <= ascending.size(); i *= 4) { // on, just below and just above a point's distance
            const float r = ascending[i - 1];
            radii.insert(radii.end(), {r, std::nextafter(r, 0.0F), std::nextafter(r, Infinity)});
        }
        for (const float radiusSq : radii) {
            std::vector<int> within, expected;
            for (const std::uint32_t i : survivors)
                if (distanceOf[i] <= radiusSq) expected.push_back(static_cast<int>(i));
            tree.AllWithin(query.data(), radiusSq, within);
            std::sort(within.begin(), within.end());
            ASSERT_EQ(within, expected);

            float distanceSq = -1.0F;
            const int nearest = tree.Nearest(query.data(), radiusSq, &distanceSq);
            const bool isFound = !ascending.empty() && ascending[0] < radiusSq; // a point on the radius is not
            ASSERT_EQ(nearest != -1, isFound);
            ASSERT_EQ(distanceSq, isFound ? ascending[0] : -1.0F);
            ASSERT_TRUE(!isFound || distanceOf[static_cast<std::size_t>(nearest)] == ascending[0]);

            for (const unsigned k : {0U, 1U, 5U, 8U, 13U, 16U, 17U, 100U}) {
                std::vector<typename Tree::Neighbour> found{{7, 7.0F}};
                tree.NearestK(query.data(), k, radiusSq, found);
                ASSERT_EQ(found.size(), std::min<std::size_t>(k, expected.size()));
                ASSERT_TRUE(std::equal(found.begin(), found.end(), ranked.begin()));
            }
        }
    }
}

template <unsigned D>
Points<D> Uniform(std::size_t n, unsigned seed, float scale = 1.0F, float offset = 0.0F)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    Points<D> points(n);
    for (auto& p : points)
        for (float& x : p) x = offset + scale * uniform(engine);
    return points;
}

// Integer coordinates below `steps`, in random order and repeated: equal distances and duplicates everywhere.
template <unsigned D>
Points<D> OnGrid(std::size_t n, unsigned steps, float from, float step)
{
    std::mt19937 engine(steps);
    Points<D> points(n);
    for (auto& p : points)
        for (float& x : p) x = from + step * static_cast<float>(engine() % steps);
    return points;
}

template <unsigned D, unsigned B>
void CompareAllWithScans()
{
    const float ulp = std::numeric_limits<float>::epsilon();
    Points<D> somewhere = Uniform<D>(300 / D, 1, 1.5F);
    for (const std::array<float, D>& p : {std::array<float, D>{}, {9}, {-0.0F, 3, 3}}) somewhere.push_back(p);
    Points<D> zeros(8), line(200), blobs = Uniform<D>(800, 7, 0.01F), dirty = Uniform<D>(300, 3);
    for (std::size_t i = 0; i < zeros.size(); ++i) zeros[i][i % D] = -0.0F;
    for (std::size_t i = 0; i < line.size(); ++i) line[i][0] = 0.01F * static_cast<float>(i);
    for (std::size_t i = 0; i < blobs.size(); i += 2)
        for (float& x : blobs[i]) x += 1.0F;
    for (std::size_t i = 0; i < dirty.size(); i += 3)
        dirty[i][i / 3 % D] = i % 2 == 0 ? NaN : (i % 4 == 1 ? Infinity : -Infinity);
    Points<D> sparse = OnGrid<D>(2000, 7, 0.0F, 1.0F); // like histograms: many equal bins, the last one counts
    for (auto& p : sparse) std::fill(p.begin() + 2, p.end() - 1, 0.25F);
    const struct {
        const char* name;
        Points<D> points, queries;
    } cases[] = {
        {"empty", {}, somewhere},
        {"one point", {{1, 2, 3}}, {{1, 2, 3}, {}}},
        {"a full leaf", Uniform<D>(B, 4), somewhere},
        {"one split", Uniform<D>(B + 1, 5), somewhere},
        {"uniform", Uniform<D>(3000, 6), somewhere},
        {"two blobs", blobs, somewhere},
        {"grid", OnGrid<D>(400, 3, 0.0F, 0.125F), OnGrid<D>(6, 5, 0.0F, 0.125F)},
        {"grid with duplicates", sparse, OnGrid<D>(10, 14, 0.0F, 0.5F)},
        {"one place", Points<D>(1000, {1, 1, 1}), {{1, 1, 1}, {}}},
        {"both zeros", zeros, somewhere},
        {"a line", line, somewhere},
        {"Inf and NaN between", dirty, somewhere},
        {"Inf and NaN alone", {{NaN}, {0, Infinity}, {0, 0, -Infinity}}, somewhere},
        {"far away", Uniform<D>(500, 9, 100.0F, 1e7F), Uniform<D>(10, 10, 200.0F, 1e7F)},
        {"neighbouring floats", OnGrid<D>(400, 4, 1.0F, ulp), OnGrid<D>(8, 6, 1.0F - ulp, ulp)},
        {"no float between", OnGrid<D>(100, 2, 1.0F, ulp), OnGrid<D>(6, 4, 1.0F, ulp)},
    };
    for (const auto& c : cases) CompareWithScan<D, B>(c.name, c.points, c.queries);
}

// Catches wrong pruning, lost or repeated points, and confusion of strict and inclusive radii, in space and for
// histograms.
TEST(TKdTree, QueriesEqualLinearScans)
{
    CompareAllWithScans<3, 48>();
    CompareAllWithScans<33, 6>();
}

// A box whose half-extents are 0 cannot be split: the points count, but the tree has no root and finds nothing.
TEST(TKdTree, PointsThatCannotBeSplitLeaveATreeWithoutRoot)
{
    Points<33> points(7);
    for (std::size_t i = 0; i < points.size(); ++i) points[i][i] = std::numeric_limits<float>::denorm_min();
    const kdtree::TKdTree<33, 6> tree(points[0].data(), points.size(), 33);
    std::vector<int> within{1};
    std::vector<std::pair<int, float>> nearest{{1, 1.0F}};
    tree.AllWithin(points[0].data(), Infinity, within);
    tree.NearestK(points[0].data(), 3, Infinity, nearest);
    EXPECT_EQ(tree.Size(), 7U);
    EXPECT_EQ(tree.Nearest(points[0].data(), Infinity), -1);
    EXPECT_TRUE(within.empty());
    EXPECT_TRUE(nearest.empty());
}

// Queries that are not finite, and a stride wider than the point.
TEST(TKdTree, OddQueriesAndStrides)
{
    Points<5> wide = Uniform<5>(200, 20);
    for (auto& p : wide) p[3] = p[4] = NaN; // not part of the point
    const kdtree::TKdTree<3, 48> tree(wide[0].data(), wide.size(), 5);
    EXPECT_EQ(tree.Size(), 200U);
    for (int i = 0; i < 200; i += 17) EXPECT_EQ(tree.Nearest(wide[static_cast<std::size_t>(i)].data(), 1.0F), i);
    std::vector<int> within;
    for (const float x : {NaN, Infinity}) {
        const float query[3] = {x, 0.0F, 0.0F};
        EXPECT_EQ(tree.Nearest(query, 1.0F), -1);
        tree.AllWithin(query, 1.0F, within);
        EXPECT_TRUE(within.empty());
    }
    Points<3> largest = Uniform<3>(60, 22, 3e38F); // squares overflow, half-extents must not
    const kdtree::TKdTree<3, 48> wide3(largest.data(), largest.size());
    EXPECT_EQ(wide3.Nearest(largest[5].data(), 1.0F), 5);
}

// Catches hash collisions taken for equality, and the survival of any copy but the first.
TEST(UniqueFinite, KeepsTheFirstOfEqualFinitePoints)
{
    Points<3> mixed = OnGrid<3>(2000, 11, -5.0F, 1.0F);
    for (std::size_t i = 0; i < mixed.size(); i += 7) mixed[i][i % 3] = i % 2 == 0 ? NaN : Infinity;
    for (std::size_t i = 1; i < mixed.size(); i += 5)
        if (mixed[i][0] == 0.0F) mixed[i][0] = -0.0F;
    for (const Points<3>& points : {mixed, Uniform<3>(1000, 21), Points<3>(100, {1, 2, 3}), Points<3>{{NaN, 0, 0}}})
        EXPECT_EQ(kdtree::detail::UniqueFinite(points[0].data(), points.size(), 3, 3), PlainUniqueFinite<3>(points));
    EXPECT_TRUE(kdtree::detail::UniqueFinite(nullptr, 0, 3, 3).empty());
}

} // namespace
