#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "solvers/fit.h"
#include "support/nist.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using VoAlgo::CNLSSolver;

Vector Exact(const Vector& p)
{
    return p - Vector{3, 4};
}

// Every fit reaches the certified parameters and deviations from both starts, whatever the units of the parameters. A
// refined one does so whatever rounding makes of the way: starts differ by up to 1e-12.
TEST(CNLSSolver, BothStartsReachTheCertifiedParameters)
{
    std::mt19937 engine(17);
    std::uniform_real_distribution<double> change(-1e-12, 1e-12);
    for (const nist::Problem& problem : nist::ReadAll(VOALGO_SOURCE_DIR "/tests/data/nist"))
        for (int trial = 0; trial < (problem.name == "MGH17" ? 80 : 8); ++trial) {
            SCOPED_TRACE(problem.name + ' ' + std::to_string(trial));
            nist::Objective objective(problem);
            Vector start{std::span<const double>(problem.start[trial % 2])};
            if (trial > 1)
                for (double& e : start) e *= 1 + change(engine);
            const Outcome fit = Fit(objective, start, {.refine = trial > 1});
            EXPECT_GE(nist::Digits(problem, fit.params), 6) << fit.log;
            EXPECT_LE(fit.result, CNLSSolver::SmallStep);
            const auto m = static_cast<double>(problem.y.size()), n = static_cast<double>(start.Size());
            const Matrix covariance = objective.GetCovariance(fit.params, fit.rmse * std::sqrt(m / (m - n)));
            for (std::size_t j = 0; j < start.Size(); ++j)
                EXPECT_NEAR(std::sqrt(covariance(j, j)) / problem.deviation[j], 1, 1e-5) << j;
        }
}

/// The iteration as plainly as it can be put; constraints and robust weights as far as the tests need them.
struct Plain {
    const Problem& problem;
    Vector sigma;
    bool robust = false;

    std::vector<Vector> places = {};
    int iterations = 0;

    static double Median(Vector v)
    {
        std::sort(v.begin(), v.end());
        return (v[(v.Size() - 1) / 2] + v[v.Size() / 2]) / 2;
    }
    [[nodiscard]] Vector Weights(const Vector& r) const
    {
        Vector deviations = r, w(r.Size());
        for (double& e : deviations) e = std::abs(e - Median(r));
        for (std::size_t i = 0; i < r.Size(); ++i) {
            const double share = r[i] / (Median(deviations) / 0.6745) / 4.6851;
            const double biweight = std::abs(share) <= 1 ? std::pow(1 - share * share, 2) : 0;
            w[i] = (robust ? biweight : 1) / (sigma[i] * sigma[i]);
        }
        return w;
    }
    [[nodiscard]] Vector CutBack(const Vector& z, const Vector& h, bool projected) const
    {
        const Matrix& A = problem.GetInequalitiesLHS();
        const Vector& b = problem.GetInequalitiesRHS();
        double nearest = Inf;
        Vector n; // of the nearest row
        for (std::size_t i = 0; i < b.Size(); ++i) {
            const double slack = b[i] - A.Row(i).Dot(z);
            const double t = std::abs(slack) < 1e-12 ? 0 : slack / A.Row(i).Dot(h * (1 / h.Norm()));
            if (t >= 0 && t < nearest) {
                nearest = t;
                n = A.Row(i) * (1 / A.Row(i).Norm());
            }
        }
        if (!projected && nearest < 2.3e-15) {
            const Vector along = h - n * h.Dot(n);
            return along.Norm() < 1e-14 * h.Norm() ? along * 0.0 : CutBack(z, along, true);
        }
        return h.Norm() > nearest ? h * (nearest / h.Norm()) : h;
    }
    int Fit(Vector z, double tau, int maxIter)
    {
        const double eps = 4.440892098500626e-16;
        places.push_back(z);
        Vector r = problem.residuals(z), g;
        Matrix N;
        const auto linearise = [&] {
            const Vector w = Weights(r);
            const Matrix J = problem.derivatives(z);
            Matrix WJ = J;
            g = Vector(z.Size());
            for (std::size_t j = 0; j < z.Size(); ++j)
                for (std::size_t i = 0; i < r.Size(); ++i) g[j] += (WJ(i, j) *= w[i]) * r[i];
            N = J.Transposed() * WJ;
        };
        linearise();
        double mu = 0, nu = 1;
        for (std::size_t j = 0; j < z.Size(); ++j) mu = std::max(mu, tau * N(j, j));
        while (++iterations <= maxIter) {
            if (g.MaxAbs() <= eps || r.MaxAbs() <= eps) return 0;
            Vector h(z.Size());
            Matrix damped = N;
            for (std::size_t j = 0; j < z.Size(); ++j) damped(j, j) += mu;
            if (!VoAlgo::lapack::lssolve(damped, -g, h)) return 4;
            if (problem.HasInequalities()) h = CutBack(z, h, false);
            if (h.Norm() <= eps * (z.Norm() + eps)) return 1;
            if (h.Norm() >= 4503599627370496.0 * (z.Norm() + eps)) return 3;
            places.push_back(z + h);
            const Vector rNew = problem.residuals(z + h);
            const double actual = (r.Dot(r) - rNew.Dot(rNew)) / 2;
            const double predicted = h.Dot(h * mu - g) / 2;
            if (predicted > 0 && actual > 0) {
                z += h;
                r = rNew;
                linearise();
                mu *= std::max(1.0 / 3, 1 - std::pow(2 * actual / predicted - 1, 3));
                nu = 2;
            } else {
                mu *= nu;
                nu *= 2;
            }
        }
        iterations = maxIter;
        return 2;
    }
};

