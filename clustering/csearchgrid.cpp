#include "VoAlgorithms/clustering/csearchgrid.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <tuple>

namespace VoAlgo {
namespace {

using Cell = CSearchGrid::Cell;
using Vec3 = kdtree::Vector<3>;

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

} // namespace

CSearchGrid::CSearchGrid(const std::vector<Vec3>& points, float radius)
    : radius_(radius), inverseEdge_(1.0 / (static_cast<double>(radius) * EdgeSlack))
{
    if (points.empty()) return;
    sortByCell(points);
    findNeighbourhoods();
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
    const Cell top = CellAt(highest);
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
