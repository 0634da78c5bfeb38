#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "VoAlgorithms/solvers/cnlssolver.h"

#include "support/cerr_capture.h"
#include "support/nist.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using VoAlgo::CNLSSolver;
using Vector = VoAlgo::TVector<double>;
using Matrix = VoAlgo::TMatrix<double>;

/// Five bells of equal width, each with a height and a place: ten parameters. Adds up its own time and evaluations.
class Bells : public VoAlgo::CNLSObjectiveFunction {
public:
    explicit Bells(int m) : CNLSObjectiveFunction(2 * Count, m), y_(m)
    {
        std::mt19937 engine(1);
        std::normal_distribution<double> noise(0, 0.01);
        const Vector truth = Start(0);
        for (int i = 0; i < m; ++i) y_[i] = Model(truth, i) + noise(engine);
    }

    /// Away from the truth by a share.
    static Vector Start(double away)
    {
        Vector p(2 * Count);
        for (int b = 0; b < Count; ++b) {
            p[2 * b] = (1 + 0.3 * b) * (1 + away);
            p[2 * b + 1] = 0.1 + 0.2 * b + 0.1 * away;
        }
        return p;
    }

    Vector Error(const Vector& p) override
    {
        const Clock clock(seconds);
        ++evaluations;
        Vector r(y_.Size());
        for (std::size_t i = 0; i < r.Size(); ++i) r.Data()[i] = Model(p, static_cast<int>(i)) - y_.Data()[i];
        return r;
    }
    Matrix Jacobian(const Vector& p) override
    {
        const Clock clock(seconds);
        Matrix J(y_.Size(), 2 * Count);
        for (int b = 0; b < Count; ++b) {
            const auto height = J.Column(2 * b);
            const auto place = J.Column(2 * b + 1);
            for (std::size_t i = 0; i < y_.Size(); ++i) {
                const double u = (X(static_cast<int>(i)) - p[2 * b + 1]) / Width;
                height[i] = std::exp(-u * u);
                place[i] = p[2 * b] * height[i] * 2 * u / Width;
            }
        }
        return J;
    }

    double seconds = 0;
    std::int64_t evaluations = 0;

private:
    static constexpr int Count = 5;
    static constexpr double Width = 0.08;

    struct Clock {
        explicit Clock(double& sum) : seconds(sum) {}
        ~Clock() { seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }
        Clock(const Clock&) = delete;
        Clock& operator=(const Clock&) = delete;
        double& seconds;
        std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    };

    [[nodiscard]] double X(int i) const { return (i + 0.5) / static_cast<double>(y_.Size()); }
    [[nodiscard]] double Model(const Vector& p, int i) const
    {
        double sum = 0;
        for (int b = 0; b < Count; ++b) {
            const double u = (X(i) - p[2 * b + 1]) / Width;
            sum += p[2 * b] * std::exp(-u * u);
        }
        return sum;
    }

    Vector y_;
};

void Fit(benchmark::State& state, bool robust)
{
    Bells problem(static_cast<int>(state.range(0)));
    CNLSSolver solver(problem, robust, 0);
    solver.SetLogging(false);
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        Vector params = Bells::Start(0.2);
        double rmse = 0;
        benchmark::DoNotOptimize(solver.Run(params, rmse, 20, 1e-3, 0, CNLSSolver::Gibbs));
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["objective_share"] = problem.seconds / total;
    state.SetItemsProcessed(problem.evaluations * state.range(0));
}

void BM_Fit(benchmark::State& state)
{
    Fit(state, false);
}
BENCHMARK(BM_Fit)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_RobustFit(benchmark::State& state)
{
    Fit(state, true);
}
BENCHMARK(BM_RobustFit)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

/// A cheap objective inside many rows, so that the time goes into the constraints: r = M·p − y inside of a box and of
/// as many slanted rows, its unconstrained minimum far outside.
class Corner : public VoAlgo::CNLSObjectiveFunction {
public:
    explicit Corner(int n) : CNLSObjectiveFunction(n, 2 * n), M_(2 * n, n)
    {
        std::mt19937 engine(1);
        std::normal_distribution<double> normal;
        for (int j = 0; j < n; ++j) {
            for (double& e : M_.Column(j)) e = normal(engine);
            AddBounds(j, -1, 1);
        }
        for (int i = 0; i < 2 * n; ++i) {
            Vector row(n);
            for (double& e : row) e = normal(engine);
            AddInequality(row, row.Norm());
        }
    }
    Vector Error(const Vector& p) override { return M_ * p - Vector(M_.Rows(), 3.0); }
    Matrix Jacobian(const Vector&) override { return M_; }

private:
    Matrix M_;
};

// Parameters; a refined fit from the centre and five random starts.
void BM_ConstrainedFit(benchmark::State& state)
{
    Corner problem(static_cast<int>(state.range(0)));
    CNLSSolver solver(problem, false, 0);
    solver.SetLogging(false);
    solver.SetRefinement(true);
    for (auto _ : state) {
        Vector params(state.range(0), 0.01);
        double rmse = 0;
        benchmark::DoNotOptimize(solver.Run(params, rmse, 100, 1e-3, 5, CNLSSolver::Gibbs));
    }
}
BENCHMARK(BM_ConstrainedFit)->Arg(3)->Arg(10)->Arg(30)->Unit(benchmark::kMicrosecond);

// The certified problems: the table of docs/nist.md.
void BM_Nist(benchmark::State& state, const nist::Problem& problem, const std::vector<double>& start)
{
    nist::Objective objective(problem);
    Vector params;
    double iterations = 0;
    for (auto _ : state) {
        const CerrCapture capture;
        params = Vector(start.size());
        std::copy(start.begin(), start.end(), params.begin());
        double rmse = 0;
        const auto result = CNLSSolver(objective, false, 0).Run(params, rmse, 1000, 1e-3, 0, CNLSSolver::Gibbs);
        const std::string log = capture.Text();
        iterations = std::strtod(log.c_str() + log.find("after ") + 6, nullptr);
        state.SetLabel(CNLSSolver::ResultText(result));
    }
    state.counters["digits"] = nist::Digits(problem, params);
    state.counters["iterations"] = iterations;
}

const bool registered = [] {
    static const std::vector<nist::Problem> problems = nist::ReadAll(VOALGO_SOURCE_DIR "/tests/data/nist");
    for (const nist::Problem& problem : problems)
        for (const int start : {0, 1})
            benchmark::RegisterBenchmark(("BM_Nist/" + problem.name + "/" + std::to_string(start + 1)).c_str(), BM_Nist,
                                         problem, problem.start[start])
                ->Unit(benchmark::kMicrosecond);
    return true;
}();

} // namespace
