#include "VoAlgorithms/clustering/cdigraph.h"

#include <algorithm>
#include <functional>

namespace VoAlgo {

// A. B. Kahn, Communications of the ACM 5 (1962) 558-562.
bool CDiGraph::ComputeTopologicalOrder(std::vector<unsigned>& nodes)
{
    groupEdges();
    std::vector<unsigned> waitsFor(NumNodes(), 0); // edges from nodes that have no place yet
    for (const Arc& edge : edges_) ++waitsFor[edge.to];
    std::vector<unsigned> ready; // a heap with the lowest node on top
    for (unsigned node = 0; node < waitsFor.size(); ++node)
        if (waitsFor[node] == 0) ready.push_back(node);

    nodes.clear();
    while (!ready.empty()) {
        std::pop_heap(ready.begin(), ready.end(), std::greater<>());
        const unsigned node = ready.back();
        ready.pop_back();
        nodes.push_back(node);
        for (const Arc& edge : edgesOf(node)) {
            if (--waitsFor[edge.to] > 0) continue;
            ready.push_back(edge.to);
            std::push_heap(ready.begin(), ready.end(), std::greater<>());
        }
    }
    if (nodes.size() == NumNodes()) return true;
    nodes = findCycle(waitsFor);
    return false;
}

/// Every node without a place waits for another one: walking backwards along such edges must come round.
std::vector<unsigned> CDiGraph::findCycle(const std::vector<unsigned>& waitsFor) const
{
    std::vector<unsigned> before(NumNodes(), None);
    unsigned node = None;
    for (unsigned from = static_cast<unsigned>(NumNodes()); from-- > 0;) {
        if (waitsFor[from] == 0) continue;
        for (const Arc& edge : edgesOf(from))
            if (waitsFor[edge.to] > 0) before[edge.to] = from;
        node = from;
    }
    std::vector<bool> isSeen(NumNodes());
    for (; !isSeen[node]; node = before[node]) isSeen[node] = true;

    std::vector<unsigned> cycle = {node};
    for (unsigned n = before[node]; n != node; n = before[n]) cycle.push_back(n);
    std::reverse(cycle.begin(), cycle.end());
    std::rotate(cycle.begin(), std::min_element(cycle.begin(), cycle.end()), cycle.end());
    return cycle;
}

} // namespace VoAlgo
