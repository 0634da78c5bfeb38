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
using Cells = std::set<Cell>; // of coarse cells, by their centres

/// The reported boxes; each must be a coarse cell and come once.
Cells Dirty(CDirtyMap& map)
{
    Cells cells;
    for (const auto& box : map.dirty()) {
        EXPECT_EQ(box.max - box.min, Vec3(5, 5, 5));
        const Vec3 centre = 0.5F * (box.min + box.max);
        EXPECT_TRUE(cells.emplace(centre.x, centre.y, centre.z).second);
    }
    return cells;
}

Cell CellOf(const Vec3& p, float edge)
{
    const auto centre = [edge](float x) { return std::rint(x / edge) * edge + 0.0F; };
    return {centre(p.x), centre(p.y), centre(p.z)};
}

// A coarse cell is dirty when its set of occupied fine cells differs from that of the generation before.
class PlainDirtyMap {
public:
    void Insert(const Vec3& p)
    {
        if (std::isfinite(p.x + p.y + p.z)) now_[CellOf(p, 5.0F)].insert(CellOf(p, 0.5F));
    }
    Cells Dirty()
    {
        Cells dirty;
        for (const auto* cells : {&now_, &before_})
            for (const auto& [coarse, fine] : *cells)
                if (now_[coarse] != before_[coarse]) dirty.insert(coarse);
        std::erase_if(now_, [](const auto& entry) { return entry.second.empty(); });
        before_ = std::exchange(now_, {});
        return dirty;
    }
    [[nodiscard]] std::size_t NumCells() const { return before_.size(); }

private:
    std::map<Cell, std::set<Cell>> now_, before_;
};

// Clouds that grow, shrink, move a little, come back and vanish, on a grid of 0.125 mm, so that many positions lie on
// the borders of cells, and some are not finite. Now and then the map is replaced by a copy and the copy by a moved
// one.
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
        const float noNumbers[] = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()};
        points.emplace_back(coordinate(), noNumbers[generation % 2], coordinate());
        if (generation % 4 == 0) // else unchanged but for the points above
            for (Vec3& p : points)
                if (engine() % 8 == 0) p.x += 0.25F;
        for (const bool isRepeated : {false, true}) {
            for (const Vec3& p : points) {
                map.insert(p);
                plain.Insert(p);
            }
            const Cells expected = plain.Dirty();
            ASSERT_EQ(Dirty(map), expected);
            ASSERT_EQ(map.cells(), plain.NumCells());
            ASSERT_TRUE(!isRepeated || expected.empty());
        }
        if (generation % 20 != 7) continue;
        CDirtyMap copy = map;
        copy.insert({100, 100, 100}); // the original does not see it
        (void)copy.dirty();
        copy = map;
        map = std::move(copy);
    }
    map.reset();
    EXPECT_EQ(map.cells(), 0U);
    for (int i = 0; i < 2; ++i) map.insert({3e38F, -3e38F, 0}); // the cell's index is no longer finite
    EXPECT_EQ(map.dirty().size(), 1U);
}

} // namespace
