#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "bench_data.h"
#include "prereg/cfpfhpolygon.h"

namespace {

prereg::CFPFHPointSet FeaturesOf(const bench::Cloud& cloud)
{
    prereg::CFPFHDataSource source(5.5, 25, 0, false);
    source.Update(cloud.points, cloud.normals);
    return prereg::CFPFHPointSet(source);
}

/// Seeding, look-ups, consistent assignment and fit of one proposal on the sample scans; the argument is the number of
/// vertices.
void OneProposal(benchmark::State& state)
{
    const prereg::CFPFHPointSet fix = FeaturesOf(bench::ReadExample("hippo1.ply"));
    const prereg::CFPFHPointSet flt = FeaturesOf(bench::ReadExample("hippo2.ply"));
    prereg::ConfigurationFPFH config;
    config.uiNumPolygonVertices = static_cast<std::uint32_t>(state.range(0));
    config.dMaxPolygonDiameter = 18.0;
    config.dMaxPolygonVertexError = 1.4;
    const prereg::CFPFHClusterAnalysis noClusters;
    std::mt19937 engine(1);
    for (auto _ : state) {
        const prereg::CFPFHPolygon polygon(engine, flt, noClusters, config, -1.0);
        benchmark::DoNotOptimize(prereg::CFPFHPolygon::ComputePreRegistration(polygon, fix, flt, config));
    }
    state.counters["features"] = static_cast<double>(fix.SizeFeatures());
}
BENCHMARK(OneProposal)->Arg(3)->Arg(4)->Arg(10)->Unit(benchmark::kMicrosecond)->Apply(bench::Repeat);

} // namespace
