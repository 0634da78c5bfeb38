#include "VoAlgorithms/solvers/cnaturalspline.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using VoAlgo::CNaturalSpline;
using Numbers = std::vector<double>;

/// n ascending places with gaps from 0.5 to 1.5, or n numbers in any order between 0 and n.
Numbers Places(std::int64_t n, bool isSorted)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> gap(0.5, 1.5), any(0, static_cast<double>(n));
    Numbers x(static_cast<std::size_t>(n));
    double last = 0;
    for (double& e : x) e = isSorted ? last += gap(engine) : any(engine);
    return x;
}

void CountPer(benchmark::State& state, const char* what, std::size_t n)
{
    state.counters[what] = benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(n),
                                              benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

enum EBuild { Natural, Periodic, Smoothing };

void BM_SplineBuild(benchmark::State& state)
{
    const Numbers x = Places(state.range(0), true);
    Numbers y = Places(state.range(0), false);
    y.back() = y.front();
    for (auto _ : state)
        benchmark::DoNotOptimize(state.range(1) == Natural    ? CNaturalSpline(x, y)
                                 : state.range(1) == Periodic ? CNaturalSpline::Periodic(x, y)
                                                              : CNaturalSpline::Smoothing(x, y, 1));
    CountPer(state, "per_point", x.size());
}
BENCHMARK(BM_SplineBuild)
    ->Args({1'000, Natural})
    ->Args({1'000'000, Natural})
    ->Args({1'000, Periodic})
    ->Args({1'000, Smoothing})
    ->Unit(benchmark::kMicrosecond);

// Knots; queries, between 0 and the last knot; sorted or not.
void BM_SplineValues(benchmark::State& state)
{
    const Numbers x = Places(state.range(0), true);
    const CNaturalSpline spline(x, Places(state.range(0), false));
    Numbers queries = Places(state.range(1), state.range(2) != 0);
    const double scale = x.back() / *std::max_element(queries.begin(), queries.end());
    for (double& q : queries) q *= scale;
    Numbers values(queries.size());
    for (auto _ : state) {
        spline.Values(queries.data(), queries.size(), values.data());
        benchmark::ClobberMemory();
    }
    CountPer(state, "per_value", queries.size());
}
BENCHMARK(BM_SplineValues)
    ->Args({100, 10'000, true})
    ->Args({1'000, 10'000, true})
    ->Args({10'000, 10'000, true})
    ->Args({1'000, 10'000, false})
    ->Args({100'000, 10'000, false})
    ->Unit(benchmark::kMicrosecond);

} // namespace
