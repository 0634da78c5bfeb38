#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/range.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace VoAlgo {

/// Uniform grid over points in space that finds those near a place. Points are kept sorted by cell (z, then y, then x
/// of the cell; in a cell in the caller's order) as coordinate planes, so that the 27 cells around a point are nine
/// contiguous runs. Only occupied cells take memory. Queries only read the grid; threads may share it.
///
/// The queries find the same points at the same distances, to the last bit, as kdtree::TKdTree, except that equal
/// points are all found. They are exact for any radius, fastest for one near that of the grid. A place that is not
/// finite has no neighbours.
class VOALGO_API CSearchGrid {
public:
    /// A range of positions in the sorted order.
    struct Run {
        std::uint32_t begin; ///< first position
        std::uint32_t end;   ///< behind the last one
    };
    /// Runs around a cell: its rows of three cells in x, for three y and three z.
    static constexpr std::size_t NumRuns = 9;

    /// A cell and where its points start in the sorted order.
    struct Cell {
        ///@{
        /// Absolute cell coordinates: floor(position ÷ edge), the edge a little above the radius.
        std::int32_t x, y, z;
        ///@}
        std::uint32_t begin; ///< first position; the cell ends where the next begins

        /// Whether both are the same cell of space; `begin` does not count.
        [[nodiscard]] bool IsSamePlace(const Cell& other) const { return x == other.x && y == other.y && z == other.z; }
    };

    /// Without points.
    CSearchGrid() = default;
    /// Points must be finite. radius > 0, in the points' unit. O(n).
    CSearchGrid(const std::vector<kdtree::Vector<3>>& points, float radius);
    /// With a radius chosen so that an occupied cell holds a few points on average, whether they fill space, lie on a
    /// surface or on a line; outliers do not spoil it. Throws std::invalid_argument for a point that is not finite.
    explicit CSearchGrid(const std::vector<kdtree::Vector<3>>& points);

    /// Adds points; their indices go on where those of the points so far end. The radius stays; a grid that never had
    /// points chooses it. Costs as much as a new grid over all points. Throws std::invalid_argument, and changes
    /// nothing, for a point that is not finite.
    void Add(const std::vector<kdtree::Vector<3>>& points);

    /// A found point: its index in the caller's list and its squared distance.
    using Neighbour = std::pair<int, float>;
    /// Index of the nearest point that is strictly nearer than the radius, the lowest of equally near ones; −1 for
    /// none. `distanceSq`, unless null, receives its squared distance.
    [[nodiscard]] int Nearest(const kdtree::Vector<3>& place, float radiusSq, float* distanceSq = nullptr) const;
    /// All points within the radius, border included, in sorted order; replaces the contents of `indices`.
    void AllWithin(const kdtree::Vector<3>& place, float radiusSq, std::vector<int>& indices) const;
    /// The at most k nearest points within the radius, border included, nearest first; of equally distant ones the
    /// lowest indices, ascending. Replaces the contents of `result`. Fastest up to k = 16.
    void NearestK(const kdtree::Vector<3>& place, unsigned k, float radiusSq, std::vector<Neighbour>& result) const;
    /// All points in the box, border included, in sorted order; replaces the contents of `indices`.
    void InBox(const kdtree::Range<3>& box, std::vector<int>& indices) const;

    /// Number of points.
    [[nodiscard]] std::size_t Size() const { return order_.size(); }
    /// The radius of the constructor, in the points' unit.
    [[nodiscard]] float Radius() const { return radius_; }
    /// Index in the caller's list of every sorted position.
    [[nodiscard]] const std::vector<std::uint32_t>& Order() const { return order_; }
    ///@{
    /// Coordinate planes in sorted order, readable up to eight entries past the end.
    [[nodiscard]] const float* X() const { return x_.data(); }
    [[nodiscard]] const float* Y() const { return y_.data(); }
    [[nodiscard]] const float* Z() const { return z_.data(); }
    ///@}
    /// The point at a sorted position; unchecked.
    [[nodiscard]] kdtree::Vector<3> Point(std::size_t position) const
    {
        return {x_[position], y_[position], z_[position]};
    }

    /// The occupied cells in sorted order; one more entry marks the end.
    [[nodiscard]] const std::vector<Cell>& Cells() const { return cells_; }
    /// Number of occupied cells.
    [[nodiscard]] std::size_t NumCells() const { return cells_.empty() ? 0 : cells_.size() - 1; }
    /// Index of the cell of a sorted position.
    [[nodiscard]] std::uint32_t CellOf(std::size_t position) const { return cellOf_[position]; }
    /// The nine runs, in ascending order, that hold every point within the radius of any point of the cell.
    [[nodiscard]] const Run* Neighbourhood(std::uint32_t cell) const { return &runs_[cell * NumRuns]; }
    /// The cell of any place, occupied or not; `begin` is 0.
    [[nodiscard]] Cell CellAt(const kdtree::Vector<3>& place) const;
    /// Writes the NumRuns runs that hold every point within the radius of any place in the cell. O(log cells).
    void Neighbourhood(const Cell& cell, Run* runs) const;
    /// Appends runs that hold every point of the box, and some around it.
    void AppendRuns(const kdtree::Range<3>& box, std::vector<Run>& runs) const;

private:
    void setRadius(float radius);
    void build(const std::vector<kdtree::Vector<3>>& points);
    void buildWithChosenRadius(const std::vector<kdtree::Vector<3>>& points);
    void findRows();
    [[nodiscard]] bool covers(const kdtree::Range<3>& box) const;
    [[nodiscard]] float distanceToAll(const kdtree::Vector<3>& place) const;
    [[nodiscard]] const Cell* firstOfRow(std::int32_t y, std::int32_t z, std::int32_t x) const;
    template <class Visit>
    void forEachRun(const kdtree::Range<3>& box, Visit visit) const;
    template <class Keeper>
    [[nodiscard]] Keeper nearest(const kdtree::Vector<3>& place, std::size_t k, const Keeper& empty) const;

    void sortByCell(const std::vector<kdtree::Vector<3>>& points);
    void findNeighbourhoods();

    float radius_ = 0.0F;
    double inverseEdge_ = 0.0;
    Cell lowest_{};
    Cell highest_{};
    kdtree::Range<3> bounds_{};
    std::vector<std::uint32_t> order_;
    std::vector<std::uint32_t> cellOf_;
    std::vector<float> x_, y_, z_;
    std::vector<Cell> cells_;
    std::vector<Run> runs_;
    std::vector<std::uint32_t> rows_; // where every row of cells starts, occupied or not; empty for sparse cells
};

} // namespace VoAlgo
