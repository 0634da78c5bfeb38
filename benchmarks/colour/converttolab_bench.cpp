#include "VoAlgorithms/colour/converttolab.h"
#include "bench_data.h"

namespace {

using namespace VoAlgo::cs;

constexpr std::size_t Pixels = 10'000'000;

/// A smooth picture of n pixels with a scanner's noise.
template <class Pixel>
std::vector<Pixel> Picture()
{
    std::mt19937 engine(1);
    std::normal_distribution<double> noise(0, 3);
    std::vector<Pixel> picture(Pixels);
    for (std::size_t i = 0; i < Pixels; ++i) {
        const auto phase = static_cast<double>(i) * 1e-3;
        picture[i] = Pixel(RGB(128 + 127 * std::sin(phase) + noise(engine), 128 + 100 * std::cos(1.3 * phase),
                               90 + 60 * std::sin(0.7 * phase) + noise(engine)));
    }
    return picture;
}

template <class Pixel, class Work>
void Run(benchmark::State& state, const Work& work)
{
    const std::vector<Pixel> from = Picture<Pixel>();
    std::vector<Lab> to(Pixels);
    for (auto _ : state) {
        work(from, to);
        benchmark::ClobberMemory();
    }
    state.counters["pixel"] = bench::PerUnit(static_cast<double>(Pixels));
}

/// The cost of moving the same bytes.
void BM_Memcpy(benchmark::State& state)
{
    Run<RGB>(state, [](const auto& from, auto& to) {
        std::memcpy(static_cast<void*>(to.data()), from.data(), Pixels * sizeof(RGB));
    });
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

template <class Pixel>
void BM_OneByOne(benchmark::State& state)
{
    Run<Pixel>(state, [](const auto& from, auto& to) {
        for (std::size_t i = 0; i < Pixels; ++i) to[i] = Lab(RGB(from[i]));
    });
}
BENCHMARK(BM_OneByOne<RGB>)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);
BENCHMARK(BM_OneByOne<RGB::Packed>)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

template <class Pixel>
void BM_ConvertToLab(benchmark::State& state)
{
    Run<Pixel>(state, [](const auto& from, auto& to) { ConvertToLab(from, to); });
}
BENCHMARK(BM_ConvertToLab<RGB>)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);
BENCHMARK(BM_ConvertToLab<RGB::Packed>)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

} // namespace
