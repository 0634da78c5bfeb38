#include "VoAlgorithms/clustering/cdigraph.h"
#include "cdigraph_peers.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

namespace {

// One polygon search: layers of candidates, every one joined to all of the next layer; the first layer stands once more
// at the end. From each of its nodes the shortest way to its twin, bounded by the best so far.
void BM_ClosedPaths(benchmark::State& state)
{
    const auto layers = static_cast<unsigned>(state.range(0));
    const auto candidates = static_cast<unsigned>(state.range(1));
    std::mt19937 engine(1);
    std::exponential_distribution<float> mismatch(0.1F); // mm
    std::vector<float> weights(std::size_t{layers} * candidates * candidates);
    for (float& w : weights) w = mismatch(engine);

    VoAlgo::CDiGraph graph;
    for (auto _ : state) {
        graph.Reset(std::size_t{layers + 1} * candidates);
        const float* weight = weights.data();
        for (unsigned from = 0; from < layers * candidates; ++from)
            for (unsigned to = 0; to < candidates; ++to)
                graph.AddEdge(from, (from / candidates + 1) * candidates + to, *weight++);
        float shortest = VoAlgo::CDiGraph::Infinity;
        for (unsigned s = 0; s < candidates; ++s) {
            const unsigned twin = layers * candidates + s;
            graph.ComputeShortestPaths(s, twin, shortest);
            if (graph.GetDistance(twin) < shortest) shortest = graph.GetDistance(twin);
        }
        benchmark::DoNotOptimize(shortest);
    }
    state.counters["per_edge"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(weights.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ClosedPaths)->Args({10, 10})->Args({5, 10})->Args({10, 30})->Unit(benchmark::kMicrosecond);

constexpr unsigned Nodes = 1'000'000;

/// Five edges a node between random nodes, in no order.
const std::vector<BenchEdge>& LargeGraph()
{
    static const std::vector<BenchEdge> edges = [] {
        std::mt19937 engine(2);
        std::uniform_int_distribution<unsigned> node(0, Nodes - 1);
        std::uniform_real_distribution<float> weight(0.0F, 1.0F);
        std::vector<BenchEdge> random(5 * std::size_t{Nodes});
        for (BenchEdge& e : random) e = {node(engine), node(engine), weight(engine)};
        return random;
    }();
    return edges;
}

class OwnGraph : public BenchGraph {
public:
    OwnGraph(unsigned nodes, const std::vector<BenchEdge>& edges)
    {
        graph_.Reset(nodes);
        for (const BenchEdge& e : edges) graph_.AddEdge(e.from, e.to, e.weight);
        graph_.ComputeShortestPaths(0, 0); // groups the edges
    }

    void ShortestPaths() override { graph_.ComputeShortestPaths(0); }
    unsigned StrongComponents() override
    {
        std::vector<unsigned> component;
        return graph_.ComputeStronglyConnectedComponents(component);
    }
    double SpanningTree() override
    {
        std::vector<std::size_t> tree;
        return graph_.ComputeMinimumSpanningTree(tree);
    }

private:
    VoAlgo::CDiGraph graph_;
};

std::unique_ptr<BenchGraph> MakeOwnGraph(unsigned nodes, const std::vector<BenchEdge>& edges)
{
    return std::make_unique<OwnGraph>(nodes, edges);
}

using Make = std::unique_ptr<BenchGraph> (*)(unsigned, const std::vector<BenchEdge>&);

template <class Work>
void Measure(benchmark::State& state, Make make, Work work)
{
    const std::unique_ptr<BenchGraph> graph = make(Nodes, LargeGraph());
    for (auto _ : state) work(*graph);
    state.counters["per_edge"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(LargeGraph().size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Build(benchmark::State& state, Make make)
{
    for (auto _ : state) benchmark::DoNotOptimize(make(Nodes, LargeGraph()));
}
void BM_ShortestPaths(benchmark::State& state, Make make)
{
    Measure(state, make, [](BenchGraph& graph) { graph.ShortestPaths(); });
}
void BM_StrongComponents(benchmark::State& state, Make make)
{
    Measure(state, make, [](BenchGraph& graph) { benchmark::DoNotOptimize(graph.StrongComponents()); });
}
void BM_SpanningTree(benchmark::State& state, Make make)
{
    Measure(state, make, [](BenchGraph& graph) { benchmark::DoNotOptimize(graph.SpanningTree()); });
}
#define BENCHMARK_LARGE_GRAPH(library)                                                                                 \
    BENCHMARK_CAPTURE(BM_ShortestPaths, library, &Make##library##Graph)->Unit(benchmark::kMillisecond);                \
    BENCHMARK_CAPTURE(BM_StrongComponents, library, &Make##library##Graph)->Unit(benchmark::kMillisecond);             \
    BENCHMARK_CAPTURE(BM_SpanningTree, library, &Make##library##Graph)->Unit(benchmark::kMillisecond)
BENCHMARK_CAPTURE(BM_Build, Own, &MakeOwnGraph)->Unit(benchmark::kMillisecond);
BENCHMARK_LARGE_GRAPH(Own);
#ifdef VOALGO_BOOST_GRAPH
BENCHMARK_LARGE_GRAPH(Boost);
#endif
#ifdef VOALGO_LEMON
BENCHMARK_LARGE_GRAPH(Lemon);
#endif

} // namespace
