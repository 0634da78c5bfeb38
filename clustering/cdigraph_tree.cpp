// Minimum spanning tree: the edges in ascending order of weight, each kept if its ends are still apart.
#include "VoAlgorithms/clustering/cdigraph.h"
#include "VoAlgorithms/clustering/cdisjointsets.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>

namespace VoAlgo {
namespace {

/// Orders by weight, then by number. The bits of floats are ordered like the floats once those of negative ones are
/// inverted.
std::uint64_t SortKey(float weight, std::uint32_t number)
{
    const auto bits = std::bit_cast<std::uint32_t>(weight + 0.0F); // −0 is no less than 0
    const std::uint32_t ordered = bits >> 31 != 0 ? ~bits : bits | 0x80000000U;
    return static_cast<std::uint64_t>(ordered) << 32 | number;
}

/// Sorts keys whose lower halves ascend: stable counting sorts by one group of bits of the upper halves after another,
/// the lowest first.
void SortByWeight(std::vector<std::uint64_t>& keys)
{
    constexpr unsigned Bits = 11;
    if (keys.size() < 1U << Bits) return std::sort(keys.begin(), keys.end());
    std::vector<std::uint64_t> sorted(keys.size());
    for (unsigned shift = 32; shift < 64; shift += Bits) {
        const auto digit = [shift](std::uint64_t key) { return key >> shift & ((1U << Bits) - 1); };
        std::array<std::uint32_t, 1U << Bits> place{};
        for (const std::uint64_t key : keys) ++place[digit(key)];
        std::uint32_t begin = 0;
        for (std::uint32_t& p : place) begin += std::exchange(p, begin);
        for (const std::uint64_t key : keys) sorted[place[digit(key)]++] = key;
        keys.swap(sorted);
    }
}

} // namespace

double CDiGraph::ComputeMinimumSpanningTree(std::vector<std::size_t>& edges) const
{
    CDisjointSets parts(NumNodes());
    const std::vector<unsigned> sources = listSources();
    std::vector<std::uint64_t> keys;
    keys.reserve(NumEdges());
    for (std::uint32_t e = 0; e < edges_.size(); ++e)
        if (edges_[e].weight != Infinity) keys.push_back(SortKey(edges_[e].weight, e));
    SortByWeight(keys);

    edges.clear();
    for (const std::uint64_t key : keys) {
        const auto e = static_cast<std::uint32_t>(key & 0xFFFFFFFFU);
        if (parts.Unite(sources[e], edges_[e].to)) edges.push_back(e);
        if (parts.NumSets() == 1) break;
    }
    std::sort(edges.begin(), edges.end());
    double weight = 0.0;
    for (const std::size_t e : edges) weight += static_cast<double>(edges_[e].weight);
    return weight;
}

} // namespace VoAlgo
