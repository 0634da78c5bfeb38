#include "VoAlgorithms/solvers/ctspsolver.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

/// Evenly distributed in a square.
std::vector<kdtree::Vector<2>> Uniform(std::int64_t n)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<float> any(0, 1);
    std::vector<kdtree::Vector<2>> points(static_cast<std::size_t>(n));
    for (auto& p : points) p = {{any(engine), any(engine)}};
    return points;
}

// Cities; rounds. The gap, in percent, is to the bound, whose time does not count.
void BM_Tour(benchmark::State& state)
{
    const auto points = Uniform(state.range(0));
    double gap = 0;
    for (auto _ : state) {
        VoAlgo::CTSPSolver solver(points);
        solver.SetRounds(static_cast<unsigned>(state.range(1)));
        benchmark::DoNotOptimize(solver.Solve());
        state.PauseTiming();
        gap = solver.GetGap();
        state.ResumeTiming();
    }
    state.counters["gap_percent"] = 100 * gap;
    state.counters["per_city"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(points.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Tour)
    ->Args({12, 0})
    ->Args({1'000, 0})
    ->Args({1'000, 4'000})
    ->Args({1'000, 40'000})
    ->Args({100'000, 0})
    ->Unit(benchmark::kMillisecond);

void BM_TourBound(benchmark::State& state)
{
    VoAlgo::CTSPSolver solver(Uniform(state.range(0)));
    solver.SetRounds(0);
    for (auto _ : state) {
        state.PauseTiming();
        benchmark::DoNotOptimize(solver.Solve());
        state.ResumeTiming();
        benchmark::DoNotOptimize(solver.GetLowerBound());
    }
}
BENCHMARK(BM_TourBound)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

} // namespace
