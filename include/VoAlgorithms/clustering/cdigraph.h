#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace VoAlgo {

/// A directed graph with weighted edges: shortest paths from one node, strongly connected components, a minimum
/// spanning tree, a topological order, a picture. Made for many small graphs, one after another: Reset keeps all
/// storage, so that a graph that is no larger than an earlier one allocates nothing in the search for shortest paths;
/// and for single graphs of millions of nodes. One thread at a time. Deterministic: ties go to the lower index.
class VOALGO_API CDiGraph {
public:
    /// No node.
    static constexpr unsigned None = 0xFFFFFFFFU;
    /// The length of a path that does not exist.
    static constexpr float Infinity = std::numeric_limits<float>::infinity();

    /// An edge from → to.
    struct Edge {
        unsigned from; ///< source
        unsigned to;   ///< target
        float weight;  ///< never NaN
    };

    /// What WriteDot shows beyond numbers and weights. A list is empty or has an entry for every node or edge.
    struct DotStyle {
        std::vector<std::string> nodeNames;   ///< UTF-8, shown instead of the nodes' numbers
        std::vector<std::string> edgeLabels;  ///< UTF-8, shown instead of the edges' weights
        std::vector<unsigned> component;      ///< nodes of one number stand in one frame; no frame around a single node
        std::vector<std::size_t> highlighted; ///< edges by number, such as a path or a tree: drawn bold, their ends too
    };

    /// Starts a graph of `nodes` nodes (0 … nodes − 1) without edges.
    void Reset(std::size_t nodes);
    /// Adds the edge from → to; edges are numbered in the order in which they are added, from 0. Loops and several
    /// edges between two nodes are edges like any other. Edges that come grouped by ascending source are searched where
    /// they lie; when they come in any other order, the first call after new edges brings them into that one, O(nodes +
    /// edges). Throws std::out_of_range for an unknown node, std::invalid_argument for a weight that is NaN, and
    /// std::length_error beyond 2³² − 1 edges.
    void AddEdge(unsigned from, unsigned to, float weight);

    ///@{
    /// Nodes of the last Reset, and edges added since.
    [[nodiscard]] std::size_t NumNodes() const { return nodes_.size(); }
    [[nodiscard]] std::size_t NumEdges() const { return edges_.size(); }
    ///@}
    /// The edge of this number, in O(log nodes). Throws std::out_of_range when there is none.
    [[nodiscard]] Edge GetEdge(std::size_t number) const;

    /// Finds the shortest paths from `source` (Dijkstra); O((nodes + edges) · log edges). With a `target` the search
    /// stops as soon as its distance is known: then only the nodes on its path and those nearer than it have final
    /// values. Paths longer than `bound` are not followed; the nodes that only they reach count as unreachable. Of
    /// equally distant nodes the one with the lower index is settled first, and of equally short paths the first found
    /// stays. An edge of infinite weight is never taken. Throws std::out_of_range for an unknown source,
    /// std::invalid_argument when any edge has a negative weight.
    void ComputeShortestPaths(unsigned source, unsigned target = None, float bound = Infinity);

    /// Length of the shortest path from the last source, the sum of its weights in the path's order; Infinity for an
    /// unreachable node and before the first search. Unchecked.
    [[nodiscard]] float GetDistance(unsigned node) const { return nodes_[node].distance; }
    /// The node before this one on that path; None for the source, an unreachable node and before the first search.
    /// Unchecked.
    [[nodiscard]] unsigned GetPredecessor(unsigned node) const { return nodes_[node].predecessor; }
    /// Lists that path's edges by number, from the source to the node; of equal edges between two nodes the one with
    /// the lowest number. False, and no edges, for an unreachable node. O(edges that leave the nodes of the path).
    /// Throws std::out_of_range for an unknown node.
    bool GetPath(unsigned node, std::vector<std::size_t>& edges);

    /// Gives every node the number of its strongly connected component: two nodes share it when each can be reached
    /// from the other. Returns the number of components. They are numbered in topological order: an edge never leads to
    /// a component with a lower number. Weights do not matter. O(nodes + edges), without recursion. Source: D. J.
    /// Pearce, Information Processing Letters 116 (2016) 47–52, after R. Tarjan, SIAM J. Comput. 1 (1972) 146–160.
    unsigned ComputeStronglyConnectedComponents(std::vector<unsigned>& component);

    /// Finds a minimum spanning tree of the graph with its edges taken as undirected, or one of every part when it is
    /// not connected. Lists its edges by number, ascending, and returns their total weight. Weights may be negative; of
    /// equal ones the edge with the lower number is preferred; an edge of infinite weight is never taken.
    /// O(edges · log edges) at most. Throws std::length_error for 2³¹ nodes and more.
    /// Source: J. B. Kruskal, Proc. Amer. Math. Soc. 7 (1956) 48–50.
    double ComputeMinimumSpanningTree(std::vector<std::size_t>& edges) const;

    /// Orders the nodes so that every edge leads forwards; of the nodes that may come next, the lowest is next. False
    /// when there is no such order: then `nodes` is a cycle, each node with an edge to the next and the last with one
    /// to the first, beginning with its lowest. Weights do not matter. O(edges + nodes · log nodes).
    bool ComputeTopologicalOrder(std::vector<unsigned>& nodes);

    /// Writes the graph in the language of Graphviz's dot. Any text is shown as it is; control characters become
    /// spaces, except line breaks. Throws std::invalid_argument when a list of the style has another length than the
    /// graph, std::out_of_range for an unknown edge.
    void WriteDot(std::ostream& out, const DotStyle& style = {}) const;

private:
    struct Node {
        float distance = Infinity;
        unsigned predecessor = None;
    };
    struct Arc {
        unsigned to;
        float weight;
    };

    void startSource(unsigned from);
    [[nodiscard]] bool areEdgesGrouped() const { return sources_.empty(); }
    [[nodiscard]] std::vector<unsigned> listSources() const;
    void groupEdges();
    ///@{
    /// Valid after groupEdges; positions are those in groupedEdges.
    [[nodiscard]] const Arc* groupedEdges() const { return areEdgesGrouped() ? edges_.data() : grouped_.data(); }
    [[nodiscard]] std::uint32_t beginOfEdges(unsigned node) const
    {
        return node < firstEdge_.size() ? firstEdge_[node] : static_cast<std::uint32_t>(edges_.size());
    }
    [[nodiscard]] std::uint32_t endOfEdges(unsigned node) const { return beginOfEdges(node + 1); }
    [[nodiscard]] std::span<const Arc> edgesOf(unsigned node) const
    {
        return {groupedEdges() + beginOfEdges(node), groupedEdges() + endOfEdges(node)};
    }
    ///@}
    void relaxEdges(unsigned node, float bound);
    [[nodiscard]] std::vector<unsigned> findCycle(const std::vector<unsigned>& waitsFor) const;

    std::vector<Arc> edges_; // by number
    // Where the edges of each node start among the grouped ones: up to the last source of an edge as long as edges come
    // grouped; then for all nodes, with an entry for the end.
    std::vector<std::uint32_t> firstEdge_;
    // Once an edge came out of order: the source of every edge, the edges grouped by source, and their numbers.
    std::vector<unsigned> sources_;
    std::vector<Arc> grouped_;
    std::vector<std::uint32_t> numbers_;
    bool hasNegativeWeight_ = false;

    std::vector<Node> nodes_;
    std::vector<std::uint64_t> heap_; // distance and node, see cdigraph.cpp
};

} // namespace VoAlgo
