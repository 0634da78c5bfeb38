#include "VoAlgorithms/clustering/csearchgrid.h"

#include "support/clouds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using test_support::Random;
using test_support::Vec3;
using VoAlgo::CSearchGrid;

constexpr float Infinity = std::numeric_limits<float>::infinity();

struct Case {
    std::string name;
    std::vector<Vec3> points;
    float radius;
};

std::vector<Vec3> Scattered(std::size_t n, float half, const Vec3& centre, unsigned seed)
{
    Random random(seed);
    std::vector<Vec3> points;
    for (std::size_t i = 0; i < n; ++i) points.push_back(centre + random.InCube(half));
    return points;
}

std::vector<Case> Cases()
{
    // Exactly one radius apart: distances on the border, coordinates on cell borders, both signs.
    std::vector<Vec3> lattice, wideLattice;
    for (int i = 0; i < 343; ++i) {
        const Vec3 p(static_cast<float>(i % 7 - 3), static_cast<float>(i / 7 % 7 - 3), static_cast<float>(i / 49 - 3));
        lattice.push_back(0.7F * p);
        wideLattice.push_back(8.0F * p);
    }
    auto spread = Scattered(300, 1e6F, {}, 3); // far more than 2²¹ cells from end to end, and twins next to each
    for (std::size_t i = 0, n = spread.size(); i < n; ++i) spread.push_back(spread[i] + Vec3(0.1F, 0.0F, 0.0F));
    auto beyond = Scattered(50, 1.0F, {}, 4); // cells beyond the range of their coordinates
    beyond.insert(beyond.end(), {{3e38F, 0, 0}, {-3e38F, 1, 0}, {3e38F, 3e38F, -3e38F}, {1e30F, 0, 0}});
    return {{"empty", {}, 1.0F},
            {"one point", {{1, 2, 3}}, 1.0F},
            {"scattered", Scattered(1500, 5.0F, {}, 1), 1.0F},
            {"fine radius", Scattered(400, 5.0F, {}, 2), 0.01F},
            {"radius over all", Scattered(200, 1.0F, {}, 5), 100.0F},
            {"lattice", lattice, 0.7F},
            {"lattice far out", wideLattice, 8.0F},
            {"one place", std::vector<Vec3>(500, Vec3(1, 1, 1)), 0.5F},
            {"far away", Scattered(500, 50.0F, {1e7F, -1e7F, 1e7F}, 6), 10.0F},
            {"spread", spread, 0.2F},
            {"beyond", beyond, 0.5F}};
}

template <class Runs>
std::set<std::uint32_t> Positions(const Runs& runs)
{
    std::set<std::uint32_t> positions;
    for (const CSearchGrid::Run& run : runs)
        for (std::uint32_t i = run.begin; i < run.end; ++i) EXPECT_TRUE(positions.insert(i).second) << "in two runs";
    return positions;
}

// The runs around a place must hold every point within the radius, found by a linear scan, and none twice; positions
// must map back to the caller's points, sorted by cell and stable. Catches borders of cells, negative coordinates, lost
// rows.
TEST(CSearchGrid, RunsHoldWhatALinearScanFinds)
{
    for (const Case& c : Cases()) {
        SCOPED_TRACE(c.name);
        const CSearchGrid grid(c.points, c.radius);
        ASSERT_EQ(grid.Size(), c.points.size());
        EXPECT_EQ(grid.Radius(), c.radius);
        std::vector<std::uint32_t> order = grid.Order();
        for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(grid.Point(i), c.points[order[i]]);
        for (std::size_t cell = 0; cell < grid.NumCells(); ++cell)
            for (std::uint32_t i = grid.Cells()[cell].begin; i < grid.Cells()[cell + 1].begin; ++i) {
                EXPECT_EQ(grid.CellOf(i), cell);
                if (i > grid.Cells()[cell].begin) {
                    EXPECT_LT(order[i - 1], order[i]); // the caller's order inside a cell
                }
            }
        std::sort(order.begin(), order.end());
        for (std::uint32_t i = 0; i < order.size(); ++i) ASSERT_EQ(order[i], i);

        const auto expectHolds = [&](const Vec3& place, const CSearchGrid::Run* runs) {
            const auto positions = Positions(std::vector(runs, runs + CSearchGrid::NumRuns));
            for (std::uint32_t i = 0; i < grid.Size(); ++i)
                if ((grid.Point(i) - place).NormSq() <= c.radius * c.radius) {
                    ASSERT_EQ(positions.count(i), 1U) << i;
                }
        };
        Random random(7);
        CSearchGrid::Run runs[CSearchGrid::NumRuns];
        for (int query = 0; query < 200 && !c.points.empty(); ++query) {
            const std::size_t i = random.Index(c.points.size());
            expectHolds(grid.Point(i), grid.Neighbourhood(grid.CellOf(i)));
            const Vec3 nearby = grid.Point(i) + random.InCube(1.5F * c.radius); // need not lie in an occupied cell
            grid.Neighbourhood(grid.CellAt(nearby), runs);
            expectHolds(nearby, runs);

            const kdtree::Range<3> box{nearby - Vec3(c.radius, 0.1F * c.radius, c.radius),
                                       nearby + 3.0F * Vec3(c.radius, c.radius, c.radius)};
            std::vector<CSearchGrid::Run> boxRuns;
            grid.AppendRuns(box, boxRuns);
            const auto inBox = Positions(boxRuns);
            for (std::uint32_t k = 0; k < grid.Size(); ++k)
                if (kdtree::Contains(box, grid.Point(k))) {
                    ASSERT_EQ(inBox.count(k), 1U) << k;
                }
        }
    }
    CSearchGrid::Run runs[CSearchGrid::NumRuns];
    CSearchGrid({}, 1.0F).Neighbourhood(CSearchGrid({}, 1.0F).CellAt(Vec3(1, 2, 3)),
                                        runs); // nothing to find, and nothing to read
    EXPECT_TRUE(Positions(runs).empty());
}

