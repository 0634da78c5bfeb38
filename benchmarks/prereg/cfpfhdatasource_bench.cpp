#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "bench_data.h"

namespace {

using Vec3 = kdtree::Vector<3>;

constexpr std::size_t SurfaceSide = 224; // 50,176 points
constexpr double Radius = 5.97;          // mm, about 278 neighbours

const bench::Cloud& Surface()
{
    static const bench::Cloud cloud = bench::WavySurface(SurfaceSide);
    return cloud;
}

/// Number of pairs of one of the places and another point within the radius.
double NeighbourPairs(const std::vector<Vec3>& places, const std::vector<Vec3>& points)
{
    const kdtree::TKdTree<3, 48> tree(&points[0].x, points.size(), 4);
    const auto r = static_cast<float>(Radius);
    std::vector<int> found;
    double pairs = 0.0;
    for (const Vec3& p : places) {
        tree.AllWithin(&p.x, r * r, found);
        pairs += static_cast<double>(found.size() - 1);
    }
    return pairs;
}

/// Both stages with all that belongs to an update. A pair counts half for each stage, for a point whose surroundings
/// are cut off by a border of the scan gets no second one. With several threads the time per pair adds up that of all.
void BM_Features(benchmark::State& state)
{
    const bench::Cloud& cloud = Surface();
    prereg::CFPFHDataSource source(Radius, 0, static_cast<unsigned>(state.range(0)), false);
    for (auto _ : state) source.Update(cloud.points, cloud.normals);
    const double pairs = NeighbourPairs(cloud.points, cloud.points);
    const double featurePairs = NeighbourPairs(source.GetFeaturePoints(), cloud.points);
    state.counters["pair"] = bench::PerUnit(0.5 * (pairs + featurePairs));
    state.counters["neighbours"] = pairs / static_cast<double>(cloud.points.size());
}
BENCHMARK(BM_Features)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->Apply(bench::Repeat);

/// A square of the second argument's side, in points.
bench::Cloud Square(const benchmark::State& state)
{
    return bench::WavySurface(static_cast<std::size_t>(state.range(1)));
}

/// A patch of 2 % of the points moves up and down in the middle, or comes and goes at the border.
void BM_IncrementalUpdate(benchmark::State& state)
{
    constexpr float Lift = 2.0F;
    const auto radius = 0.1 * static_cast<double>(state.range(0));
    const bool atBorder = state.range(2) != 0;
    const bench::Cloud cloud = Square(state);
    const float side = 0.6F * static_cast<float>(state.range(1));
    const Vec3 centre(atBorder ? 0.0F : 0.5F * side, 0.5F * side, 0.0F);
    const float patchSq = (atBorder ? 0.04F : 0.02F) * side * side / 3.14159F;
    bench::Cloud changed;
    for (std::size_t i = 0; i < cloud.points.size(); ++i) {
        const Vec3& p = cloud.points[i];
        const bool isInPatch = (centre - Vec3(p.x, p.y, 0.0F)).NormSq() <= patchSq;
        if (isInPatch && atBorder) continue;
        changed.points.push_back(isInPatch ? p + Vec3(0.0F, 0.0F, Lift) : p);
        changed.normals.push_back(cloud.normals[i]);
    }
    prereg::CFPFHDataSource source(radius, 0, 1, true);
    source.Update(cloud.points, cloud.normals);
    bool isChanged = false;
    for (auto _ : state) {
        isChanged = !isChanged;
        const bench::Cloud& next = isChanged ? changed : cloud;
        source.Update(next.points, next.normals);
    }
}
/// The same from scratch, to compare with.
void BM_FullUpdate(benchmark::State& state)
{
    const bench::Cloud cloud = Square(state);
    prereg::CFPFHDataSource source(0.1 * static_cast<double>(state.range(0)), 0, 1, false);
    for (auto _ : state) source.Update(cloud.points, cloud.normals);
}
void Sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const auto& [radius, side] : {std::pair{30, 224}, {60, 224}, {60, 316}, {60, 448}})
        benchmark->Args({radius, side, 0});
    benchmark->ArgNames({"radius_0.1mm", "side", "border"})->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);
}
BENCHMARK(BM_FullUpdate)->Apply(Sizes);
BENCHMARK(BM_IncrementalUpdate)->Apply(Sizes)->Args({60, 224, 1})->Args({60, 448, 1});

} // namespace
