// Compiled as C++17: the headers of LEMON use what C++20 has removed.
#include "cdigraph_peers.h"

#include <algorithm>
#include <lemon/connectivity.h>
#include <lemon/dijkstra.h>
#include <lemon/kruskal.h>
#include <lemon/quad_heap.h>
#include <lemon/smart_graph.h>
#include <lemon/static_graph.h>
#include <utility>

namespace {

class LemonGraph : public BenchGraph {
public:
    LemonGraph(unsigned nodes, std::vector<BenchEdge> edges)
    {
        for (unsigned i = 0; i < nodes; ++i) undirected_.addNode();
        for (const BenchEdge& e : edges)
            lengths_[undirected_.addEdge(undirected_.nodeFromId(static_cast<int>(e.from)),
                                         undirected_.nodeFromId(static_cast<int>(e.to)))] = e.weight;
        const auto isBefore = [](const BenchEdge& a, const BenchEdge& b) { return a.from < b.from; };
        std::stable_sort(edges.begin(), edges.end(), isBefore);
        std::vector<std::pair<int, int>> arcs;
        for (const BenchEdge& e : edges) arcs.emplace_back(static_cast<int>(e.from), static_cast<int>(e.to));
        directed_.build(static_cast<int>(nodes), arcs.begin(), arcs.end());
        for (std::size_t a = 0; a < edges.size(); ++a) weights_[directed_.arc(static_cast<int>(a))] = edges[a].weight;
    }

    void ShortestPaths() override
    {
        using Heap = lemon::QuadHeap<float, Directed::NodeMap<int>>; // faster than the binary one
        lemon::Dijkstra<Directed, Directed::ArcMap<float>>::SetStandardHeap<Heap>::Create search(directed_, weights_);
        search.run(directed_.node(0));
    }
    unsigned StrongComponents() override
    {
        Directed::NodeMap<int> component(directed_);
        return static_cast<unsigned>(lemon::stronglyConnectedComponents(directed_, component));
    }
    double SpanningTree() override
    {
        lemon::SmartGraph::EdgeMap<bool> tree(undirected_);
        return static_cast<double>(lemon::kruskal(undirected_, lengths_, tree));
    }

private:
    using Directed = lemon::StaticDigraph;
    Directed directed_;
    Directed::ArcMap<float> weights_{directed_};
    lemon::SmartGraph undirected_;
    lemon::SmartGraph::EdgeMap<float> lengths_{undirected_};
};

} // namespace

std::unique_ptr<BenchGraph> MakeLemonGraph(unsigned nodes, const std::vector<BenchEdge>& edges)
{
    return std::make_unique<LemonGraph>(nodes, edges);
}
