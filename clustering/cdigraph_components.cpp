#include "VoAlgorithms/clustering/cdigraph.h"

#include <algorithm>

namespace VoAlgo {
namespace {

constexpr unsigned NotVisited = 0;

/// The state of the depth-first search. As long as the component of a node is open, its entry in `component` is the
/// lowest rank that it is known to reach; later it is the number of its component. Numbers descend from the number of
/// nodes, and none is below a rank in use: an edge into a closed component lowers nothing. Components are closed after
/// all to which they lead, hence the topological order.
struct Search {
    struct Step {
        unsigned node;
        unsigned rank;      // its position among the nodes with open components, from 1
        std::uint32_t edge; // to look at next
        std::uint32_t end;  // of its edges
    };
    std::vector<unsigned>& component;
    unsigned number; // of the component that was closed last
    unsigned rank = 0;
    std::vector<Step> path{};
    std::vector<unsigned> open{}; // nodes that are no longer on the path, but whose components are open

    void Enter(unsigned node, std::uint32_t firstEdge, std::uint32_t end)
    {
        component[node] = ++rank;
        path.push_back({node, rank, firstEdge, end});
    }

    void Reach(unsigned to)
    {
        unsigned& lowest = component[path.back().node];
        lowest = std::min(lowest, component[to]);
    }

    void Leave()
    {
        const Step done = path.back();
        path.pop_back();
        if (component[done.node] == done.rank)
            close(done);
        else
            open.push_back(done.node);
        if (!path.empty()) Reach(done.node);
    }

private:
    void close(const Step& root)
    {
        rank = root.rank - 1;
        component[root.node] = --number;
        for (; !open.empty() && component[open.back()] >= root.rank; open.pop_back()) component[open.back()] = number;
    }
};

} // namespace

unsigned CDiGraph::ComputeStronglyConnectedComponents(std::vector<unsigned>& component)
{
    groupEdges();
    const auto n = static_cast<unsigned>(NumNodes());
    component.assign(n, NotVisited);
    Search search{component, n};
    const Arc* const edges = groupedEdges();
    for (unsigned root = n; root-- > 0;) { // downwards: nodes without edges are then numbered upwards
        if (component[root] != NotVisited) continue;
        search.Enter(root, beginOfEdges(root), endOfEdges(root));
        while (!search.path.empty()) {
            Search::Step& step = search.path.back();
            if (step.edge == step.end) {
                search.Leave();
                continue;
            }
            const unsigned to = edges[step.edge++].to;
            if (component[to] == NotVisited)
                search.Enter(to, beginOfEdges(to), endOfEdges(to));
            else
                search.Reach(to);
        }
    }
    for (unsigned& c : component) c -= search.number;
    return n - search.number;
}

} // namespace VoAlgo
