// Writes a case with two clouds of 500,000 points and 150,000 features each to a stream in memory and reads it back.
#include "VoAlgorithms/documents/records.h"
#include "support/clouds.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace {

using VoAlgo::bson::element;
using VoAlgo::bson::from_object;
using VoAlgo::bson::to_object;

prereg::CFPFHPointSet Scan(unsigned seed)
{
    constexpr std::size_t NumPoints = 500'000, NumFeatures = 150'000;
    const test_support::Cloud points = test_support::Sphere(NumPoints, 100.0F, seed);
    const test_support::Cloud features = test_support::Sphere(NumFeatures, 100.0F, seed + 10);
    test_support::Random random(seed);
    std::vector<prereg::CPointFeatureHistogram> histograms(NumFeatures);
    for (auto& h : histograms)
        for (float& bin : h.bins) bin = random.Uniform(0.0F, 0.2F);
    return {points.points, points.normals, features.points, features.normals, histograms};
}

const prereg::CFPFHPreRegistration& Case()
{
    static const prereg::CFPFHPreRegistration registration(Scan(1), Scan(2), {}, true);
    return registration;
}

const element::object& Document()
{
    static const element::object document = to_object(Case());
    return document;
}

/// Rewound; its memory is allocated before the clock starts.
std::stringstream& Stream()
{
    static std::stringstream stream;
    static const bool isFilled = Document().freeze(stream);
    if (!isFilled) throw std::runtime_error("not written");
    stream.clear();
    stream.seekp(0);
    stream.seekg(0);
    return stream;
}

void CountBytes(benchmark::State& state)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Document().size()));
}

/// The cost of one copy: into memory already in use, or into fresh memory that is released again.
void BM_Memcpy(benchmark::State& state)
{
    const bool isFresh = state.range(0) != 0;
    const auto [source, size] = Document().freeze();
    auto target = std::make_unique<unsigned char[]>(size);
    for (auto _ : state) {
        if (isFresh) target.reset();
        if (isFresh) target = std::make_unique_for_overwrite<unsigned char[]>(size);
        std::memcpy(target.get(), source.get(), size);
        benchmark::DoNotOptimize(target.get());
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}
BENCHMARK(BM_Memcpy)->ArgName("fresh")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_ToObject(benchmark::State& state)
{
    for (auto _ : state) benchmark::DoNotOptimize(to_object(Case()));
    CountBytes(state);
}
BENCHMARK(BM_ToObject)->Unit(benchmark::kMillisecond);

void BM_Freeze(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        std::stringstream& stream = Stream();
        state.ResumeTiming();
        if (!Document().freeze(stream)) state.SkipWithError("not written");
    }
    CountBytes(state);
}
BENCHMARK(BM_Freeze)->Unit(benchmark::kMillisecond);

void BM_Unfreeze(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        std::stringstream& stream = Stream();
        state.ResumeTiming();
        benchmark::DoNotOptimize(element::object::unfreeze(stream));
    }
    CountBytes(state);
}
BENCHMARK(BM_Unfreeze)->Unit(benchmark::kMillisecond);

/// Includes building the trees and ellipsoids of both sets.
void BM_FromObject(benchmark::State& state)
{
    for (auto _ : state) benchmark::DoNotOptimize(from_object<prereg::CFPFHPreRegistration>(Document()));
    CountBytes(state);
}
BENCHMARK(BM_FromObject)->Unit(benchmark::kMillisecond);

/// Builds both sets from arrays in memory: the part of reading that has nothing to do with the document.
void BM_RebuildSets(benchmark::State& state)
{
    for (auto _ : state)
        for (const auto* set : {&Case().GetFixPointSet(), &Case().GetFltPointSet()})
            benchmark::DoNotOptimize(prereg::CFPFHPointSet(set->GetPoints(), set->GetNormals(), set->GetFeaturePoints(),
                                                           set->GetFeatureNormals(), set->GetFeatures()));
    CountBytes(state);
}
BENCHMARK(BM_RebuildSets)->Unit(benchmark::kMillisecond);

} // namespace
