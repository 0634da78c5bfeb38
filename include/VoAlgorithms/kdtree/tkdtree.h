#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace kdtree {

/// kd-tree over D-dimensional points with at most B points in a leaf. It keeps its own copy of the points; queries
/// report the points' indices in the caller's list. The build drops points that are not finite and merges exact
/// duplicates (the first keeps its index). It catches its own errors: without points it leaves an empty tree, with
/// points that cannot be split a tree that finds nothing. Queries are exact, only read the tree, and may run on several
/// threads at once. Radii and distances are squared throughout, in the unit of the points. The library contains
/// TKdTree<3, 48> and TKdTree<33, 6>.
template <unsigned D, unsigned B>
class VOALGO_API TKdTree {
public:
    /// No point is left after dropping the non-finite ones.
    struct build_error_empty : std::runtime_error {
        build_error_empty() : std::runtime_error("kd-tree: no points") {}
    };
    /// A leaf would hold a point that is not finite. The build drops such points first, so it never throws this error.
    struct build_error_irregular : std::runtime_error {
        build_error_irregular() : std::runtime_error("kd-tree: point is not finite") {}
    };
    /// More than B points in a box without extent.
    struct build_error_duplicates : std::runtime_error {
        build_error_duplicates() : std::runtime_error("kd-tree: too many duplicates") {}
    };

    /// A found point: its index in the caller's list and its squared distance.
    using Neighbour = std::pair<int, float>;

    /// Empty tree.
    TKdTree() = default;
    /// Over n points, D floats each, `stride` floats apart (borrowed). O(n log n).
    TKdTree(const float* points, std::size_t n, std::size_t stride);
    /// Over n points, each an object that begins with its D floats, such as Vector<D> (borrowed). O(n log n).
    template <class Point>
    TKdTree(const Point* points, std::size_t n)
        : TKdTree(reinterpret_cast<const float*>(points), n, sizeof(Point) / sizeof(float))
    {
        static_assert(std::is_standard_layout_v<Point> && sizeof(Point) >= D * sizeof(float) &&
                      sizeof(Point) % sizeof(float) == 0);
    }

    /// Number of points held.
    [[nodiscard]] std::uint32_t Size() const { return count_; }
    /// Whether it holds no point, as after default construction.
    [[nodiscard]] bool Empty() const { return count_ == 0; }
    /// Bytes held outside the object.
    [[nodiscard]] std::size_t GetMemUsage() const;

    /// Index of the nearest point that is strictly nearer than the radius, −1 for none. `distanceSq`, unless null,
    /// receives its squared distance.
    [[nodiscard]] int Nearest(const float* query, float radiusSq, float* distanceSq = nullptr) const;
    /// All points within the radius, border included, in tree order; replaces the contents of `indices`.
    void AllWithin(const float* query, float radiusSq, std::vector<int>& indices) const;
    /// The at most k nearest points within the radius, border included, nearest first; of equally distant ones the
    /// lowest indices, ascending. Replaces the contents of `result`. Fastest up to k = 16.
    void NearestK(const float* query, unsigned k, float radiusSq, std::vector<Neighbour>& result) const;

private:
    struct Node {
        std::uint32_t begin = 0; // points of the node, in tree order
        std::uint32_t end = 0;
        std::uint32_t upper = 0; // upper child, 0 in a leaf; the lower child follows its parent
        std::uint32_t splitDimension = 0;
        float split = 0.0F; // points below it are in the lower child
    };

    class Builder;
    template <class Visitor>
    class Search;

    std::uint32_t count_ = 0;
    std::vector<float> coordinates_;     // in tree order: three planes (D = 3), else rows padded to whole registers
    std::vector<std::uint32_t> indices_; // in the caller's list
    std::vector<Node> nodes_;            // the root first; empty without a root
    std::vector<float> boxes_;           // lowest and highest coordinates of every node
};

extern template class TKdTree<3, 48>;
extern template class TKdTree<33, 6>;

} // namespace kdtree
