#include "VoAlgorithms/clustering/cdigraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
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

/// Adds them in their order, or shuffled.
void Build(CDiGraph& graph, unsigned nodes, std::vector<Edge>& edges, std::mt19937* shuffle)
{
    if (shuffle != nullptr) std::shuffle(edges.begin(), edges.end(), *shuffle);
    graph.Reset(nodes);
    for (const Edge& e : edges) graph.AddEdge(e.from, e.to, e.weight);
}

// One graph object for all sizes: catches what an earlier, larger graph leaves behind. Half of the graphs come with
// edges out of order.
TEST(CDiGraph, ShortestPathsEqualRepeatedRelaxation)
{
    std::mt19937 engine(1);
    const auto draw = [&](unsigned n) { return static_cast<unsigned>(engine() % n); };
    CDiGraph graph;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const unsigned nodes = 1 + draw(40), source = draw(nodes), target = draw(nodes);
        std::vector<Edge> edges; // many equal and zero weights, self-loops, double edges and unreachable nodes
        for (unsigned from = 0; from < nodes; ++from)
            for (unsigned k = draw(5); k > 0; --k)
                edges.push_back({from, draw(nodes), static_cast<float>(draw(4)) * 0.7F});
        Build(graph, nodes, edges, round % 2 == 0 ? nullptr : &engine);
        const std::vector<float> expected = DistancesByRepetition(nodes, edges, source);

        graph.ComputeShortestPaths(source);
        std::vector<std::size_t> path;
        for (unsigned v = 0; v < nodes; ++v) {
            ASSERT_EQ(graph.GetDistance(v), expected[v]);
            const unsigned before = graph.GetPredecessor(v);
            ASSERT_EQ(before == CDiGraph::None, v == source || expected[v] == CDiGraph::Infinity);
            ASSERT_EQ(graph.GetPath(v, path), expected[v] != CDiGraph::Infinity);
            unsigned at = source;
            float length = 0.0F;
            for (const std::size_t number : path) {
                const Edge& e = edges[number];
                ASSERT_EQ(e.from, at);
                ASSERT_EQ(graph.GetPredecessor(e.to), e.from);
                const auto isSame = [&](const Edge& o) {
                    return o.from == e.from && o.to == e.to && o.weight == e.weight;
                };
                ASSERT_EQ(std::find_if(edges.begin(), edges.end(), isSame) - edges.begin(), number);
                at = e.to;
                length += e.weight;
            }
            if (expected[v] == CDiGraph::Infinity) continue;
            ASSERT_EQ(at, v);
            ASSERT_EQ(length, expected[v]);
        }

        graph.ComputeShortestPaths(source, target);
        ASSERT_EQ(graph.GetDistance(target), expected[target]);

        graph.ComputeShortestPaths(source, CDiGraph::None, 1.4F); // the bound itself is within reach
        for (unsigned v = 0; v < nodes; ++v)
            ASSERT_EQ(graph.GetDistance(v), expected[v] <= 1.4F ? expected[v] : CDiGraph::Infinity);
    }
}

// Searches a large graph, where memory is fetched ahead; edges arrive out of order after a first search, too.
TEST(CDiGraph, LargeGraphsAndLateEdges)
{
    constexpr unsigned N = 20'000;
    std::mt19937 engine(2);
    std::vector<Edge> edges;
    for (unsigned e = 0; e < 3 * N; ++e)
        edges.push_back({static_cast<unsigned>(engine() % N), static_cast<unsigned>(engine() % N),
                         static_cast<float>(engine() % 1000)});
    CDiGraph graph;
    graph.Reset(N);
    for (std::size_t e = 0; e < edges.size(); ++e) {
        if (e == edges.size() / 2) graph.ComputeShortestPaths(7);
        graph.AddEdge(edges[e].from, edges[e].to, edges[e].weight);
    }
    const std::vector<float> expected = DistancesByRepetition(N, edges, 7);
    graph.ComputeShortestPaths(7);
    for (unsigned v = 0; v < N; ++v) ASSERT_EQ(graph.GetDistance(v), expected[v]);
}

using Reach = std::vector<std::vector<bool>>;

// S. Warshall, J. ACM 9 (1962) 11-12. Every node reaches itself.
Reach ReachByClosure(unsigned nodes, const std::vector<Edge>& edges)
{
    Reach reach(nodes, std::vector<bool>(nodes));
    for (unsigned v = 0; v < nodes; ++v) reach[v][v] = true;
    for (const Edge& e : edges) reach[e.from][e.to] = true;
    for (unsigned k = 0; k < nodes; ++k)
        for (unsigned i = 0; i < nodes; ++i)
            for (unsigned j = 0; j < nodes; ++j) reach[i][j] = reach[i][j] || (reach[i][k] && reach[k][j]);
    return reach;
}

