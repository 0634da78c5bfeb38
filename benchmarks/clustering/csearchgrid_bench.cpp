// The search grid beside the kd-tree: 100,000 points on a surface, filling space, or in clumps of unlike density; the
// queries near points, or anywhere in the box of the cloud.
#include "VoAlgorithms/clustering/csearchgrid.h"

#include "VoAlgorithms/kdtree/tkdtree.h"
#include "bench_data.h"

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

namespace {

using Vec3 = kdtree::Vector<3>;
using Grid = VoAlgo::CSearchGrid;
using Tree = kdtree::TKdTree<3, 48>;

constexpr float Anywhere = std::numeric_limits<float>::infinity();
constexpr float RadiusSq = 1.5F * 1.5F; // about 20 points of the surface

enum ECloud { Surface, Volume, Clumps };

std::vector<Vec3> Points(int cloud)
{
    if (cloud == Surface) return bench::WavySurface(316).points;
    std::mt19937 engine(3);
    std::uniform_real_distribution<float> uniform(0.0F, 40.0F);
    std::normal_distribution<float> normal;
    std::vector<Vec3> points(100'000);
    Vec3 centre;
    float size = 0.0F;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (i % 1000 == 0) {
            centre = {uniform(engine), uniform(engine), uniform(engine)};
            size = std::exp(1.5F * normal(engine) - 2.0F);
        }
        points[i] = cloud == Volume ? Vec3(uniform(engine), uniform(engine), uniform(engine))
                                    : centre + size * Vec3(normal(engine), normal(engine), normal(engine));
    }
    return points;
}

std::vector<Vec3> Queries(const std::vector<Vec3>& points, bool isNear)
{
    std::mt19937 engine(2);
    std::normal_distribution<float> noise(0.0F, 0.3F);
    std::vector<Vec3> queries;
    for (std::size_t i = 0; i < 4096; ++i) {
        const auto any = [&] { return points[engine() % points.size()]; };
        queries.push_back(isNear
                              ? points[i * (points.size() / 4096)] + Vec3(noise(engine), noise(engine), noise(engine))
                              : Vec3(any().x, any().y, any().z));
    }
    return queries;
}

Grid MakeGrid(const std::vector<Vec3>& points)
{
    return Grid(points);
}
Tree MakeTree(const std::vector<Vec3>& points)
{
    return Tree(points.data(), points.size());
}

template <auto Make>
void BM_Build(benchmark::State& state)
{
    const std::vector<Vec3> points = Points(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(Make(points));
    state.counters["point"] = bench::PerUnit(static_cast<double>(points.size()));
}

void BM_BuildWithRadius(benchmark::State& state)
{
    const std::vector<Vec3> points = Points(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(Grid(points, 1.5F));
    state.counters["point"] = bench::PerUnit(static_cast<double>(points.size()));
}

template <class Run>
void Ask(benchmark::State& state, const std::vector<Vec3>& queries, const Run& run)
{
    for (auto _ : state)
        for (const Vec3& q : queries) benchmark::DoNotOptimize(run(q));
    state.counters["query"] = bench::PerUnit(static_cast<double>(queries.size()));
}

void BM_Nearest(benchmark::State& state)
{
    const std::vector<Vec3> points = Points(static_cast<int>(state.range(0)));
    const std::vector<Vec3> queries = Queries(points, state.range(1) != 0);
    const Grid grid(points);
    const Tree tree = MakeTree(points);
    if (state.range(2) != 0)
        Ask(state, queries, [&](const Vec3& q) { return grid.Nearest(q, Anywhere); });
    else
        Ask(state, queries, [&](const Vec3& q) { return tree.Nearest(&q.x, Anywhere); });
}

void BM_NearestFive(benchmark::State& state)
{
    const std::vector<Vec3> points = Points(static_cast<int>(state.range(0)));
    const std::vector<Vec3> queries = Queries(points, state.range(1) != 0);
    const Grid grid(points);
    const Tree tree = MakeTree(points);
    std::vector<Grid::Neighbour> found;
    const auto ask = [&](const auto& search) {
        Ask(state, queries, [&](const Vec3& q) {
            search(q);
            return found.size();
        });
    };
    if (state.range(2) != 0)
        ask([&](const Vec3& q) { grid.NearestK(q, 5, Anywhere, found); });
    else
        ask([&](const Vec3& q) { tree.NearestK(&q.x, 5, Anywhere, found); });
}

void BM_AllWithin(benchmark::State& state)
{
    const std::vector<Vec3> points = Points(static_cast<int>(state.range(0)));
    const std::vector<Vec3> queries = Queries(points, state.range(1) != 0);
    const Grid grid(points, std::sqrt(RadiusSq));
    const Tree tree = MakeTree(points);
    std::vector<int> found;
    const auto ask = [&](const auto& search) {
        Ask(state, queries, [&](const Vec3& q) {
            search(q);
            return found.size();
        });
    };
    if (state.range(2) != 0)
        ask([&](const Vec3& q) { grid.AllWithin(q, RadiusSq, found); });
    else
        ask([&](const Vec3& q) { tree.AllWithin(&q.x, RadiusSq, found); });
}

void Clouds(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("cloud")->Unit(benchmark::kMillisecond)->DenseRange(Surface, Clumps)->Apply(bench::Repeat);
}
void Searches(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"cloud", "near", "grid"})->Unit(benchmark::kMicrosecond)->Apply(bench::Repeat);
    benchmark->ArgsProduct({{Surface, Volume, Clumps}, {1, 0}, {1, 0}});
}
BENCHMARK_TEMPLATE(BM_Build, MakeGrid)->Apply(Clouds);
BENCHMARK_TEMPLATE(BM_Build, MakeTree)->Apply(Clouds);
BENCHMARK(BM_BuildWithRadius)->Apply(Clouds);
BENCHMARK(BM_Nearest)->Apply(Searches);
BENCHMARK(BM_NearestFive)->Apply(Searches);
BENCHMARK(BM_AllWithin)->Apply(Searches);

} // namespace