// Every place where the objective is asked: order of tests, damping, the repeated step after a first rejection.
TEST(CNLSSolver, StepsFollowTheDampedIteration)
{
    struct Row {
        std::function<double(double)> f, df;
        double start, tau;
        int maxIter, result;
    };
    const std::vector<Row> rows = {
        {[](double z) { return std::atan(z); }, [](double z) { return 1 / (1 + z * z); }, 3, 1e-2, 100, 0},
        {[](double z) { return std::atan(z); }, [](double z) { return 1 / (1 + z * z); }, 3, 1e-2, 4, 2},
        {[](double z) { return std::exp(z) - 2; }, [](double z) { return std::exp(z); }, -6, 1, 100, 0},
        {[](double z) { return std::cosh(z); }, [](double z) { return std::sinh(z); }, 2, 1e-3, 100, 1},
        {[](double z) { return z * z + 1; }, [](double z) { return 2 * z; }, 1, 1e-3, 100, 1},
        {[](double z) { return z - 7; }, [](double) { return 1.0; }, 0, 1e-3, 100, 3}, // from exactly 0
        {[](double z) { return z - 7; }, [](double) { return 1.0; }, 7, 1e-3, 100, 0}, // fits already
    };
    for (const Row& row : rows) {
        Problem problem(1, 1, [&](const Vector& p) { return Vector{row.f(p[0])}; });
        problem.derivatives = [&](const Vector& z) { return Matrix{{row.df(z[0])}}; };
        Plain plain{problem, {1}};
        EXPECT_EQ(plain.Fit({row.start}, row.tau, row.maxIter), row.result);
        const Outcome fit = Fit(problem, {row.start}, {.maxIter = row.maxIter, .tau = row.tau});
        EXPECT_EQ(fit.result, row.result);
        EXPECT_THAT(fit.log, HasSubstr("stopped after " + std::to_string(plain.iterations) + " iterations ('" +
                                       CNLSSolver::ResultText(fit.result) + "'"));
        ASSERT_EQ(problem.places.size(), plain.places.size());
        for (std::size_t i = 0; i < plain.places.size(); ++i)
            EXPECT_NEAR(problem.places[i][0], plain.places[i][0], 1e-9) << row.start << " place " << i;
    }
}

