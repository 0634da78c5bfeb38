#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/clustering/cmeanshiftclusterer3d.h"
#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"

#include "prereg/detail_kmeans.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace {

using prereg::CPointFeatureHistogram;

// Histograms like those of a scan: sums of a few bumps per block around one of `kinds` shapes.
std::vector<CPointFeatureHistogram> MakeHistograms(std::size_t n, unsigned kinds)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<float> uniform(0.0F, 1.0F);
    std::normal_distribution<float> noise(0.0F, 0.4F);
    std::vector<std::array<float, 6>> shapes(kinds); // position and width of the bump of each block
    for (auto& shape : shapes)
        for (std::size_t k = 0; k < 6; ++k) shape[k] = k % 2 == 0 ? 10.0F * uniform(engine) : 0.8F + uniform(engine);
    std::vector<CPointFeatureHistogram> histograms(n);
    for (std::size_t i = 0; i < n; ++i) {
        const auto& shape = shapes[i % kinds];
        for (std::size_t block = 0; block < 3; ++block) {
            const float centre = shape[2 * block] + noise(engine);
            for (std::size_t b = 0; b < 11; ++b) {
                const float x = (static_cast<float>(b) - centre) / shape[2 * block + 1];
                histograms[i][11 * block + b] = std::exp(-0.5F * x * x) * (1.0F + 0.25F * noise(engine)) + 0.001F;
            }
        }
        histograms[i].Normalize();
    }
    return histograms;
}

float Chi2(std::size_t, const float* a, const float* b)
{
    return reinterpret_cast<const CPointFeatureHistogram*>(a)->SquaredChi2Distance(
        *reinterpret_cast<const CPointFeatureHistogram*>(b));
}

// The bandwidth gives 55 clusters.
void BM_MeanShiftHistograms(benchmark::State& state)
{
    const auto n = static_cast<std::size_t>(state.range(0));
    const std::vector<CPointFeatureHistogram> histograms = MakeHistograms(n, 60);
    unsigned clusters = 0;
    for (auto _ : state) {
        VoAlgo::CMeanShiftClusterer clusterer(histograms[0].bins, n, CPointFeatureHistogram::NumBins, 0.6F);
        benchmark::DoNotOptimize(clusterer.Run(Chi2));
        clusters = clusterer.GetNumClusters();
    }
    state.counters["clusters"] = clusters;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MeanShiftHistograms)->Arg(2000)->Unit(benchmark::kMillisecond);

// The clustering of a whole scan's features.
void BM_KMeansHistograms(benchmark::State& state)
{
    const std::vector<CPointFeatureHistogram> histograms = MakeHistograms(static_cast<std::size_t>(state.range(0)), 60);
    for (auto _ : state) benchmark::DoNotOptimize(prereg::detail::ClusterByKMeans(histograms, 10));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_KMeansHistograms)->Arg(40000)->Unit(benchmark::kMillisecond);

void BM_MeanShift3D(benchmark::State& state)
{
    const auto n = static_cast<std::size_t>(state.range(0));
    std::mt19937 engine(2);
    std::uniform_real_distribution<float> uniform(0.0F, 100.0F);
    std::vector<std::array<float, 3>> points(n);
    for (auto& p : points)
        for (float& x : p) x = uniform(engine);
    unsigned clusters = 0;
    for (auto _ : state) {
        VoAlgo::CMeanShiftClusterer3D clusterer(points, 10.0F);
        benchmark::DoNotOptimize(clusterer.Run());
        clusters = clusterer.GetNumClusters();
    }
    state.counters["clusters"] = clusters;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MeanShift3D)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMicrosecond);

} // namespace
