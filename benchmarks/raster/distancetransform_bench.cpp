#include "VoAlgorithms/raster/distancetransform.h"

#include <benchmark/benchmark.h>

#ifdef VOALGO_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <array>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr int Size = 4096;
const std::array<const char*, 6> Kinds = {"noise of 1/2", "noise of 1/1000", "discs", "one pixel", "empty", "full"};

std::vector<std::uint8_t> Mask(std::int64_t kind)
{
    std::mt19937 engine(1);
    std::vector<std::uint8_t> mask(Size * Size, kind == 5);
    if (kind == 0)
        for (std::uint8_t& m : mask) m = engine() >> 31 != 0;
    if (kind == 1)
        for (std::uint8_t& m : mask) m = engine() % 1000 == 0;
    for (int disc = 0; kind == 2 && disc < 60; ++disc) {
        const int x0 = static_cast<int>(engine() % Size), y0 = static_cast<int>(engine() % Size);
        const int r = 20 + static_cast<int>(engine() % 300);
        for (int y = std::max(y0 - r, 0); y < std::min(y0 + r, Size); ++y)
            for (int x = std::max(x0 - r, 0); x < std::min(x0 + r, Size); ++x)
                if ((x - x0) * (x - x0) + (y - y0) * (y - y0) < r * r) mask[static_cast<std::size_t>(y * Size + x)] = 1;
    }
    if (kind == 3) mask[Size * 1000 + 1234] = 1;
    return mask;
}

void Report(benchmark::State& state)
{
    state.SetLabel(Kinds[static_cast<std::size_t>(state.range(0))]);
    state.counters["per_pixel"] = benchmark::Counter(static_cast<double>(state.iterations()) * Size * Size,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_DistanceTransform(benchmark::State& state)
{
    const std::vector<std::uint8_t> mask = Mask(state.range(0));
    std::vector<std::uint64_t> squared(mask.size()); // fresh memory would cost more than the distances
    for (auto _ : state) VoAlgo::DistanceTransform({mask.data(), Size, Size}, squared);
    Report(state);
}
BENCHMARK(BM_DistanceTransform)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

#ifdef VOALGO_OPENCV
void BM_DistanceTransformOpenCv(benchmark::State& state)
{
    cv::setNumThreads(1);
    std::vector<std::uint8_t> mask = Mask(state.range(0));
    for (std::uint8_t& m : mask) m = m == 0; // measures to the nearest 0
    const cv::Mat image(Size, Size, CV_8U, mask.data());
    cv::Mat distance(Size, Size, CV_32F, cv::Scalar(0));
    for (auto _ : state) cv::distanceTransform(image, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
    Report(state);
}
BENCHMARK(BM_DistanceTransformOpenCv)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);
#endif

} // namespace
