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

/// A patch of about 2 % of the points moves up and down.
void BM_IncrementalUpdate(benchmark::State& state)
{
    constexpr float Lift = 2.0F;
    constexpr float PatchRadius = 10.7F;
    const auto radius = 0.1 * static_cast<double>(state.range(0));
    const bench::Cloud& cloud = Surface();
    std::vector<Vec3> lifted = cloud.points;
    std::size_t changed = 0;
    for (Vec3& p : lifted) {
        const Vec3 fromCentre = Vec3(60.0F, 60.0F, 0.0F) - Vec3(p.x, p.y, 0.0F);
        if (fromCentre.NormSq() > PatchRadius * PatchRadius) continue;
        p.z += Lift;
        ++changed;
    }
    prereg::CFPFHDataSource source(radius, 0, 1, true);
    source.Update(cloud.points, cloud.normals);
    bool up = false;
    for (auto _ : state) {
        up = !up;
        source.Update(up ? lifted : cloud.points, cloud.normals);
    }
    state.counters["changed"] = static_cast<double>(changed) / static_cast<double>(lifted.size());
}
/// The same from scratch, to compare with.
void BM_FullUpdate(benchmark::State& state)
{
    const bench::Cloud& cloud = Surface();
    prereg::CFPFHDataSource source(0.1 * static_cast<double>(state.range(0)), 0, 1, false);
    for (auto _ : state) source.Update(cloud.points, cloud.normals);
}
BENCHMARK(BM_FullUpdate)
    ->ArgName("radius_0.1mm")
    ->Arg(30)
    ->Arg(60)
    ->Unit(benchmark::kMillisecond)
    ->Apply(bench::Repeat);
BENCHMARK(BM_IncrementalUpdate)
    ->ArgName("radius_0.1mm")
    ->Arg(30)
    ->Arg(60)
    ->Unit(benchmark::kMillisecond)
    ->Apply(bench::Repeat);

} // namespace