// The same with weights, robust weights, bounds and slanted rows, until rounding decides.
TEST(CNLSSolver, StepsFollowTheWeightedIterationAmongRows)
{
    std::mt19937 engine(12);
    std::size_t compared = 0;
    for (int trial = 0; trial < 200; ++trial) {
        const int n = 2 + trial % 2;
        const Matrix M = RandomMatrix(engine, 9, n);
        const Vector target = RandomVector(engine, 9) * 4.0;
        Vector sigma(9);
        for (double& e : sigma) e = trial % 4 < 2 ? -1 : std::exp2(RandomVector(engine, 1)[0]);
        Problem problem(n, 9, [&](const Vector& p) {
            Vector r = M * p - target;
            for (double& e : r) e += 0.15 * std::sin(3 * e);
            return r;
        });
        problem.derivatives = [&](const Vector& z) {
            const Vector r = M * z - target;
            Matrix J = M;
            for (std::size_t i = 0; i < 9; ++i)
                for (int j = 0; j < n; ++j) J(i, j) *= 1 + 0.45 * std::cos(3 * r[i]);
            return J;
        };
        problem.deviations = [&] { return sigma; };
        for (int j = 0; j < n; ++j) {
            if (trial % 5 < 2) problem.AddBounds(j, -0.5, 1.0 + j);
            if (trial % 5 == 2) problem.AddInequality(RandomVector(engine, n), 0.8);
        }
        Plain plain{problem, sigma, trial % 3 == 0};
        const Vector start(n, 0.1);
        plain.Fit(start, 1e-3, 8);
        const Outcome fit = Fit(problem, start, {.maxIter = 8, .robust = plain.robust});
        EXPECT_NEAR(fit.rmse, problem.residuals(fit.params).Norm() / 3, 1e-12) << "without weights";
        ASSERT_EQ(problem.places[0], start);
        for (std::size_t i = 1; i < std::min(plain.places.size(), problem.places.size()); ++i) {
            ASSERT_LT((problem.places[i] - plain.places[i]).MaxAbs(), 1e-6) << "trial " << trial << " place " << i;
            ++compared;
            if ((plain.places[i] - plain.places[i - 1]).MaxAbs() < 1e-4) break;
        }
    }
    EXPECT_GT(compared, 600U);
}

TEST(CNLSSolver, LogTellsProgressAndReason)
{
    Problem problem(2, 2, Exact);
    problem.derivatives = [](const Vector&) { return Matrix::Identity(2); };
    EXPECT_EQ(Fit(problem, {3, 4}).log, "(NLS) iter. 0: residual RMSE=0\n"
                                        "(NLS) stopped after 1 iterations ('small gradient (++)', residual RMSE=0)\n");
    const Outcome none = Fit(problem, {1, 4}, {.maxIter = 0});
    EXPECT_EQ(none.log, "(NLS) iter. 0: residual RMSE=1.41421\n"
                        "(NLS) stopped after 0 iterations ('maxiter exceeded (-)', residual RMSE=1.41421)\n");
    EXPECT_EQ(none.result, CNLSSolver::MaxIterExceeded);
    EXPECT_EQ(none.params, (Vector{1, 4}));
    EXPECT_DOUBLE_EQ(none.rmse, std::sqrt(2.0));
    EXPECT_THAT(Fit(problem, {1e3, 4}, {.tau = 1e3}).log,
                testing::MatchesRegex("(.|\n)*\\(NLS\\) iter. 5: residual RMSE=[0-9.e+-]+\n(.|\n)*"));

    CNLSSolver silent(problem, false, 0);
    silent.SetLogging(false);
    const CerrCapture capture;
    Vector params{1, 1};
    double rmse = 0;
    EXPECT_EQ(CNLSSolver(silent).Run(params, rmse, 100, 1e-3, 3, CNLSSolver::Gibbs), CNLSSolver::SmallGradient);
    EXPECT_EQ(capture.Text(), "");
    EXPECT_STREQ(CNLSSolver::ResultText(CNLSSolver::AlmostSingular), "almost singular matrix (-)");
}

// A fifth of the measurements of a line are far off, on one side.
TEST(CNLSSolver, RobustFitIgnoresOutliers)
{
    std::mt19937 engine(5);
    std::normal_distribution<double> noise(0, 0.01);
    Vector y(50);
    for (int i = 0; i < 50; ++i) y[i] = 2 + 0.3 * i + noise(engine) + (i % 5 == 0 ? 20 + i : 0);
    Problem problem(2, 50, [&](const Vector& p) {
        Vector r(50);
        for (int i = 0; i < 50; ++i) r[i] = p[0] + p[1] * i - y[i];
        return r;
    });
    const Vector start{1.8, 0.31};
    const Outcome robust = Fit(problem, start, {.robust = true, .refine = true});
    EXPECT_NEAR(robust.params[0], 2, 0.02);
    EXPECT_NEAR(robust.params[1], 0.3, 0.001);
    EXPECT_GT(std::abs(Fit(problem, start).params[0] - 2), 1) << "the outliers pull a plain fit away";

    // A residual of exactly 0 has no robust weight.
    Problem zero(1, 3, [](const Vector& p) { return Vector{p[0], p[0] - 1, p[0] - 2}; });
    EXPECT_EQ(Fit(zero, {1}, {.robust = true}).result, CNLSSolver::LSSolutionFailed);
    for (const double u : {0.5, -1.2, 4.0}) {
        EXPECT_DOUBLE_EQ(CNLSSolver::psiTukey(u), u * std::pow(1 - u * u / (4.6851 * 4.6851), 2));
        EXPECT_EQ(CNLSSolver::psiHuber(u), std::clamp(u, -1.345, 1.345));
    }
    EXPECT_EQ(CNLSSolver::psiTukey(-4.7), 0);
}