void ExpectOrderOrCycle(CDiGraph& graph, unsigned nodes, const std::vector<Edge>& edges)
{
    std::vector<unsigned> expected, found; // always the lowest node without an edge from one that has no place yet
    std::vector<bool> isPlaced(nodes);
    for (unsigned v = 0; v < nodes; ++v) {
        const auto waits = [&](const Edge& e) { return e.to == v && !isPlaced[e.from]; };
        if (isPlaced[v] || std::any_of(edges.begin(), edges.end(), waits)) continue;
        expected.push_back(v);
        isPlaced[v] = true;
        v = ~0U; // begin anew
    }
    ASSERT_EQ(graph.ComputeTopologicalOrder(found), expected.size() == nodes);
    if (expected.size() == nodes) {
        ASSERT_EQ(found, expected);
        return;
    }
    ASSERT_EQ(std::min_element(found.begin(), found.end()), found.begin());
    for (std::size_t i = 0; i < found.size(); ++i) {
        ASSERT_EQ(std::count(found.begin(), found.end(), found[i]), 1);
        const unsigned next = found[(i + 1) % found.size()];
        ASSERT_TRUE(
            std::any_of(edges.begin(), edges.end(), [&](const Edge& e) { return e.from == found[i] && e.to == next; }));
    }
}

TEST(CDiGraph, ComponentsAndOrdersEqualTheTransitiveClosure)
{
    std::mt19937 engine(3);
    CDiGraph graph;
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        const auto draw = [&](unsigned n) { return static_cast<unsigned>(engine() % n); };
        const unsigned nodes = draw(25);
        std::vector<Edge> edges;
        for (unsigned e = nodes == 0 ? 0 : draw(2 * nodes); e > 0; --e) {
            edges.push_back({draw(nodes), draw(nodes), -1.0F});
            if (round % 2 != 0 && edges.back().to <= edges.back().from) edges.pop_back(); // no cycles
        }
        Build(graph, nodes, edges, nullptr);
        const Reach reach = ReachByClosure(nodes, edges);
        std::vector<unsigned> component, isUsed;
        const unsigned count = graph.ComputeStronglyConnectedComponents(component);
        isUsed.resize(count);
        ASSERT_EQ(component.size(), nodes);
        for (unsigned i = 0; i < nodes; ++i) {
            isUsed.at(component[i]) = 1;
            for (unsigned j = 0; j < nodes; ++j) {
                ASSERT_EQ(component[i] == component[j], reach[i][j] && reach[j][i]);
                ASSERT_TRUE(!reach[i][j] || component[i] <= component[j]);
            }
        }
        ASSERT_EQ(std::count(isUsed.begin(), isUsed.end(), 1U), count);
        ASSERT_NO_FATAL_FAILURE(ExpectOrderOrCycle(graph, nodes, edges));
    }
}

// A recursive search dies of it.
TEST(CDiGraph, LongPathsAndLongCycles)
{
    constexpr unsigned N = 1'000'000;
    CDiGraph graph;
    graph.Reset(N);
    for (unsigned v = 0; v + 1 < N; ++v) graph.AddEdge(v, v + 1, 1.0F);
    std::vector<unsigned> component, order;
    EXPECT_EQ(graph.ComputeStronglyConnectedComponents(component), N);
    EXPECT_TRUE(graph.ComputeTopologicalOrder(order));
    EXPECT_TRUE(component == order && order[N / 2] == N / 2);
    graph.AddEdge(N - 1, 0, 1.0F);
    EXPECT_EQ(graph.ComputeStronglyConnectedComponents(component), 1U);
    EXPECT_FALSE(graph.ComputeTopologicalOrder(order));
    EXPECT_EQ(order.size(), N);
}

// Every subset of the edges: of those without a cycle the largest, of these the lightest, of these the first in the
// order of (weight, number).
TEST(CDiGraph, SpanningTreesEqualTheBestSubset)
{
    std::mt19937 engine(4);
    CDiGraph graph;
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        const auto draw = [&](unsigned n) { return static_cast<unsigned>(engine() % n); };
        const unsigned nodes = 1 + draw(7);
        std::vector<Edge> edges;
        const float weights[] = {-2.5F, -1.0F, -0.0F, 0.0F, 1.0F, 3.0F, CDiGraph::Infinity};
        for (unsigned e = draw(11); e > 0; --e) edges.push_back({draw(nodes), draw(nodes), weights[draw(7)]});
        Build(graph, nodes, edges, nullptr);

        std::vector<std::size_t> byWeight(edges.size()), best, found;
        for (std::size_t e = 0; e < edges.size(); ++e) byWeight[e] = e;
        std::stable_sort(byWeight.begin(), byWeight.end(),
                         [&](std::size_t a, std::size_t b) { return edges[a].weight < edges[b].weight; });
        double bestWeight = 0.0;
        for (unsigned subset = 1; subset < 1U << edges.size(); ++subset) {
            std::vector<unsigned> part(nodes);
            for (unsigned v = 0; v < nodes; ++v) part[v] = v;
            std::vector<std::size_t> chosen;
            double weight = 0.0;
            bool isForest = true;
            for (std::size_t i = 0; i < edges.size() && isForest; ++i) {
                if ((subset >> (edges.size() - 1 - i) & 1U) == 0) continue; // later subsets hold earlier edges
                const Edge& e = edges[byWeight[i]];
                isForest = part[e.from] != part[e.to] && e.weight != CDiGraph::Infinity;
                std::replace(part.begin(), part.end(), unsigned{part[e.from]}, unsigned{part[e.to]});
                chosen.push_back(byWeight[i]);
                weight += static_cast<double>(e.weight);
            }
            if (!isForest || chosen.size() < best.size()) continue;
            if (chosen.size() == best.size() && weight > bestWeight) continue;
            best = chosen;
            bestWeight = weight;
        }
        std::sort(best.begin(), best.end());
        ASSERT_EQ(graph.ComputeMinimumSpanningTree(found), bestWeight);
        ASSERT_EQ(found, best);
    }
}

