#include "VoAlgorithms/raster/clineraster.h"

#include <benchmark/benchmark.h>

#ifdef VOALGO_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <array>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using VoAlgo::CLineRaster;

constexpr int Size = 1024;

/// Lines of about the given length anywhere in an image.
std::vector<std::array<int, 4>> Lines(std::int64_t length)
{
    std::mt19937 engine(1);
    std::uniform_int_distribution<int> any(0, Size - 1);
    std::vector<std::array<int, 4>> lines;
    while (lines.size() < 500) {
        const std::array<int, 4> l = {any(engine), any(engine), any(engine), any(engine)};
        const std::int64_t dx = l[2] - l[0], dy = l[3] - l[1], lengthSq = dx * dx + dy * dy;
        if (lengthSq < length * length && 4 * lengthSq > length * length) lines.push_back(l);
    }
    return lines;
}

template <class Draw>
void Run(benchmark::State& state, Draw&& draw)
{
    const auto lines = Lines(state.range(0));
    std::vector<std::uint8_t> image(Size * Size);
    double numPixels = 0;
    for (const auto& l : lines) CLineRaster::ForEachPixel(l[0], l[1], l[2], l[3], [&](int, int) { ++numPixels; });
    for (auto _ : state) {
        for (const auto& l : lines) draw(image, l);
        benchmark::ClobberMemory();
    }
    state.counters["per_pixel"] = benchmark::Counter(static_cast<double>(state.iterations()) * numPixels,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_DrawLines(benchmark::State& state)
{
    Run(state, [](std::vector<std::uint8_t>& image, const std::array<int, 4>& l) {
        CLineRaster line(l[0], l[1], l[2], l[3]);
        line.ClipTo({0, 0, Size, Size}).ForEachPixel([&](int x, int y) {
            image[static_cast<std::size_t>(y * Size + x)] = 255;
        });
    });
}
BENCHMARK(BM_DrawLines)->Arg(32)->Arg(1000);

void BM_DrawThickLines(benchmark::State& state)
{
    Run(state, [](std::vector<std::uint8_t>& image, const std::array<int, 4>& l) {
        CLineRaster line(l[0], l[1], l[2], l[3]);
        line.ClipTo({0, 0, Size, Size}).ForEachThickRun(5, [&](int y, auto xBegin, auto xEnd) {
            std::fill(image.begin() + y * Size + xBegin, image.begin() + y * Size + xEnd, std::uint8_t{255});
        });
    });
}
BENCHMARK(BM_DrawThickLines)->Arg(32)->Arg(1000);

#ifdef VOALGO_OPENCV
template <int Thickness>
void BM_DrawLinesOpenCv(benchmark::State& state)
{
    Run(state, [](std::vector<std::uint8_t>& image, const std::array<int, 4>& l) {
        cv::Mat mat(Size, Size, CV_8U, image.data());
        cv::line(mat, {l[0], l[1]}, {l[2], l[3]}, 255, Thickness, cv::LINE_8);
    });
}
BENCHMARK(BM_DrawLinesOpenCv<1>)->Arg(32)->Arg(1000);
BENCHMARK(BM_DrawLinesOpenCv<5>)->Arg(32)->Arg(1000);
#endif

} // namespace
