#include "VoAlgorithms/raster/ctriangle2d.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using VoAlgo::CTriangle2D;
using Point = CTriangle2D::Point;

void CountPer(benchmark::State& state, const char* unit, double perIteration)
{
    state.counters[unit] = benchmark::Counter(static_cast<double>(state.iterations()) * perIteration,
                                              benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// 0: anywhere; 1: on a lattice of 64 × 64, many on lines and circles; 2: on a line and a circle up to rounding.
std::vector<Point> Points(std::int64_t kind, bool isCircle)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> any(0, 6);
    std::vector<Point> points(4096);
    for (Point& p : points) {
        const double t = any(engine);
        if (kind == 0) p = {t, any(engine)};
        if (kind == 1) p = {std::floor(t * 10), std::floor(any(engine) * 10)};
        if (kind == 2) p = isCircle ? Point{std::cos(t), std::sin(t)} : Point{t, 0.3 * t};
    }
    return points;
}

void BM_Orientation(benchmark::State& state)
{
    const std::vector<Point> p = Points(state.range(0), false);
    for (auto _ : state) {
        int sum = 0;
        for (std::size_t i = 0; i + 2 < p.size(); ++i) sum += CTriangle2D::Orientation(p[i], p[i + 1], p[i + 2]);
        benchmark::DoNotOptimize(sum);
    }
    CountPer(state, "per_sign", static_cast<double>(p.size() - 2));
}
BENCHMARK(BM_Orientation)->DenseRange(0, 2);

void BM_InCircle(benchmark::State& state)
{
    const std::vector<Point> p = Points(state.range(0), true);
    for (auto _ : state) {
        int sum = 0;
        for (std::size_t i = 0; i + 3 < p.size(); ++i) sum += CTriangle2D::InCircle(p[i], p[i + 1], p[i + 2], p[i + 3]);
        benchmark::DoNotOptimize(sum);
    }
    CountPer(state, "per_sign", static_cast<double>(p.size() - 3));
}
BENCHMARK(BM_InCircle)->DenseRange(0, 2);

// Four points of a unit square: every other in-circle test of a triangulated grid.
void BM_InCircleOfSquares(benchmark::State& state)
{
    for (auto _ : state)
        for (double x = 0; x < 1000; ++x)
            benchmark::DoNotOptimize(CTriangle2D::InCircle({x, 7}, {x + 1, 7}, {x + 1, 8}, {x, 8}));
    CountPer(state, "per_sign", 1000);
}
BENCHMARK(BM_InCircleOfSquares);

// Triangles of about the given size, anywhere in an image of 1000 × 1000, with three interpolated values.
void BM_Rasterise(benchmark::State& state)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> offset(0, static_cast<double>(state.range(0))), place(0, 1000);
    std::vector<CTriangle2D> triangles;
    for (int i = 0; i < 1000; ++i) {
        const double x = place(engine), y = place(engine);
        const auto any = [&] { return Point{x + offset(engine), y + offset(engine)}; };
        triangles.emplace_back(any(), any(), any());
    }
    const std::array<std::array<double, 3>, 3> values = {{{1, 2, 3}, {4, 5, 6}, {7, 8, 10}}};
    double numPixels = 0;
    for (auto _ : state) {
        double sum = 0;
        numPixels = 0;
        for (const CTriangle2D& t : triangles)
            t.ForEachRun({0, 0, 1000, 1000}, values, [&](auto, auto xBegin, auto xEnd, auto& value, auto& step) {
                sum += value[0] + step[2];
                numPixels += static_cast<double>(xEnd - xBegin);
            });
        benchmark::DoNotOptimize(sum);
    }
    CountPer(state, "per_triangle", 1000);
    state.counters["pixels_per_triangle"] = numPixels / 1000;
}
BENCHMARK(BM_Rasterise)->Arg(4)->Arg(16)->Arg(256);

} // namespace
