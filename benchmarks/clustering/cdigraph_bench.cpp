#include "VoAlgorithms/clustering/cdigraph.h"

#include <benchmark/benchmark.h>

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

} // namespace
