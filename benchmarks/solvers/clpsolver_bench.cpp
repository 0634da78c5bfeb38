#include "VoAlgorithms/solvers/cdoptimaldesign.h"
#include "VoAlgorithms/solvers/clpsolver.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

namespace {

using VoAlgo::TMatrix;
using VoAlgo::TVector;

/// Planes that touch the unit ball; unknowns, planes for each of them.
TMatrix<double> TangentPlanes(std::int64_t unknowns, std::int64_t planes)
{
    std::mt19937 engine(1);
    std::normal_distribution<double> normal;
    TMatrix<double> a(planes * unknowns, unknowns);
    for (std::int64_t i = 0; i < planes * unknowns; ++i) {
        TVector<double> row(unknowns);
        for (double& e : row) e = normal(engine);
        const double norm = row.Norm();
        for (std::int64_t j = 0; j < unknowns; ++j) a(i, j) = row[j] / norm;
    }
    return a;
}

// The start far outside: both phases.
void BM_LinearProgramme(benchmark::State& state)
{
    const TMatrix<double> a = TangentPlanes(state.range(0), 6);
    TVector<double> b(a.Rows(), 1.0);
    for (std::uint32_t i = 0; i < a.Rows(); ++i) b[i] += a(i, 0) * 100; // the ball lies at (100, 0, …)
    const TVector<double> c(state.range(0), -1.0);
    for (auto _ : state) {
        VoAlgo::CLPSolver solver(a, b, c);
        if (!solver.Run()) state.SkipWithError("no optimum");
    }
}
BENCHMARK(BM_LinearProgramme)->Arg(3)->Arg(10)->Arg(30)->Unit(benchmark::kMicrosecond);

// Candidates, of which a tenth is chosen, for six parameters; one start.
void BM_OptimalDesign(benchmark::State& state)
{
    VoAlgo::CDOptimalDesign design(TangentPlanes(6, state.range(0) / 6));
    design.SetLogging(false);
    TVector<int> chosen;
    for (auto _ : state)
        if (!design.Run(static_cast<int>(state.range(0) / 10), chosen, 1)) state.SkipWithError("no design");
}
BENCHMARK(BM_OptimalDesign)->Arg(120)->Arg(1'200)->Unit(benchmark::kMillisecond);

} // namespace
