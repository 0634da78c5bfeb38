#include "VoAlgorithms/prereg/cdirtymap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <vector>

namespace {

using prereg::CDirtyMap;
using Vec3 = kdtree::Vector<3>;
using Cell = std::tuple<float, float, float>;
using Boxes = std::set<std::tuple<float, float, float, float, float, float>>;

Boxes BoxesOf(const std::vector<kdtree::Range<3>>& ranges)
{
    Boxes boxes;
    for (const auto& r : ranges)
        EXPECT_TRUE(boxes.emplace(r.min.x, r.min.y, r.min.z, r.max.x, r.max.y, r.max.z).second);
    return boxes;
}

Boxes BoxOf(float x, float y, float z)
{
    return {{x - 2.5F, y - 2.5F, z - 2.5F, x + 2.5F, y + 2.5F, z + 2.5F}};
}

Cell CellOf(const Vec3& p, float edge)
{
    const auto centre = [edge](float x) { return std::rint(x / edge) * edge + 0.0F; };
    return {centre(p.x), centre(p.y), centre(p.z)};
}

// A coarse cell is dirty when its set of occupied fine cells is not that of the generation before.
class PlainDirtyMap {
public:
    void insert(const Vec3& p) { now_[CellOf(p, 5.0F)].insert(CellOf(p, 0.5F)); }
    Boxes dirty()
    {
        Boxes boxes;
        for (const auto* cells : {&now_, &before_})
            for (const auto& [coarse, fine] : *cells)
                if (now_[coarse] != before_[coarse])
                    boxes.merge(BoxOf(std::get<0>(coarse), std::get<1>(coarse), std::get<2>(coarse)));
        std::erase_if(now_, [](const auto& entry) { return entry.second.empty(); });
        before_ = std::exchange(now_, {});
        return boxes;
    }
    [[nodiscard]] std::size_t cells() const { return before_.size(); }

private:
    std::map<Cell, std::set<Cell>> now_, before_;
};

// Clouds that grow, shrink, move a little, come back and vanish. On a grid of 0.125 mm, so that many positions lie on
// the borders of cells.
TEST(CDirtyMap, ReportsTheCellsWhoseOccupationChanged)
{
    std::mt19937 engine(1);
    std::vector<Vec3> points;
    CDirtyMap map;
    PlainDirtyMap plain;
    for (int generation = 0; generation < 300; ++generation) {
        SCOPED_TRACE(generation);
        if (generation % 50 == 49) points.clear();
        std::erase_if(points, [&](const Vec3&) { return engine() % 10 == 0; });
        const auto coordinate = [&] { return 0.125F * (static_cast<float>(engine() % 241) - 120.0F); };
        for (auto count = engine() % 30; count > 0; --count)
            points.emplace_back(coordinate(), coordinate(), coordinate());
        if (generation % 4 == 0) // else unchanged but for the points above
            for (Vec3& p : points)
                if (engine() % 8 == 0) p.x += 0.25F;
        for (const Vec3& p : points) {
            map.insert(p);
            plain.insert(p);
        }
        ASSERT_EQ(BoxesOf(map.dirty()), plain.dirty());
        ASSERT_EQ(map.cells(), plain.cells());

        for (const Vec3& p : points) map.insert(p);
        for (const Vec3& p : points) plain.insert(p);
        ASSERT_TRUE(map.dirty().empty());
        plain.dirty();
    }
}

TEST(CDirtyMap, BordersRoundHalfToEven)
{
    CDirtyMap map;
    map.insert({2.5F, 7.5F, -2.5F}); // 0.5, 1.5 and −0.5 coarse cells
    EXPECT_EQ(BoxesOf(map.dirty()), BoxOf(0.0F, 10.0F, 0.0F));
    map.insert({2.25F, 7.75F, -2.25F}); // 4.5 → 4, 15.5 → 16, −4.5 → −4 fine cells: others than 5, 15 and −5
    EXPECT_EQ(BoxesOf(map.dirty()), BoxOf(0.0F, 10.0F, 0.0F));
    map.insert({2.0F, 8.0F, -2.0F}); // the centre of the same fine cell
    EXPECT_TRUE(map.dirty().empty());
}

TEST(CDirtyMap, PlusAndMinusZeroAreOneCell)
{
    CDirtyMap map;
    map.insert({0.1F, 0.1F, 0.1F});
    map.insert({-0.1F, -0.1F, -0.1F});
    EXPECT_EQ(map.cells(), 1U);
    EXPECT_EQ(map.dirty().size(), 1U);
    map.insert({-0.1F, 0.1F, -0.1F});
    EXPECT_TRUE(map.dirty().empty());
}

TEST(CDirtyMap, ACellThatIsGoneIsReportedOnceAndRemoved)
{
    CDirtyMap map;
    map.insert({1, 1, 1});
    map.insert({11, 1, 1});
    EXPECT_EQ(map.dirty().size(), 2U);
    map.insert({1, 1, 1});
    EXPECT_EQ(BoxesOf(map.dirty()), BoxOf(10.0F, 0.0F, 0.0F));
    EXPECT_EQ(map.cells(), 1U);
    EXPECT_EQ(BoxesOf(map.dirty()), BoxOf(0.0F, 0.0F, 0.0F));
    EXPECT_EQ(map.cells(), 0U);
    EXPECT_TRUE(map.dirty().empty());
}

// Copies and moved maps go on where the original stood; a reset map starts over.
TEST(CDirtyMap, IsAValue)
{
    CDirtyMap map;
    map.insert({1, 1, 1});
    EXPECT_EQ(map.dirty().size(), 1U);
    CDirtyMap copy = map;
    copy.insert({1, 1, 1});
    EXPECT_TRUE(copy.dirty().empty());
    EXPECT_EQ(map.dirty().size(), 1U); // nothing came
    CDirtyMap moved = std::move(copy);
    moved.insert({1, 1, 1});
    EXPECT_TRUE(moved.dirty().empty());
    moved.reset();
    EXPECT_EQ(moved.cells(), 0U);
    moved.insert({1, 1, 1});
    EXPECT_EQ(moved.dirty().size(), 1U);
}

TEST(CDirtyMap, PositionsThatAreNotFiniteLieInNoCell)
{
    CDirtyMap map;
    map.insert({std::numeric_limits<float>::quiet_NaN(), 0, 0});
    map.insert({0, std::numeric_limits<float>::infinity(), 0});
    EXPECT_EQ(map.cells(), 0U);
    map.insert({3e38F, -3e38F, 0}); // the cell's index is no longer finite
    map.insert({3e38F, -3e38F, 0});
    EXPECT_EQ(map.dirty().size(), 1U);
}

} // namespace
