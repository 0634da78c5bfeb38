#include "VoAlgorithms/raster/cintpartition.h"
#include "VoAlgorithms/raster/crangepartition.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

using VoAlgo::CIntPartition;
using VoAlgo::PixelRect;

constexpr std::int64_t Side = 1 << 20;

/// 0: anywhere, up to 1,000 wide; 1: strips side by side; 2: cells of a grid with gaps.
std::vector<PixelRect> Rectangles(std::int64_t kind, std::int64_t n)
{
    std::mt19937 engine(1);
    std::uniform_int_distribution<std::int64_t> place(0, Side - 1), size(1, 1000);
    std::vector<PixelRect> rectangles;
    for (std::int64_t i = 0; i < n; ++i) {
        const std::int64_t x = kind == 0 ? place(engine) : kind == 1 ? i : i % 1000 * 1000;
        const std::int64_t y = kind == 0 ? place(engine) : kind == 1 ? 0 : i / 1000 * 1000;
        const std::int64_t width = kind == 0 ? size(engine) : kind == 1 ? 1 : 990;
        const std::int64_t height = kind == 0 ? size(engine) : kind == 1 ? Side : 990;
        rectangles.push_back({x, y, x + width, y + height});
    }
    return rectangles;
}

CIntPartition Painted(const std::vector<PixelRect>& rectangles)
{
    CIntPartition partition({0, 0, Side, Side});
    for (std::size_t i = 0; i < rectangles.size(); ++i) partition.Set(rectangles[i], static_cast<int>(i));
    return partition;
}

void CountPer(benchmark::State& state, const char* unit)
{
    state.counters[unit] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                                              benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Set(benchmark::State& state)
{
    const std::vector<PixelRect> rectangles = Rectangles(state.range(1), state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(Painted(rectangles).NumRectangles());
    CountPer(state, "per_rectangle");
}

void BM_Locate(benchmark::State& state)
{
    const std::vector<PixelRect> rectangles = Rectangles(state.range(1), state.range(0));
    const CIntPartition partition = Painted(rectangles);
    std::mt19937 engine(2);
    for (auto _ : state)
        for (std::int64_t i = 0; i < state.range(0); ++i)
            benchmark::DoNotOptimize(partition.Locate(engine() % Side, engine() % Side));
    CountPer(state, "per_place");
    state.counters["pieces"] = static_cast<double>(partition.NumRectangles());
}
BENCHMARK(BM_Set)->ArgsProduct({{10'000, 1'000'000}, {0, 1, 2}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Locate)->ArgsProduct({{10'000, 1'000'000}, {0, 1, 2}})->Unit(benchmark::kMillisecond);

} // namespace
