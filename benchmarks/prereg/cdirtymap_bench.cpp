#include "VoAlgorithms/prereg/cdirtymap.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

// A wavy surface of n points, 0.6 mm apart, line by line.
std::vector<kdtree::Vector<3>> MakeSurface(std::size_t n)
{
    const auto width = static_cast<std::size_t>(std::sqrt(static_cast<double>(n)));
    std::vector<kdtree::Vector<3>> points(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float x = 0.6F * static_cast<float>(i % width);
        const std::size_t line = i / width;
        const float y = 0.6F * static_cast<float>(line);
        points[i] = {x, y, 20.0F * std::sin(0.05F * x) * std::cos(0.04F * y)};
    }
    return points;
}

// First update: every cell is new.
void BM_DirtyMapFirstUpdate(benchmark::State& state)
{
    const auto points = MakeSurface(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        prereg::CDirtyMap map;
        for (const auto& p : points) map.insert(p);
        benchmark::DoNotOptimize(map.cells());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_DirtyMapFirstUpdate)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same points again: every cell is confirmed.
void BM_DirtyMapNextUpdate(benchmark::State& state)
{
    const auto points = MakeSurface(static_cast<std::size_t>(state.range(0)));
    prereg::CDirtyMap map;
    for (auto _ : state) {
        for (const auto& p : points) map.insert(p);
        benchmark::DoNotOptimize(map.dirty());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_DirtyMapNextUpdate)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace
