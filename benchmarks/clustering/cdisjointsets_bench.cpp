#include "VoAlgorithms/clustering/cdisjointsets.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace {

// As many unions as elements: neighbours of a row one after another, or pairs at random (every access a cache miss).
void BM_Unions(benchmark::State& state)
{
    const auto n = static_cast<std::uint32_t>(state.range(0));
    const bool isRandom = state.range(1) != 0;
    std::mt19937 engine(1);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs(n);
    std::uniform_int_distribution<std::uint32_t> any(0, n - 1);
    for (std::uint32_t i = 0; i < n; ++i)
        pairs[i] = isRandom ? std::pair(any(engine), any(engine)) : std::pair(i, i + 1 < n ? i + 1 : i);
    for (auto _ : state) {
        VoAlgo::CDisjointSets sets(n);
        for (const auto& [a, b] : pairs) sets.Unite(a, b);
        benchmark::DoNotOptimize(sets.NumSets());
    }
    state.counters["per_union"] = benchmark::Counter(static_cast<double>(state.iterations()) * n,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Unions)
    ->Args({100'000, 0})
    ->Args({10'000'000, 0})
    ->Args({100'000, 1})
    ->Args({10'000'000, 1})
    ->Unit(benchmark::kMillisecond);

} // namespace
