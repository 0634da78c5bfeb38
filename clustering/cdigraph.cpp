#include "VoAlgorithms/clustering/cdigraph.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
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

constexpr std::size_t CachedNodes = 10'000;

/// Starts to load a cache line; any address may be given.
inline void Prefetch(const void* address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
#endif
}

// A heap with four children to a node, which lie side by side: half the levels of a binary one, each a single cache
// miss.
constexpr std::size_t Children = 4;

/// Puts the entry into the hole or, where it is lower, above it.
void Rise(std::vector<std::uint64_t>& heap, std::size_t hole, std::uint64_t entry)
{
    for (; hole > 0; hole = (hole - 1) / Children) {
        const std::uint64_t parent = heap[(hole - 1) / Children];
        if (parent <= entry) break;
        heap[hole] = parent;
    }
    heap[hole] = entry;
}

void PushHeap(std::vector<std::uint64_t>& heap, std::uint64_t entry)
{
    heap.push_back(entry);
    Rise(heap, heap.size() - 1, entry);
}

/// Moves the hole at the top down to a leaf, always along the lowest child, and puts the last entry there: it belongs
/// far down, and a path of fixed length is one that the processor predicts.
void PopHeap(std::vector<std::uint64_t>& heap)
{
    const std::uint64_t last = heap.back();
    heap.pop_back();
    const std::size_t size = heap.size();
    if (size == 0) return;
    const auto lower = [&heap](std::size_t a, std::size_t b) { return heap[b] < heap[a] ? b : a; };
    std::size_t hole = 0, child = 1;
    const auto moveUp = [&](std::size_t least) {
        heap[hole] = heap[least];
        hole = least;
        child = Children * hole + 1;
    };
    while (child + Children <= size) moveUp(lower(lower(child, child + 1), lower(child + 2, child + 3)));
    if (child < size) {
        std::size_t least = child;
        for (std::size_t c = child + 1; c < size; ++c) least = lower(least, c);
        moveUp(least);
    }
    Rise(heap, hole, last);
}

} // namespace

void CDiGraph::Reset(std::size_t nodes)
{
    edges_.clear();
    firstEdge_.clear();
    firstEdge_.reserve(nodes);
    sources_.clear();
    grouped_.clear();
    hasNegativeWeight_ = false;
    nodes_.assign(nodes, Node());
}

void CDiGraph::AddEdge(unsigned from, unsigned to, float weight)
{
    if (from >= NumNodes() || to >= NumNodes()) throw std::out_of_range("directed graph: unknown node");
    if (!(weight >= 0.0F)) {
        if (std::isnan(weight)) throw std::invalid_argument("directed graph: invalid weight");
        hasNegativeWeight_ = true;
    }
    if (edges_.size() >= None) throw std::length_error("directed graph: too many edges");
    if (from + std::size_t{1} != firstEdge_.size()) startSource(from);
    edges_.push_back({to, weight});
}

/// The source differs from that of the edge before. Once an edge came out of order, firstEdge_ is so long that all
/// edges pass through here.
void CDiGraph::startSource(unsigned from)
{
    const auto edges = static_cast<std::uint32_t>(edges_.size());
    if (from >= firstEdge_.size()) return firstEdge_.resize(from + std::size_t{1}, edges);
    if (areEdgesGrouped()) {
        sources_ = listSources();
        firstEdge_.resize(NumNodes() + 1, edges);
    }
    sources_.resize(edges); // drops the source of an edge for which there was no memory
    sources_.push_back(from);
}

std::vector<unsigned> CDiGraph::listSources() const
{
    if (!areEdgesGrouped()) return sources_;
    std::vector<unsigned> sources(edges_.size());
    for (unsigned node = 0; node < firstEdge_.size(); ++node)
        std::fill(sources.begin() + beginOfEdges(node), sources.begin() + endOfEdges(node), node);
    return sources;
}