TEST(CDiGraph, LargeSpanningTreesEqualThoseByInsertionOfTheSortedEdges)
{
    constexpr unsigned N = 3000; // large enough for another sorting than small ones
    std::mt19937 engine(5);
    std::vector<Edge> edges;
    for (unsigned e = 0; e < 2 * N; ++e)
        edges.push_back({static_cast<unsigned>(engine() % N), static_cast<unsigned>(engine() % N),
                         static_cast<float>(engine() % 512) - 256.0F + (e % 2 == 0 ? 0.0F : 1e-5F)});
    CDiGraph graph;
    Build(graph, N, edges, nullptr);
    std::vector<std::size_t> order(edges.size()), expected, found;
    for (std::size_t e = 0; e < edges.size(); ++e) order[e] = e;
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return edges[a].weight < edges[b].weight; });
    std::vector<unsigned> part(N);
    for (unsigned v = 0; v < N; ++v) part[v] = v;
    for (const std::size_t e : order) {
        const unsigned a = part[edges[e].from], b = part[edges[e].to];
        if (a == b) continue;
        std::replace(part.begin(), part.end(), a, b);
        expected.push_back(e);
    }
    std::sort(expected.begin(), expected.end());
    graph.ComputeMinimumSpanningTree(found);
    EXPECT_EQ(found, expected);
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

TEST(CDiGraph, DotShowsTextsAsTheyAre)
{
    CDiGraph graph;
    graph.Reset(3);
    graph.AddEdge(1, 0, 0.1F);
    graph.AddEdge(0, 1, -1e20F);
    const CDiGraph::DotStyle style = {{"say \"\\N\"", "a&lt;\n\tb", "ü"}, {}, {5, 5, 2}, {1}};
    std::ostringstream plain, out;
    graph.WriteDot(plain);
    graph.WriteDot(out, style);
    EXPECT_NE(plain.str().find("1 -> 0 [label=\"0.1\"]"), std::string::npos);
    EXPECT_EQ(out.str(), R"(digraph {
  0 [label="say \"\\N\"" penwidth=3];
  1 [label="a&amp;lt;\n b" penwidth=3];
  2 [label="ü"];
  subgraph cluster_5 { label=5; 0; 1; }
  1 -> 0 [label="0.1"];
  0 -> 1 [label="-1e+20" penwidth=3];
}
)");
    for (CDiGraph::DotStyle wrong : {CDiGraph::DotStyle{{"a"}, {}, {}, {}}, {{}, {"a"}, {}, {}}, {{}, {}, {1}, {}}})
        EXPECT_THROW(graph.WriteDot(out, wrong), std::invalid_argument);
    EXPECT_THROW(graph.WriteDot(out, {{}, {}, {}, {2}}), std::out_of_range);
}

TEST(CDiGraph, RefusesWhatIsNoGraph)
{
    CDiGraph graph;
    std::vector<std::size_t> path;
    EXPECT_THROW(graph.ComputeShortestPaths(0), std::out_of_range);
    EXPECT_THROW(graph.GetPath(0, path), std::out_of_range);
    graph.Reset(3);
    EXPECT_THROW(graph.AddEdge(3, 0, 1.0F), std::out_of_range);
    EXPECT_THROW(graph.AddEdge(0, 3, 1.0F), std::out_of_range);
    EXPECT_THROW(graph.AddEdge(0, 1, std::numeric_limits<float>::quiet_NaN()), std::invalid_argument);
    EXPECT_THROW((void)graph.GetEdge(0), std::out_of_range);
    graph.AddEdge(1, 2, -0.0F);
    graph.ComputeShortestPaths(1);
    EXPECT_EQ(graph.GetDistance(2), 0.0F);
    for (const unsigned from : {2U, 0U}) {
        graph.AddEdge(from, 1, -1.0F);
        const CDiGraph::Edge edge = graph.GetEdge(graph.NumEdges() - 1), first = graph.GetEdge(0);
        EXPECT_TRUE(edge.from == from && edge.to == 1 && edge.weight == -1.0F && first.from == 1 && first.to == 2);
        EXPECT_THROW(graph.ComputeShortestPaths(1), std::invalid_argument);
    }
    graph.Reset(2); // forgets the negative weight
    graph.ComputeShortestPaths(1);
}

} // namespace