void ExpectSameAsScan(const CSearchGrid& grid, const std::vector<Vec3>& points, const Vec3& place)
{
    std::vector<CSearchGrid::Neighbour> all; // by distance, then index
    for (std::size_t i = 0; i < points.size(); ++i) all.emplace_back(static_cast<int>(i), (points[i] - place).NormSq());
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    std::vector<float> radii{0.0F, grid.Radius() * grid.Radius(), 9.0F * grid.Radius(), Infinity};
    for (std::size_t i = 0; i < all.size(); i = 5 * i + 1)
        radii.insert(radii.end(), {all[i].second, std::nextafter(all[i].second, Infinity)});
    for (const float radiusSq : radii) {
        const auto isWithin = [&](const auto& n) { return n.second <= radiusSq; };
        const auto count = static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isWithin));
        std::vector<int> within, expected;
        for (std::size_t i = 0; i < count; ++i) expected.push_back(all[i].first);
        grid.AllWithin(place, radiusSq, within);
        std::sort(within.begin(), within.end());
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(within, expected) << radiusSq;

        float distanceSq = -1.0F;
        const bool isFound = !all.empty() && all[0].second < radiusSq;
        ASSERT_EQ(grid.Nearest(place, radiusSq, &distanceSq), isFound ? all[0].first : -1) << radiusSq;
        ASSERT_EQ(distanceSq, isFound ? all[0].second : -1.0F);
        for (const unsigned k : {0U, 1U, 5U, 16U, 40U}) {
            std::vector<CSearchGrid::Neighbour> found{{7, 7.0F}};
            grid.NearestK(place, k, radiusSq, found);
            ASSERT_EQ(found.size(), std::min<std::size_t>(k, count));
            ASSERT_TRUE(std::equal(found.begin(), found.end(), all.begin())) << k << ' ' << radiusSq;
        }
    }
}

// Catches searches that end too early, rows left out at the border of the grid, and lost radii.
TEST(CSearchGrid, QueriesEqualALinearScan)
{
    for (const Case& c : Cases()) {
        SCOPED_TRACE(c.name);
        CSearchGrid added;
        added.Add({c.points.begin(), c.points.begin() + static_cast<std::ptrdiff_t>(c.points.size() / 3)});
        added.Add({c.points.begin() + static_cast<std::ptrdiff_t>(c.points.size() / 3), c.points.end()});
        for (const CSearchGrid& grid : {CSearchGrid(c.points, c.radius), CSearchGrid(c.points), added}) {
            ASSERT_EQ(grid.Size(), c.points.size());
            Random random(8);
            for (int query = 0; query < 12; ++query) {
                Vec3 place = 100.0F * random.InCube(1.0F);
                if (query > 3 && !c.points.empty())
                    place = c.points[random.Index(c.points.size())] + random.InCube(2.0F * c.radius);
                if (query == 4) place = {-2e20F, 3e30F, 0.0F}; // squares overflow
                ExpectSameAsScan(grid, c.points, place);
                const kdtree::Range<3> box{place - Vec3(3.0F, 1.0F, 40.0F) * c.radius, place + Vec3(1.0F, 9.0F, 1.0F)};
                std::vector<int> inBox, expected;
                grid.InBox(box, inBox);
                std::sort(inBox.begin(), inBox.end());
                for (std::size_t i = 0; i < c.points.size(); ++i)
                    if (Contains(box, c.points[i])) expected.push_back(static_cast<int>(i));
                ASSERT_EQ(inBox, expected);
            }
        }
    }
}

TEST(CSearchGrid, ChosenCellsHoldAFewPoints)
{
    std::vector<Vec3> volume = Scattered(20000, 50.0F, {1e4F, 0, 0}, 11), surface = volume, line = volume;
    for (Vec3& p : surface) p.z = 0.1F * p.x;
    for (Vec3& p : line) p.z = p.y = p.x;
    for (std::vector<Vec3>* points : {&volume, &surface, &line}) {
        points->emplace_back(3e38F, -3e38F, 0.0F); // an outlier
        const CSearchGrid grid(*points);
        const double crowd = static_cast<double>(grid.Size()) / static_cast<double>(grid.NumCells());
        EXPECT_GT(crowd, 1.5);
        EXPECT_LE(crowd, 8.0);
    }
    EXPECT_GT(CSearchGrid(std::vector<Vec3>(500, Vec3(1, 1, 1))).Radius(), 0.0F);
}

TEST(CSearchGrid, RefusesWhatIsNotFinite)
{
    CSearchGrid grid({{0, 0, 0}}, 1.0F);
    EXPECT_THROW(grid.Add({{1, 0, 0}, {0, Infinity, 0}}), std::invalid_argument);
    EXPECT_EQ(grid.Size(), 1U);
    const float nan = std::nanf("");
    std::vector<int> found{1};
    grid.AllWithin({nan, 0, 0}, Infinity, found);
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(grid.Nearest({0, 0, Infinity}, Infinity), -1);
    EXPECT_EQ(grid.Nearest({0, 0, 0}, nan), -1);
    grid.InBox({{nan, 0, 0}, {1, 1, 1}}, found);
    EXPECT_TRUE(found.empty());
}

} // namespace