/// Counting sort of the edges by their sources, stable.
void CDiGraph::groupEdges()
{
    if (areEdgesGrouped() || grouped_.size() == edges_.size()) return;
    numbers_.resize(edges_.size());
    grouped_.resize(edges_.size());
    std::fill(firstEdge_.begin(), firstEdge_.end(), 0);
    for (const unsigned from : sources_) ++firstEdge_[from];
    std::inclusive_scan(firstEdge_.begin(), firstEdge_.end(), firstEdge_.begin());
    for (std::size_t e = edges_.size(); e-- > 0;) {
        const std::uint32_t place = --firstEdge_[sources_[e]];
        grouped_[place] = edges_[e];
        numbers_[place] = static_cast<std::uint32_t>(e);
    }
}

CDiGraph::Edge CDiGraph::GetEdge(std::size_t number) const
{
    if (number >= edges_.size()) throw std::out_of_range("directed graph: unknown edge");
    const auto source = [&] {
        if (!areEdgesGrouped()) return sources_[number];
        const auto after = std::upper_bound(firstEdge_.begin(), firstEdge_.end(), number);
        return static_cast<unsigned>(after - firstEdge_.begin() - 1);
    };
    return {source(), edges_[number].to, edges_[number].weight};
}

void CDiGraph::ComputeShortestPaths(unsigned source, unsigned target, float bound)
{
    if (source >= NumNodes()) throw std::out_of_range("directed graph: unknown node");
    if (hasNegativeWeight_) throw std::invalid_argument("directed graph: shortest paths need weights of 0 or more");
    groupEdges();
    std::fill(nodes_.begin(), nodes_.end(), Node());
    heap_.clear();

    nodes_[source].distance = 0.0F;
    heap_.push_back(HeapEntry(0.0F, source));
    while (!heap_.empty()) {
        const std::uint64_t nearest = heap_.front();
        PopHeap(heap_);
        const unsigned node = NodeOf(nearest);
        if (DistanceOf(nearest) > nodes_[node].distance) continue; // a shorter path was found since
        if (node == target) break;
        relaxEdges(node, bound);
    }
}

void CDiGraph::relaxEdges(unsigned node, float bound)
{
    const std::span<const Arc> edges = edgesOf(node);
    if (NumNodes() > CachedNodes) {
        // Every node is a cache miss, its edges are another: fetch the ends of these edges together, and meanwhile the
        // nodes that are likely to come next. (In a function of its own GCC drops all this as being without effect.)
        for (const Arc& edge : edges) Prefetch(&nodes_[edge.to]);
        for (std::size_t i = 0; i < std::min(heap_.size(), 1 + Children); ++i)
            Prefetch(firstEdge_.data() + NodeOf(heap_[i]));
        if (!heap_.empty()) Prefetch(groupedEdges() + beginOfEdges(NodeOf(heap_.front())));
    }
    const float distance = nodes_[node].distance;
    for (const Arc& edge : edges) {
        const float candidate = distance + edge.weight;
        Node& reached = nodes_[edge.to];
        if (!(candidate < reached.distance) || candidate > bound) continue;
        reached = {candidate, node};
        PushHeap(heap_, HeapEntry(candidate, edge.to));
    }
}

bool CDiGraph::GetPath(unsigned node, std::vector<std::size_t>& edges)
{
    if (node >= NumNodes()) throw std::out_of_range("directed graph: unknown node");
    edges.clear();
    if (nodes_[node].distance == Infinity) return false;
    groupEdges();
    for (unsigned before = nodes_[node].predecessor; before != None; before = nodes_[node].predecessor) {
        const std::span<const Arc> candidates = edgesOf(before);
        const auto taken = std::find_if(candidates.begin(), candidates.end(), [&](const Arc& edge) {
            return edge.to == node && nodes_[before].distance + edge.weight == nodes_[node].distance;
        });
        const auto e = static_cast<std::size_t>(beginOfEdges(before) + (taken - candidates.begin()));
        edges.push_back(areEdgesGrouped() ? e : numbers_[e]);
        node = before;
    }
    std::reverse(edges.begin(), edges.end());
    return true;
}

} // namespace VoAlgo