TEST(CNLSSolver, EqualitiesHold)
{
    Problem problem(3, 3, [](const Vector& p) { return p - Vector{1, 2, 4}; });
    ASSERT_TRUE(problem.AddEquality({1, 1, 1}, 1)); // the nearest point of a plane: all shifted by 2
    const Outcome fit = Fit(problem, {0.1, 0.2, 0.3});
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(fit.params[i], (Vector{-1, 0, 2}[i]), 1e-8);
    ASSERT_TRUE(problem.AddEquality(0, 5));
    ASSERT_TRUE(problem.AddEquality(1, 6));
    const Outcome fixed = Fit(problem, {9, 9, 9}); // nothing is free
    EXPECT_LT((fixed.params - Vector{5, 6, -10}).MaxAbs(), 1e-14);
    EXPECT_EQ(fixed.result, CNLSSolver::SmallGradient);
}

TEST(CNLSSolver, BadInputEndsAsAResult)
{
    struct Row {
        int result = CNLSSolver::LSSolutionFailed;
        Vector start = {1, 1};
        double tau = 1;
        std::function<Vector(const Vector&)> residuals = Exact;
        std::function<Matrix(const Vector&)> derivatives = {};
        std::function<Vector()> deviations = {};
        Vector inequality = {};
        double bound = 0;
        int m = 2;
    };
    const auto always = [](const auto& value) { return [value](const auto&...) { return value; }; };
    int calls = 0;
    const auto changing = [&](const Vector&) { return Vector(++calls % 3, 1.0); };
    const int violated = CNLSSolver::ConstraintsViolated;
    const std::vector<Row> rows = {
        {.start = {1}},
        {.start = {1, NaN}},
        {.start = {Inf, 1}},
        {.tau = -1},
        {.tau = NaN},
        {.residuals = always(Vector{NaN, 1})},
        {.residuals = always(Vector{0})},
        {.residuals = changing},
        {.derivatives = always(Matrix(2, 2, NaN))},
        {.derivatives = always(Matrix(2, 1))},
        {.deviations = always(Vector{0, 1})},
        {.deviations = always(Vector{1})},
        {.deviations = always(Vector{NaN, 1})},
        {.result = violated, .inequality = {-1, 0}, .bound = NaN},
        {.result = violated, .inequality = {NaN, 0}, .bound = 1},
        {.result = violated, .start = {-1, 1}, .inequality = {Inf, 0}, .bound = 1},
        {.result = violated, .inequality = {0, 0}, .bound = -1},
        {.result = CNLSSolver::SmallGradient, .tau = 1e-3, .inequality = {0, 0}, .bound = 0},
        {.result = CNLSSolver::SmallGradient, .tau = 1e-3, .inequality = {-1, 0}, .bound = Inf},
        {.result = CNLSSolver::SmallGradient, .residuals = always(Vector()), .m = 0},
    };
    for (const Row& row : rows)
        for (const int multistarts : {0, 3}) {
            SCOPED_TRACE(&row - rows.data());
            Problem problem(2, row.m, row.residuals);
            problem.derivatives = row.derivatives;
            problem.deviations = row.deviations;
            if (!row.inequality.Empty()) problem.AddInequality(row.inequality, row.bound);
            const Outcome fit = Fit(problem, row.start, {.tau = row.tau, .multistarts = multistarts});
            EXPECT_EQ(fit.result, row.result) << fit.log;
            for (std::size_t j = 0; j < row.start.Size() && row.result != CNLSSolver::SmallGradient; ++j)
                EXPECT_TRUE(fit.params[j] == row.start[j] || std::isnan(row.start[j]));
        }
    // Not a number beyond 2: the fit comes as near as it can.
    Problem cliff(1, 1, [](const Vector& p) { return Vector{p[0] < 2 ? p[0] - 3 : NaN}; });
    cliff.derivatives = [](const Vector&) { return Matrix{{1}}; };
    EXPECT_NEAR(Fit(cliff, {1}).params[0], 2, 0.1);
}

} // namespace
