#include "VoAlgorithms/clustering/cdigraph.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <stdexcept>

namespace VoAlgo {
namespace {

// The bits of non-negative floats are ordered like the floats: one integer comparison orders by distance, then by node.
std::uint64_t HeapEntry(float distance, unsigned node)
{
    return static_cast<std::uint64_t>(std::bit_cast<std::uint32_t>(distance)) << 32 | node;
}

float DistanceOf(std::uint64_t entry)
{
    return std::bit_cast<float>(static_cast<std::uint32_t>(entry >> 32));
}

unsigned NodeOf(std::uint64_t entry)
{
    return static_cast<unsigned>(entry & 0xFFFFFFFFU);
}

} // namespace

void CDiGraph::Reset(std::size_t nodes)
{
    firstEdge_.clear();
    firstEdge_.reserve(nodes);
    edges_.clear();
    distances_.assign(nodes, Infinity);
    predecessors_.assign(nodes, None);
}

void CDiGraph::AddEdge(unsigned from, unsigned to, float weight)
{
    if (from >= NumNodes() || to >= NumNodes()) throw std::out_of_range("directed graph: unknown node");
    if (from + std::size_t{1} < firstEdge_.size())
        throw std::invalid_argument("directed graph: edges must be grouped by ascending source node");
    if (!(weight >= 0.0F)) throw std::invalid_argument("directed graph: invalid weight");
    if (from >= firstEdge_.size()) firstEdge_.resize(from + std::size_t{1}, edges_.size());
    edges_.push_back({to, weight});
}

void CDiGraph::ComputeShortestPaths(unsigned source, unsigned target, float bound)
{
    if (source >= NumNodes()) throw std::out_of_range("directed graph: unknown node");
    std::fill(distances_.begin(), distances_.end(), Infinity);
    std::fill(predecessors_.begin(), predecessors_.end(), None);
    heap_.clear();

    distances_[source] = 0.0F;
    heap_.push_back(HeapEntry(0.0F, source));
    while (!heap_.empty()) {
        const std::uint64_t nearest = heap_.front();
        std::pop_heap(heap_.begin(), heap_.end(), std::greater<>());
        heap_.pop_back();
        const unsigned node = NodeOf(nearest);
        if (DistanceOf(nearest) > distances_[node]) continue; // a shorter path was found since
        if (node == target) break;
        relaxEdges(node, bound);
    }
}

void CDiGraph::relaxEdges(unsigned node, float bound)
{
    if (node >= firstEdge_.size()) return;
    const std::size_t end = node + std::size_t{1} < firstEdge_.size() ? firstEdge_[node + 1] : edges_.size();
    const float distance = distances_[node];
    for (std::size_t e = firstEdge_[node]; e < end; ++e) {
        const Edge edge = edges_[e];
        const float candidate = distance + edge.weight;
        if (!(candidate < distances_[edge.to]) || candidate > bound) continue;
        distances_[edge.to] = candidate;
        predecessors_[edge.to] = node;
        heap_.push_back(HeapEntry(candidate, edge.to));
        std::push_heap(heap_.begin(), heap_.end(), std::greater<>());
    }
}

} // namespace VoAlgo
