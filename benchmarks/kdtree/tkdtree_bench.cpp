#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "bench_data.h"

#if __has_include(<nanoflann.hpp>)
#include <nanoflann.hpp>
#endif

#include <array>
#include <cmath>
#include <random>

namespace {

using PointTree = kdtree::TKdTree<3, 48>;
using FeatureTree = kdtree::TKdTree<33, 6>;
using Histogram = prereg::CPointFeatureHistogram;
using Vec3 = kdtree::Vector<3>;

constexpr std::size_t SurfaceSide = 316; // about 100,000 points
constexpr float HitRadiusSq = 3.0F * 3.0F;

const std::vector<Vec3>& Surface()
{
    static const std::vector<Vec3> points = bench::WavySurface(SurfaceSide).points;
    return points;
}

PointTree SurfaceTree()
{
    return {&Surface()[0].x, Surface().size(), 4};
}

/// Points near the surface, like those of a scan that is being fitted to it.
std::vector<Vec3> Queries()
{
    std::mt19937 engine(2);
    std::normal_distribution<float> noise(0.0F, 0.3F);
    std::vector<Vec3> queries(Surface().begin(), Surface().begin() + 4096);
    for (Vec3& q : queries) q += Vec3(noise(engine), noise(engine), noise(engine));
    return queries;
}

void BM_BuildPoints(benchmark::State& state)
{
    Surface();
    for (auto _ : state) benchmark::DoNotOptimize(SurfaceTree().Size());
    state.counters["point"] = bench::PerUnit(static_cast<double>(Surface().size()));
}
BENCHMARK(BM_BuildPoints)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

template <class Query>
void RunQueries(benchmark::State& state, const Query& query)
{
    const PointTree tree = SurfaceTree();
    const std::vector<Vec3> queries = Queries();
    std::size_t found = 0;
    for (auto _ : state)
        for (const Vec3& q : queries) found += query(tree, q);
    const auto asked = static_cast<double>(queries.size());
    state.counters["query"] = bench::PerUnit(asked);
    state.counters["found"] = static_cast<double>(found) / (asked * static_cast<double>(state.iterations()));
}

void BM_Nearest(benchmark::State& state)
{
    RunQueries(state,
               [](const PointTree& tree, const Vec3& q) { return tree.Nearest(&q.x, HitRadiusSq) >= 0 ? 1U : 0U; });
}
BENCHMARK(BM_Nearest)->Unit(benchmark::kMicrosecond)->Apply(bench::Repeat);

void BM_AllWithin(benchmark::State& state)
{
    std::vector<int> found;
    RunQueries(state, [&](const PointTree& tree, const Vec3& q) {
        tree.AllWithin(&q.x, HitRadiusSq, found);
        return found.size();
    });
}
BENCHMARK(BM_AllWithin)->Unit(benchmark::kMicrosecond)->Apply(bench::Repeat);

void BM_NearestFive(benchmark::State& state)
{
    std::vector<PointTree::Neighbour> found;
    RunQueries(state, [&](const PointTree& tree, const Vec3& q) {
        tree.NearestK(&q.x, 5, HitRadiusSq, found);
        return found.size();
    });
}
BENCHMARK(BM_NearestFive)->Unit(benchmark::kMicrosecond)->Apply(bench::Repeat);

#if __has_include(<nanoflann.hpp>)
struct Adaptor {
    [[nodiscard]] std::size_t kdtree_get_point_count() const { return Surface().size(); }
    [[nodiscard]] float kdtree_get_pt(std::size_t i, std::size_t d) const { return Surface()[i][d]; }
    template <class Box>
    bool kdtree_get_bbox(Box& /*unused*/) const
    {
        return false;
    }
};

/// The same queries by nanoflann, leaves of ten points.
void BM_NanoflannNearestFive(benchmark::State& state)
{
    const Adaptor points;
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Adaptor>, Adaptor, 3> tree(3, points);
    tree.buildIndex();
    std::uint32_t indices[5];
    float distancesSq[5];
    RunQueries(state, [&](const PointTree&, const Vec3& q) { return tree.knnSearch(&q.x, 5, indices, distancesSq); });
}
BENCHMARK(BM_NanoflannNearestFive)->Unit(benchmark::kMicrosecond)->Apply(bench::Repeat);
#endif

/// 200 shapes with one bump per block, each repeated many times with noise.
std::vector<Histogram> SyntheticHistograms(std::size_t n)
{
    std::mt19937 engine(3);
    std::uniform_real_distribution<float> uniform(0.0F, 1.0F);
    std::normal_distribution<float> noise;
    std::vector<std::array<float, 6>> shapes(200); // place and width of the bump of each block
    for (auto& shape : shapes)
        for (std::size_t k = 0; k < 6; ++k)
            shape[k] = k % 2 == 0 ? 10.0F * uniform(engine) : 0.8F + 1.5F * uniform(engine);
    std::vector<Histogram> histograms(n);
    for (Histogram& histogram : histograms) {
        const auto& shape = shapes[engine() % shapes.size()];
        for (std::size_t bin = 0; bin < Histogram::NumBins; ++bin) {
            const std::size_t block = bin / Histogram::NumBlockBins;
            const float x =
                (static_cast<float>(bin % Histogram::NumBlockBins) - shape[2 * block]) / shape[2 * block + 1];
            histogram[bin] = std::max(0.0F, std::exp(-0.5F * x * x) * (1.0F + 0.1F * noise(engine)) + 0.005F);
        }
        histogram.Normalize();
    }
    return histograms;
}

std::vector<Histogram> Features(const bench::Cloud& cloud, double radius)
{
    prereg::CFPFHDataSource source(radius, 0, 1, false);
    source.Update(cloud.points, cloud.normals);
    return source.GetFeatures();
}

void BuildFeatures(benchmark::State& state, const std::vector<Histogram>& histograms)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(FeatureTree(histograms[0].bins, histograms.size(), Histogram::NumBins).Size());
    state.counters["histogram"] = bench::PerUnit(static_cast<double>(histograms.size()));
}

