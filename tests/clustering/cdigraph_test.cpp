#include "VoAlgorithms/clustering/cdigraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using VoAlgo::CDiGraph;

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

// One graph object for all sizes: catches what an earlier, larger graph leaves behind.
TEST(CDiGraph, ShortestPathsEqualRepeatedRelaxation)
{
    std::mt19937 engine(1);
    const auto draw = [&](unsigned n) { return static_cast<unsigned>(engine() % n); };
    CDiGraph graph;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const unsigned nodes = 1 + draw(40), source = draw(nodes), target = draw(nodes);
        std::vector<Edge> edges; // many equal and zero weights, self-loops, double edges and unreachable nodes
        graph.Reset(nodes);
        for (unsigned from = 0; from < nodes; ++from)
            for (unsigned k = draw(5); k > 0; --k) {
                edges.push_back({from, draw(nodes), static_cast<float>(draw(4)) * 0.7F});
                graph.AddEdge(from, edges.back().to, edges.back().weight);
            }
        const std::vector<float> expected = DistancesByRepetition(nodes, edges, source);

        graph.ComputeShortestPaths(source);
        for (unsigned v = 0; v < nodes; ++v) {
            ASSERT_EQ(graph.GetDistance(v), expected[v]);
            const unsigned before = graph.GetPredecessor(v);
            ASSERT_EQ(before == CDiGraph::None, v == source || expected[v] == CDiGraph::Infinity);
            if (before == CDiGraph::None) continue;
            ASSERT_TRUE(std::any_of(edges.begin(), edges.end(), [&](const Edge& e) {
                return e.from == before && e.to == v && expected[before] + e.weight == expected[v];
            }));
        }

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
    for (const unsigned middle : {3U, 1U, 2U}) graph.AddEdge(0, middle, 1.0F);
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
