#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace VoAlgo {

/// Squared distance of points whose coordinates are single precision.
inline double DistanceSq(const kdtree::Vector<3>& a, const kdtree::Vector<3>& b)
{
    const double x = double{a.x} - double{b.x}, y = double{a.y} - double{b.y}, z = double{a.z} - double{b.z};
    return x * x + y * y + z * z;
}

/// A kd-tree whose queries may prune by figures of their own for each node. Unlike TKdTree it keeps equal points.
class PointTree {
public:
    /// A part of space: positions [begin, end) in the order of the tree. The lower child follows its parent.
    struct Node {
        unsigned begin, end;
        unsigned upper; // upper child, 0 in a leaf
        kdtree::Vector<3> low, high;

        [[nodiscard]] bool IsLeaf() const { return upper == 0; }
        [[nodiscard]] double DistanceSq(const kdtree::Vector<3>& p) const
        {
            const auto outside = [](double c, double from, double to) { return std::max({from - c, c - to, 0.0}); };
            const double x = outside(p.x, low.x, high.x), y = outside(p.y, low.y, high.y),
                         z = outside(p.z, low.z, high.z);
            return x * x + y * y + z * z;
        }
    };

    explicit PointTree(const std::vector<kdtree::Vector<3>>& points);

    /// Index in the caller's list by position: neighbours in space are near each other in this order.
    [[nodiscard]] const std::vector<unsigned>& Order() const { return order_; }
    [[nodiscard]] const std::vector<Node>& Nodes() const { return nodes_; }

    /// Visits leaves, near ones first: `isOut(node, squared distance of its box)` skips a node and all below it;
    /// `visit(position)` is called for the points of a leaf.
    template <class IsOut, class Visit>
    void Search(const kdtree::Vector<3>& query, IsOut isOut, Visit visit) const
    {
        if (!nodes_.empty()) search(0, query, isOut, visit);
    }

    /// Positions of the k points nearest to that of `position`, without itself, by distance, then position.
    void Nearest(unsigned position, unsigned k, std::vector<std::pair<double, unsigned>>& nearest) const;

private:
    static constexpr unsigned LeafSize = 8;

    void build(unsigned begin, unsigned end, const std::vector<kdtree::Vector<3>>& points);
    template <class IsOut, class Visit>
    void search(unsigned index, const kdtree::Vector<3>& query, IsOut& isOut, Visit& visit) const
    {
        const Node& node = nodes_[index];
        if (isOut(index, node.DistanceSq(query))) return;
        if (node.IsLeaf()) {
            for (unsigned position = node.begin; position < node.end; ++position) visit(position);
            return;
        }
        const bool isUpperFirst = nodes_[node.upper].DistanceSq(query) < nodes_[index + 1].DistanceSq(query);
        search(isUpperFirst ? node.upper : index + 1, query, isOut, visit);
        search(isUpperFirst ? index + 1 : node.upper, query, isOut, visit);
    }

    std::vector<unsigned> order_;
    std::vector<kdtree::Vector<3>> points_; // in tree order
    std::vector<Node> nodes_;
};

} // namespace VoAlgo
