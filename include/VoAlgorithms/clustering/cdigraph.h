#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace VoAlgo {

/// A directed graph with weighted edges and shortest paths from one node (Dijkstra). Made for many small graphs, one
/// after another: Reset keeps all storage, so that a graph that is no larger than an earlier one allocates nothing.
/// One thread at a time. Deterministic: of equally distant nodes the one with the lower index is settled first, and of
/// equally short paths the first found stays.
class VOALGO_API CDiGraph {
public:
    /// No node.
    static constexpr unsigned None = 0xFFFFFFFFU;
    /// The length of a path that does not exist.
    static constexpr float Infinity = std::numeric_limits<float>::infinity();

    /// Starts a graph of `nodes` nodes (0 … nodes − 1) without edges.
    void Reset(std::size_t nodes);
    /// Adds the edge from → to. Edges come grouped by ascending source: `from` is never below that of an earlier edge.
    /// Throws std::out_of_range for an unknown node, std::invalid_argument for a source out of order and for a weight
    /// that is negative or NaN. An edge of infinite weight is never taken.
    void AddEdge(unsigned from, unsigned to, float weight);

    ///@{
    /// Nodes of the last Reset, and edges added since.
    [[nodiscard]] std::size_t NumNodes() const { return distances_.size(); }
    [[nodiscard]] std::size_t NumEdges() const { return edges_.size(); }
    ///@}

    /// Finds the shortest paths from `source`; O((nodes + edges) · log edges). With a `target` the search stops as soon
    /// as its distance is known: then only the nodes on its path and those nearer than it have final values. Paths
    /// longer than `bound` are not followed; the nodes that only they reach count as unreachable. Throws
    /// std::out_of_range for an unknown source.
    void ComputeShortestPaths(unsigned source, unsigned target = None, float bound = Infinity);

    /// Length of the shortest path from the last source, the sum of its weights in the path's order; Infinity for an
    /// unreachable node and before the first search. Unchecked.
    [[nodiscard]] float GetDistance(unsigned node) const { return distances_[node]; }
    /// The node before this one on that path; None for the source, an unreachable node and before the first search.
    /// Unchecked.
    [[nodiscard]] unsigned GetPredecessor(unsigned node) const { return predecessors_[node]; }

private:
    struct Edge {
        unsigned to;
        float weight;
    };

    void relaxEdges(unsigned node, float bound);

    std::vector<std::size_t> firstEdge_; // of the nodes up to the last source of an edge
    std::vector<Edge> edges_;
    std::vector<float> distances_;
    std::vector<unsigned> predecessors_;
    std::vector<std::uint64_t> heap_; // distance and node, see cdigraph.cpp
};

} // namespace VoAlgo
