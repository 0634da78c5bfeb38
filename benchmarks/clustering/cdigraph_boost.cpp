#include "cdigraph_peers.h"

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/compressed_sparse_row_graph.hpp>
#include <boost/graph/dijkstra_shortest_paths.hpp>
#include <boost/graph/prim_minimum_spanning_tree.hpp>
#include <boost/graph/strong_components.hpp>
#include <utility>

namespace {

using Directed = boost::compressed_sparse_row_graph<boost::directedS, boost::no_property, float, boost::no_property,
                                                    unsigned, unsigned>;
using Undirected = boost::adjacency_list<boost::vecS, boost::vecS, boost::undirectedS, boost::no_property,
                                         boost::property<boost::edge_weight_t, float>>;

template <class T>
auto MapOf(std::vector<T>& values)
{
    return boost::make_iterator_property_map(values.begin(), boost::typed_identity_property_map<unsigned>());
}

class BoostGraph : public BenchGraph {
public:
    BoostGraph(unsigned nodes, const std::vector<BenchEdge>& edges) : nodes_(nodes)
    {
        std::vector<std::pair<unsigned, unsigned>> ends;
        std::vector<float> weights;
        for (const BenchEdge& e : edges) {
            ends.emplace_back(e.from, e.to);
            weights.push_back(e.weight);
        }
        directed_ = Directed(boost::edges_are_unsorted_multi_pass, ends.begin(), ends.end(), weights.begin(), nodes);
        undirected_ = Undirected(ends.begin(), ends.end(), weights.begin(), nodes);
    }

    void ShortestPaths() override
    {
        std::vector<float> distances(nodes_);
        std::vector<unsigned> predecessors(nodes_);
        boost::dijkstra_shortest_paths(directed_, 0U,
                                       boost::weight_map(boost::get(boost::edge_bundle, directed_))
                                           .distance_map(MapOf(distances))
                                           .predecessor_map(MapOf(predecessors)));
    }
    unsigned StrongComponents() override
    {
        std::vector<unsigned> component(nodes_);
        return boost::strong_components(directed_, MapOf(component));
    }
    /// Its algorithm of Kruskal takes twenty times longer on this graph.
    double SpanningTree() override
    {
        std::vector<std::size_t> predecessors(nodes_);
        boost::prim_minimum_spanning_tree(undirected_, predecessors.data());
        return static_cast<double>(predecessors.front());
    }

private:
    unsigned nodes_;
    Directed directed_;
    Undirected undirected_;
};

} // namespace

std::unique_ptr<BenchGraph> MakeBoostGraph(unsigned nodes, const std::vector<BenchEdge>& edges)
{
    return std::make_unique<BoostGraph>(nodes, edges);
}
