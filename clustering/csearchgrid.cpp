#include "VoAlgorithms/clustering/csearchgrid.h"

#include "kdtree/nearestk.h"
#include "platform/simd.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>

namespace VoAlgo {
namespace {

using Cell = CSearchGrid::Cell;
using Vec3 = kdtree::Vector<3>;
using simd::F8;
using simd::Lanes;

constexpr std::size_t Padding = 8;
// Cells are a little wider than the radius: rounding in the division then never puts two points within the radius more
// than one cell apart.
constexpr double EdgeSlack = 1.0001;
// Cells farther out than this are lumped together, as are those more than LargestOffset cells above the lowest one.
// Both keep neighbours neighbours and only cost time.
constexpr double LargestCell = 1 << 30;
constexpr std::int32_t LargestOffset = (1 << 21) - 1;

std::int32_t CellCoordinate(float position, double inverseEdge)
{
    const double cell = std::floor(static_cast<double>(position) * inverseEdge);
    return static_cast<std::int32_t>(std::clamp(cell, -LargestCell, LargestCell));
}

bool IsBefore(const Cell& a, const Cell& b)
{
    return std::tie(a.z, a.y, a.x) < std::tie(b.z, b.y, b.x);
}

struct Entry {
    std::uint64_t key;
    std::uint32_t index;
};

/// Stable least-significant-digit radix sort over the given number of key bits.
void RadixSort(std::vector<Entry>& entries, unsigned bits)
{
    constexpr unsigned DigitBits = 11;
    std::vector<Entry> scratch(entries.size());
    for (unsigned shift = 0; shift < bits; shift += DigitBits) {
        std::array<std::uint32_t, (1U << DigitBits) + 1> start{};
        const auto digit = [shift](const Entry& e) { return e.key >> shift & ((1U << DigitBits) - 1); };
        for (const Entry& e : entries) ++start[digit(e) + 1];
        for (std::size_t d = 1; d < start.size(); ++d) start[d] += start[d - 1];
        for (const Entry& e : entries) scratch[start[digit(e)]++] = e;
        entries.swap(scratch);
    }
}

/// The middle nine tenths of a coordinate, so that outliers do not count.
float Spread(const std::vector<Vec3>& points, std::size_t axis)
{
    constexpr std::size_t Most = 1000;
    std::vector<float> sample;
    const std::size_t step = points.size() / Most + 1;
    for (std::size_t i = 0; i < points.size(); i += step) sample.push_back(points[i][axis]);
    const auto at = [&](std::size_t rank) {
        std::nth_element(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(rank), sample.end());
        return sample[rank];
    };
    return 0.5F * at(sample.size() - 1 - sample.size() / 20) - 0.5F * at(sample.size() / 20); // halves: no overflow
}

void RequireFinite(const std::vector<Vec3>& points)
{
    for (std::size_t i = 0; i < points.size(); ++i)
        if (!points[i].IsValid())
            throw std::invalid_argument("CSearchGrid: points[" + std::to_string(i) + "] is not finite");
}

/// A box that holds all places whose distance from `place`, as it is computed, is at most the radius.
kdtree::Range<3> BoxAround(const Vec3& place, float radiusSq)
{
    constexpr float Slack = 1.000001F;    // beyond what the squares lose by rounding,
    constexpr float SmallSquare = 1e-22F; // or by underflow
    const float r = std::sqrt(radiusSq) * Slack + SmallSquare;
    return {place - Vec3(r, r, r), place + Vec3(r, r, r)};
}

/// Calls visit(position, distanceSq) for the points of a run that lie within visit.bound of the place, border included.
template <class Visitor>
void ScanRun(const CSearchGrid& grid, const Vec3& place, CSearchGrid::Run run, Visitor& visitor)
{
    const F8 px = F8::Set(place.x);
    const F8 py = F8::Set(place.y);
    const F8 pz = F8::Set(place.z);
    for (std::uint32_t i = run.begin; i < run.end; i += Lanes) {
        const F8 dx = F8::Load(grid.X() + i) - px;
        const F8 dy = F8::Load(grid.Y() + i) - py;
        const F8 dz = F8::Load(grid.Z() + i) - pz;
        const F8 distanceSq = (dx * dx + dy * dy) + dz * dz;
        unsigned mask = F8::MaskLessEqual(distanceSq, F8::Set(visitor.bound));
        if (run.end - i < Lanes) mask &= (1U << (run.end - i)) - 1U;
        if (mask == 0) continue;
        float lanes[Lanes];
        distanceSq.Store(lanes);
        for (; mask != 0; mask &= mask - 1) {
            const auto lane = static_cast<std::uint32_t>(std::countr_zero(mask));
            visitor.Add(grid.Order()[i + lane], lanes[lane]);
        }
    }
}

struct Listed {
    float bound;
    std::vector<int>& indices;

