#include "VoAlgorithms/clustering/cdigraph.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using VoAlgo::CDiGraph;

struct Engine {
    std::mt19937 twister;
    unsigned operator()() { return static_cast<unsigned>(twister()); }
};

struct Edge {
    unsigned from, to;
    float weight;
};

// Relaxes every edge until nothing changes (Bellman, Ford): no heap, no order.
std::vector<float> DistancesByRepetition(unsigned nodes, const std::vector<Edge>& edges, unsigned source)
{
    std::vector<float> distances(nodes, CDiGraph::Infinity);
    distances[source] = 0.0F;
    for (bool changed = true; changed;) {
        changed = false;
        for (const Edge& e : edges)
            if (distances[e.from] + e.weight < distances[e.to]) {
                distances[e.to] = distances[e.from] + e.weight;
                changed = true;
            }
    }
    return distances;
}

// Random edges with many equal and zero weights, self-loops, double edges and unreachable nodes.
std::vector<Edge> RandomEdges(Engine& engine, unsigned nodes)
{
    std::vector<Edge> edges;
    for (unsigned from = 0; from < nodes; ++from)
        for (unsigned k = engine() % 5; k > 0; --k)
            edges.push_back({from, static_cast<unsigned>(engine() % nodes), static_cast<float>(engine() % 4) * 0.7F});
    return edges;
}

void Fill(CDiGraph& graph, unsigned nodes, const std::vector<Edge>& edges)
{
    graph.Reset(nodes);
    for (const Edge& e : edges) graph.AddEdge(e.from, e.to, e.weight);
}

// One graph object for all sizes: catches what an earlier, larger graph leaves behind.
TEST(CDiGraph, ShortestPathsEqualRepeatedRelaxation)
{
    Engine engine{std::mt19937(1)};
    CDiGraph graph;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const unsigned nodes = 1 + engine() % 40;
        const std::vector<Edge> edges = RandomEdges(engine, nodes);
        const unsigned source = engine() % nodes;
        Fill(graph, nodes, edges);
        const std::vector<float> expected = DistancesByRepetition(nodes, edges, source);

        graph.ComputeShortestPaths(source);
        for (unsigned v = 0; v < nodes; ++v) {
            ASSERT_EQ(graph.GetDistance(v), expected[v]);
            const unsigned before = graph.GetPredecessor(v);
            ASSERT_EQ(before == CDiGraph::None, v == source || expected[v] == CDiGraph::Infinity);
            if (before == CDiGraph::None) continue;
            bool edgeExists = false;
            for (const Edge& e : edges)
                edgeExists |= e.from == before && e.to == v && expected[before] + e.weight == expected[v];
            ASSERT_TRUE(edgeExists);
        }

        const unsigned target = engine() % nodes;
        graph.ComputeShortestPaths(source, target);
        ASSERT_EQ(graph.GetDistance(target), expected[target]);

        graph.ComputeShortestPaths(source, CDiGraph::None, 1.4F); // the bound itself is within reach
        for (unsigned v = 0; v < nodes; ++v)
            ASSERT_EQ(graph.GetDistance(v), expected[v] <= 1.4F ? expected[v] : CDiGraph::Infinity);
    }
}

TEST(CDiGraph, TiesGoToTheLowerIndex)
{
    CDiGraph graph;
    graph.Reset(5);
    graph.AddEdge(0, 3, 1.0F);
    graph.AddEdge(0, 1, 1.0F);
    graph.AddEdge(0, 2, 1.0F);
    for (const unsigned middle : {1U, 2U, 3U}) graph.AddEdge(middle, 4, 1.0F);
    graph.ComputeShortestPaths(0);
    EXPECT_EQ(graph.GetPredecessor(4), 1U);
}

TEST(CDiGraph, RefusesWhatIsNoGraph)
{
    CDiGraph graph;
    EXPECT_THROW(graph.ComputeShortestPaths(0), std::out_of_range);
    graph.Reset(3);
    EXPECT_THROW(graph.AddEdge(3, 0, 1.0F), std::out_of_range);
    EXPECT_THROW(graph.AddEdge(0, 3, 1.0F), std::out_of_range);
    EXPECT_THROW(graph.AddEdge(0, 1, -1.0F), std::invalid_argument);
    EXPECT_THROW(graph.AddEdge(0, 1, std::numeric_limits<float>::quiet_NaN()), std::invalid_argument);
    graph.AddEdge(1, 2, -0.0F);
    EXPECT_THROW(graph.AddEdge(0, 1, 1.0F), std::invalid_argument);
    graph.ComputeShortestPaths(1);
    EXPECT_EQ(graph.GetDistance(2), 0.0F);
}

} // namespace
