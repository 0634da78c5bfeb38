#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "bench_data.h"

namespace {

using VoAlgo::CTrafo;
using Vec3 = kdtree::Vector<3>;

/// A point set without features.
class Scan : public prereg::CPointSet {
public:
    explicit Scan(const bench::Cloud& cloud) : CPointSet(cloud.points, cloud.normals) {}
};

prereg::ConfigurationICP Settings()
{
    prereg::ConfigurationICP icp; // 500 samples, at most 10 iterations
    icp.dMinQueryRadius = 1.2;
    icp.dPositionTolerance = 1.2;
    icp.dInitialQueryRadiusScaling = 5.0;
    icp.dMaxRMSE = 1.0;
    return icp;
}

/// Two samplings of one surface, 40,000 points each, the start 5° and 3 mm off.
struct Case {
    bench::Cloud fix = bench::WavySurface(200, 1);
    bench::Cloud flt = bench::WavySurface(200, 2);
    CTrafo start{Vec3(0.05F, -0.05F, 0.05F), Vec3(-3.0F, 3.0F, 2.0F)};
};

void Report(benchmark::State& state, const prereg::ICPResult& result)
{
    state.counters["degreesLeft"] = static_cast<double>(result.trafo.GetRotationDistance(CTrafo())) * 57.29577951308232;
    state.counters["type"] = result.resultType;
}

void IcpWithTree(benchmark::State& state)
{
    const Case c;
    const Scan flt(c.flt);
    prereg::ICPResult result;
    for (auto _ : state) result = Scan(c.fix).ComputeICPRegistration(Settings(), flt, c.start);
    Report(state, result);
}
BENCHMARK(IcpWithTree)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

void Icp(benchmark::State& state)
{
    const Case c;
    const Scan fix(c.fix);
    const Scan flt(c.flt);
    prereg::ICPResult result;
    for (auto _ : state) result = fix.ComputeICPRegistration(Settings(), flt, c.start);
    Report(state, result);
}
BENCHMARK(Icp)->Unit(benchmark::kMillisecond)->Apply(bench::Repeat);

} // namespace