/// Looks up every feature of one scan among those of another.
void LookUp(benchmark::State& state, const std::vector<Histogram>& histograms, const std::vector<Histogram>& queries)
{
    constexpr std::size_t MaxQueries = 1000;
    constexpr float MaxDistance = 0.5F;
    const FeatureTree tree(histograms[0].bins, histograms.size(), Histogram::NumBins);
    const std::size_t step = std::max<std::size_t>(1, queries.size() / MaxQueries);
    std::vector<FeatureTree::Neighbour> found;
    std::size_t asked = 0;
    std::size_t total = 0;
    for (auto _ : state) {
        asked = 0;
        for (std::size_t i = 0; i < queries.size(); i += step, ++asked) {
            tree.NearestK(queries[i].bins, 10, MaxDistance * MaxDistance, found);
            total += found.size();
        }
    }
    state.counters["query"] = bench::PerUnit(static_cast<double>(asked));
    state.counters["found"] =
        static_cast<double>(total) / (static_cast<double>(asked) * static_cast<double>(state.iterations()));
    state.counters["histograms"] = static_cast<double>(tree.Size());
}

void BM_BuildHistogramsSynthetic(benchmark::State& state)
{
    BuildFeatures(state, SyntheticHistograms(20000));
}
BENCHMARK(BM_BuildHistogramsSynthetic)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

void BM_BuildHistogramsScan(benchmark::State& state)
{
    BuildFeatures(state, Features(bench::ReadExample("hippo1.ply"), 3.0));
}
BENCHMARK(BM_BuildHistogramsScan)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

void BM_NearestTenHistogramsSynthetic(benchmark::State& state)
{
    std::vector<Histogram> histograms = SyntheticHistograms(21000);
    const std::vector<Histogram> queries(histograms.end() - 1000, histograms.end());
    histograms.resize(20000);
    LookUp(state, histograms, queries);
}
BENCHMARK(BM_NearestTenHistogramsSynthetic)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

void BM_NearestTenHistogramsSurface(benchmark::State& state)
{
    std::vector<Histogram> histograms = Features(bench::WavySurface(145), 3.0);
    const std::vector<Histogram> queries(histograms.end() - 1000, histograms.end());
    histograms.resize(20000);
    LookUp(state, histograms, queries);
}
BENCHMARK(BM_NearestTenHistogramsSurface)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

void BM_NearestTenHistogramsScan(benchmark::State& state)
{
    const std::vector<Histogram> histograms = Features(bench::ReadExample("hippo1.ply"), 3.0);
    const std::vector<Histogram> queries = Features(bench::ReadExample("hippo2.ply"), 3.0);
    LookUp(state, histograms, queries);
}
BENCHMARK(BM_NearestTenHistogramsScan)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

} // namespace