    void Add(std::uint32_t index, float /*distanceSq*/) { indices.push_back(static_cast<int>(index)); }
};

} // namespace

CSearchGrid::CSearchGrid(const std::vector<Vec3>& points, float radius)
{
    setRadius(radius);
    build(points);
}

CSearchGrid::CSearchGrid(const std::vector<Vec3>& points)
{
    RequireFinite(points);
    buildWithChosenRadius(points);
}

void CSearchGrid::setRadius(float radius)
{
    radius_ = radius;
    inverseEdge_ = 1.0 / (static_cast<double>(radius) * EdgeSlack);
}

void CSearchGrid::build(const std::vector<Vec3>& points)
{
    if (points.empty()) return;
    sortByCell(points);
    findNeighbourhoods();
    findRows();
}

/// Starts with cells that n points filling space would occupy singly. Points on a surface or a line crowd in fewer:
/// then the cells shrink, by less than their number of points tells in case they fill space in clumps.
void CSearchGrid::buildWithChosenRadius(const std::vector<Vec3>& points)
{
    constexpr float Few = 8.0F;
    constexpr int MostTries = 16;
    constexpr float Smallest = 1e-30F;
    if (points.empty()) return;
    const float spread = 2.0F * std::max({Spread(points, 0), Spread(points, 1), Spread(points, 2)});
    const float n = static_cast<float>(points.size());
    float radius = std::isfinite(spread) && spread > Smallest ? spread / std::cbrt(n / Few) : 1.0F;
    for (int i = 0; i < MostTries; ++i) {
        setRadius(radius);
        sortByCell(points);
        const float crowd = n / static_cast<float>(NumCells());
        if (crowd <= Few || !(radius > Smallest)) break;
        radius /= std::clamp(std::sqrt(crowd / Few), 1.5F, 4.0F);
    }
    findNeighbourhoods();
    findRows();
}

void CSearchGrid::Add(const std::vector<Vec3>& points)
{
    RequireFinite(points);
    std::vector<Vec3> all(Size());
    for (std::size_t i = 0; i < Size(); ++i) all[order_[i]] = Point(i);
    all.insert(all.end(), points.begin(), points.end());
    if (radius_ > 0.0F)
        build(all);
    else
        buildWithChosenRadius(all);
}

/// A table of all rows between the lowest and the highest cell, where that takes less memory than the cells.
void CSearchGrid::findRows()
{
    rows_.clear();
    const auto numY = static_cast<std::size_t>(highest_.y - lowest_.y) + 1;
    const auto numZ = static_cast<std::size_t>(highest_.z - lowest_.z) + 1;
    if (numY > 2 * NumCells() / numZ) return;
    rows_.assign(numY * numZ + 1, static_cast<std::uint32_t>(NumCells()));
    std::size_t next = 0;
    for (std::uint32_t c = 0; c < NumCells(); ++c) {
        const std::size_t row = static_cast<std::size_t>(cells_[c].z - lowest_.z) * numY +
                                static_cast<std::size_t>(cells_[c].y - lowest_.y);
        while (next <= row) rows_[next++] = c;
    }
}

/// The first cell of a row, between the lowest and the highest cell, that is not before x.
const Cell* CSearchGrid::firstOfRow(std::int32_t y, std::int32_t z, std::int32_t x) const
{
    const Cell* const cells = cells_.data();
    if (rows_.empty()) return std::lower_bound(cells, cells + NumCells(), Cell{x, y, z, 0}, IsBefore);
    const std::size_t row =
        static_cast<std::size_t>(z - lowest_.z) * (static_cast<std::size_t>(highest_.y - lowest_.y) + 1) +
        static_cast<std::size_t>(y - lowest_.y);
    return std::partition_point(cells + rows_[row], cells + rows_[row + 1], [x](const Cell& c) { return c.x < x; });
}

/// Calls visit(run) for runs, in ascending order, that hold every point of the box and some around it.
template <class Visit>
void CSearchGrid::forEachRun(const kdtree::Range<3>& box, Visit visit) const
{
    if (cells_.empty()) return;
    Cell low = CellAt(box.min);
    Cell high = CellAt(box.max);
    low = {std::max(low.x, lowest_.x), std::max(low.y, lowest_.y), std::max(low.z, lowest_.z), 0};
    high = {std::min(high.x, highest_.x), std::min(high.y, highest_.y), std::min(high.z, highest_.z), 0};
    if (low.x > high.x || low.y > high.y || low.z > high.z) return;
    const Cell* const end = cells_.data() + NumCells();
    const auto visitRow = [&](std::int32_t y, std::int32_t z) {
        const Cell* const first = firstOfRow(y, z, low.x);
        const Cell* last = first;
        while (last != end && last->z == z && last->y == y && last->x <= high.x) ++last;
        if (first != last) visit(Run{first->begin, last->begin});
        return last;
    };
    const auto numRows =
        (static_cast<std::size_t>(high.y - low.y) + 1) * (static_cast<std::size_t>(high.z - low.z) + 1);
    if (numRows <= NumCells()) {
        for (std::int32_t z = low.z; z <= high.z; ++z)
            for (std::int32_t y = low.y; y <= high.y; ++y) visitRow(y, z);
        return;
    }
    for (const Cell* c = firstOfRow(low.y, low.z, low.x);
         c != end && c->z <= high.z;) { // from one occupied row to the next
        const std::int32_t y = c->y;
        const std::int32_t z = c->z;
        if (y >= low.y && y <= high.y) c = visitRow(y, z);
        while (c != end && c->z == z && c->y == y) ++c;
    }
}

bool CSearchGrid::covers(const kdtree::Range<3>& box) const
{
    return Contains(box, bounds_.min) && Contains(box, bounds_.max);
}

/// Distance from a place to the box of all points, 0 inside; approximate.
float CSearchGrid::distanceToAll(const Vec3& place) const
{
    Vec3 gap;
    for (std::size_t k = 0; k < 3; ++k) gap[k] = std::max({bounds_.min[k] - place[k], place[k] - bounds_.max[k], 0.0F});
    return gap.Norm();
}

int CSearchGrid::Nearest(const Vec3& place, float radiusSq, float* distanceSq) const
{
    if (!(radiusSq > 0.0F) || cells_.empty() || !place.IsValid()) return -1;
    const float below = std::nextafter(radiusSq, 0.0F); // strictly nearer
    const auto found = nearest(place, 1, kdtree::detail::FewNearest<1>(1, below));
    if (!found.IsFull()) return -1;
    if (distanceSq != nullptr) *distanceSq = kdtree::detail::DistanceSqOf(found.Farthest());
    return static_cast<int>(kdtree::detail::IndexOf(found.Farthest()));
}

void CSearchGrid::NearestK(const Vec3& place, unsigned k, float radiusSq, std::vector<Neighbour>& result) const
{
    result.clear();
    if (cells_.empty() || !place.IsValid()) return;
    kdtree::detail::FindNearestK(k, radiusSq, result, [&](const auto& empty) { return nearest(place, k, empty); });
}

/// Searches wider and wider around the place: k points within the radius of a search are the k nearest of all.
template <class Keeper>
Keeper CSearchGrid::nearest(const Vec3& place, std::size_t k, const Keeper& empty) const
{
    const float first = radius_ * std::max(0.5F, 0.25F * std::sqrt(static_cast<float>(k)));
    for (float radius = first + distanceToAll(place);; radius *= 2.0F) {
        Keeper keeper = empty;
        const float withinSq = radius * radius;
        const bool isLast = !(withinSq < empty.bound) || covers(BoxAround(place, withinSq));
        if (!isLast) keeper.Limit(withinSq);
        forEachRun(BoxAround(place, keeper.bound), [&](Run run) { ScanRun(*this, place, run, keeper); });
        if (isLast || keeper.IsFull()) return keeper;
    }
}

void CSearchGrid::AllWithin(const Vec3& place, float radiusSq, std::vector<int>& indices) const
{
    indices.clear();
    if (!(radiusSq >= 0.0F) || !place.IsValid()) return;
    Listed listed{radiusSq, indices};
    forEachRun(BoxAround(place, radiusSq), [&](Run run) { ScanRun(*this, place, run, listed); });
}

void CSearchGrid::InBox(const kdtree::Range<3>& box, std::vector<int>& indices) const
{
    indices.clear();
    for (std::size_t k = 0; k < 3; ++k)
        if (!(box.min[k] <= box.max[k])) return; // NaN, too
    forEachRun(box, [&](Run run) {
        for (std::uint32_t i = run.begin; i < run.end; ++i)
            if (Contains(box, Point(i))) indices.push_back(static_cast<int>(order_[i]));
    });
}

Cell CSearchGrid::CellAt(const Vec3& place) const
{
    return {std::min(CellCoordinate(place.x, inverseEdge_), lowest_.x + LargestOffset),
            std::min(CellCoordinate(place.y, inverseEdge_), lowest_.y + LargestOffset),
            std::min(CellCoordinate(place.z, inverseEdge_), lowest_.z + LargestOffset), 0};
}

void CSearchGrid::sortByCell(const std::vector<Vec3>& points)
{
    Vec3 lowest = points.front();
    Vec3 highest = points.front();
    for (const Vec3& p : points) {
        lowest = {std::min(lowest.x, p.x), std::min(lowest.y, p.y), std::min(lowest.z, p.z)};
        highest = {std::max(highest.x, p.x), std::max(highest.y, p.y), std::max(highest.z, p.z)};
    }
    lowest_ = {CellCoordinate(lowest.x, inverseEdge_), CellCoordinate(lowest.y, inverseEdge_),
               CellCoordinate(lowest.z, inverseEdge_), 0};
    const Cell top = highest_ = CellAt(highest);
    bounds_ = {lowest, highest};
    cells_.clear();
    const auto bits = [](std::int32_t high, std::int32_t low) {
        return static_cast<unsigned>(std::bit_width(static_cast<std::uint32_t>(high - low)));
    };
    const unsigned bitsX = bits(top.x, lowest_.x);
    const unsigned bitsY = bits(top.y, lowest_.y);

    const std::size_t n = points.size();
    std::vector<Entry> entries(n);
    for (std::size_t i = 0; i < n; ++i) {
        const Cell c = CellAt(points[i]);
        const auto offset = [](std::int32_t cell, std::int32_t low) { return static_cast<std::uint64_t>(cell - low); };
        entries[i] = {(offset(c.z, lowest_.z) << bitsY | offset(c.y, lowest_.y)) << bitsX | offset(c.x, lowest_.x),
                      static_cast<std::uint32_t>(i)};
    }
    RadixSort(entries, bitsX + bitsY + bits(top.z, lowest_.z));

    order_.resize(n);
    cellOf_.resize(n);
    for (std::vector<float>* plane : {&x_, &y_, &z_}) plane->assign(n + Padding, 0.0F);
    for (std::size_t i = 0; i < n; ++i) {
        const Vec3& p = points[entries[i].index];
        order_[i] = entries[i].index;
        x_[i] = p.x;
        y_[i] = p.y;
        z_[i] = p.z;
        if (i == 0 || entries[i].key != entries[i - 1].key) {
            cells_.push_back(CellAt(p));
            cells_.back().begin = static_cast<std::uint32_t>(i);
        }
        cellOf_[i] = static_cast<std::uint32_t>(cells_.size() - 1);
    }
    cells_.push_back({0, 0, 0, static_cast<std::uint32_t>(n)});
}

/// The cells of a row (z + dz, y + dy, x − 1 to x + 1) are neighbours in sorted order, and the row's place moves
/// forward as its centre does: one pair of pointers per row finds all runs in one sweep.
void CSearchGrid::findNeighbourhoods()
{
    const std::size_t cells = NumCells();
    runs_.resize(cells * NumRuns);
    std::size_t first[NumRuns] = {};
    std::size_t last[NumRuns] = {};
    for (std::size_t c = 0; c < cells; ++c) {
        for (std::size_t row = 0; row < NumRuns; ++row) {
            const std::int32_t z = cells_[c].z + static_cast<std::int32_t>(row / 3) - 1;
            const std::int32_t y = cells_[c].y + static_cast<std::int32_t>(row % 3) - 1;
            const Cell low{cells_[c].x - 1, y, z, 0};
            const Cell high{cells_[c].x + 1, y, z, 0};
            while (first[row] < cells && IsBefore(cells_[first[row]], low)) ++first[row];
            last[row] = std::max(last[row], first[row]);
            while (last[row] < cells && !IsBefore(high, cells_[last[row]])) ++last[row];
            runs_[c * NumRuns + row] = {cells_[first[row]].begin, cells_[last[row]].begin};
        }
    }
}

void CSearchGrid::Neighbourhood(const Cell& cell, Run* runs) const
{
    const auto end = cells_.begin() + static_cast<std::ptrdiff_t>(NumCells());
    for (std::size_t row = 0; row < NumRuns; ++row) {
        const std::int32_t z = cell.z + static_cast<std::int32_t>(row / 3) - 1;
        const std::int32_t y = cell.y + static_cast<std::int32_t>(row % 3) - 1;
        const auto first = std::lower_bound(cells_.begin(), end, Cell{cell.x - 1, y, z, 0}, IsBefore);
        const auto last = std::upper_bound(first, end, Cell{cell.x + 1, y, z, 0}, IsBefore);
        runs[row] = cells_.empty() ? Run{0, 0} : Run{first->begin, last->begin};
    }
}

void CSearchGrid::AppendRuns(const kdtree::Range<3>& box, std::vector<Run>& runs) const
{
    if (cells_.empty()) return;
    const Cell low = CellAt(box.min);
    const Cell high = CellAt(box.max);
    const auto end = cells_.begin() + static_cast<std::ptrdiff_t>(NumCells());
    for (auto cell = std::lower_bound(cells_.begin(), end, low, IsBefore); cell != end && !IsBefore(high, *cell);) {
        const Cell rowEnd{high.x, cell->y, cell->z, 0};
        const auto first = std::lower_bound(cell, end, Cell{low.x, cell->y, cell->z, 0}, IsBefore);
        const auto last = std::upper_bound(first, end, rowEnd, IsBefore);
        if (cell->y >= low.y && cell->y <= high.y && first != last) runs.push_back({first->begin, last->begin});
        cell =
            std::upper_bound(last, end, Cell{std::numeric_limits<std::int32_t>::max(), cell->y, cell->z, 0}, IsBefore);
    }
}

} // namespace VoAlgo
