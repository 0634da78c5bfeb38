#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "solvers/fit.h"
#include "support/nist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;
using VoAlgo::CNLSSolver;

Vector Exact(const Vector& p)
{
    return p - Vector{3, 4};
}

// Certified

class Nist : public testing::TestWithParam<std::size_t> {};

// Every fit reaches the certified parameters and deviations from both starts, whatever the units of the parameters. A
// refined one does so whatever rounding makes of the way: starts differ by up to 1e-12.
TEST_P(Nist, BothStartsReachTheCertifiedParameters)
{
    const nist::Problem problem = nist::ReadAll(VOALGO_SOURCE_DIR "/tests/data/nist")[GetParam()];
    nist::Objective objective(problem);
    std::mt19937 engine(17);
    std::uniform_real_distribution<double> change(-1e-12, 1e-12);
    for (const auto& values : problem.start)
        for (int trial = 0; trial < (problem.name == "MGH17" ? 40 : 4); ++trial) {
            Vector start(values.size());
            for (std::size_t j = 0; j < values.size(); ++j)
                start[j] = values[j] * (trial == 0 ? 1 : 1 + change(engine));
            const Outcome fit = Fit(objective, start, {.refine = trial > 0});
            EXPECT_GE(nist::Digits(problem, fit.params), 6) << problem.name << trial << fit.log;
            EXPECT_LE(fit.result, CNLSSolver::SmallStep);
            const auto m = static_cast<double>(problem.y.size());
            const double sigma = fit.rmse * std::sqrt(m / (m - static_cast<double>(values.size())));
            const Matrix covariance = objective.GetCovariance(fit.params, sigma);
            for (std::size_t j = 0; j < values.size(); ++j)
                EXPECT_NEAR(std::sqrt(covariance(j, j)) / problem.deviation[j], 1, 1e-5) << problem.name << j;
        }
}
INSTANTIATE_TEST_SUITE_P(All, Nist, testing::Range<std::size_t>(0, 9));

// The iteration

/// The iteration as plainly as it can be put; constraints and robust weights as far as the tests need them.
struct Plain {
    std::function<Vector(const Vector&)> f;
    std::function<Matrix(const Vector&)> df;
    Vector sigma;
    bool robust = false;
    Matrix A = {}; // A·z ≤ b
    Vector b = {};

    std::vector<Vector> places = {};
    int result = 2;
    int iterations = 0;

    static double Median(std::vector<double> v)
    {
        std::sort(v.begin(), v.end());
        const std::size_t half = v.size() / 2;
        return v.size() % 2 == 1 ? v[half] : (v[half - 1] + v[half]) / 2;
    }
    [[nodiscard]] Vector Weights(const Vector& r) const
    {
        std::vector<double> deviations(r.begin(), r.end());
        const double centre = Median(deviations);
        for (double& e : deviations) e = std::abs(e - centre);
        Vector w(r.Size());
        for (std::size_t i = 0; i < r.Size(); ++i) {
            const double share = r[i] / (Median(deviations) / 0.6745) / 4.6851;
            const double biweight = std::abs(share) <= 1 ? std::pow(1 - share * share, 2) : 0;
            w[i] = (robust ? biweight : 1) / (sigma[i] * sigma[i]);
        }
        return w;
    }
    [[nodiscard]] Vector CutBack(const Vector& z, const Vector& h, bool projected) const
    {
        double nearest = Inf;
        std::size_t row = 0;
        for (std::size_t i = 0; i < b.Size(); ++i) {
            const double slack = b[i] - A.Row(i).Dot(z);
            const double t = std::abs(slack) < 1e-12 ? 0 : slack / A.Row(i).Dot(h * (1 / h.Norm()));
            if (t >= 0 && t < nearest) {
                nearest = t;
                row = i;
            }
        }
        const Vector n = b.Size() == 0 ? Vector() : A.Row(row) * (1 / A.Row(row).Norm());
        if (!projected && nearest < 2.3e-15) {
            const Vector along = h - n * h.Dot(n);
            return along.Norm() < 1e-14 * h.Norm() ? along * 0.0 : CutBack(z, along, true);
        }
        return h.Norm() > nearest ? h * (nearest / h.Norm()) : h;
    }
    void Fit(Vector z, double tau, int maxIter)
    {
        constexpr double eps = 4.440892098500626e-16;
        places.push_back(z);
        Vector r = f(z);
        Matrix N;
        Vector g;
        const auto linearise = [&] {
            const Vector w = Weights(r);
            Matrix WJ = df(z);
            g = Vector(z.Size());
            for (std::size_t j = 0; j < z.Size(); ++j)
                for (std::size_t i = 0; i < r.Size(); ++i) g[j] += (WJ(i, j) *= w[i]) * r[i];
            N = df(z).Transposed() * WJ;
        };
        linearise();
        double mu = 0;
        for (std::size_t j = 0; j < z.Size(); ++j) mu = std::max(mu, tau * N(j, j));
        double nu = 1;
        for (int k = 1; k <= maxIter; ++k) {
            iterations = k;
            if (g.MaxAbs() <= eps || r.MaxAbs() <= eps) return Stop(0);
            Vector h(z.Size());
            Matrix damped = N;
            for (std::size_t j = 0; j < z.Size(); ++j) damped(j, j) += mu;
            if (!VoAlgo::lapack::lssolve(damped, -g, h)) return Stop(4);
            if (b.Size() > 0) h = CutBack(z, h, false);
            if (h.Norm() <= eps * (z.Norm() + eps)) return Stop(1);
            if (h.Norm() >= 4503599627370496.0 * (z.Norm() + eps)) return Stop(3);
            places.push_back(z + h);
            const Vector rNew = f(z + h);
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
    }
    void Stop(int reason) { result = reason; }
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
        Plain plain{.f = problem.residuals, .df = problem.derivatives, .sigma = {1}};
        plain.Fit({row.start}, row.tau, row.maxIter);
        const Outcome fit = Fit(problem, {row.start}, {.maxIter = row.maxIter, .tau = row.tau});
        EXPECT_EQ(fit.result, row.result);
        EXPECT_EQ(plain.result, row.result);
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
    std::normal_distribution<double> normal;
    std::size_t compared = 0;
    for (int trial = 0; trial < 200; ++trial) {
        const int n = 2 + trial % 2;
        Matrix M(9, n);
        for (std::size_t i = 0; i < 9; ++i)
            for (int j = 0; j < n; ++j) M(i, j) = normal(engine);
        Vector target(9);
        Vector sigma(9);
        for (std::size_t i = 0; i < 9; ++i) {
            target[i] = 4 * normal(engine);
            sigma[i] = trial % 4 < 2 ? 1 : std::exp2(normal(engine));
        }
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
            Vector a(n);
            for (double& e : a) e = normal(engine);
            if (trial % 5 == 2) problem.AddInequality(a, 0.8);
        }
        Plain plain{.f = problem.residuals,
                    .df = problem.derivatives,
                    .sigma = sigma,
                    .robust = trial % 3 == 0,
                    .A = problem.GetInequalitiesLHS(),
                    .b = problem.GetInequalitiesRHS()};
        const Vector start(n, 0.1);
        plain.Fit(start, 1e-3, 8);
        Fit(problem, start, {.maxIter = 8, .robust = plain.robust});
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

TEST(CNLSSolver, WeightsAreInverseVariances)
{
    Problem problem(1, 3, [](const Vector& p) { return Vector{p[0] - 1, p[0] - 2, p[0] - 6}; });
    problem.deviations = [] { return Vector{1, -0.5, 2}; };
    const Outcome fit = Fit(problem, {0.1});
    EXPECT_NEAR(fit.params[0], (1 + 4 * 2 + 0.25 * 6) / 5.25, 1e-9);
    EXPECT_NEAR(fit.rmse, problem.residuals(fit.params).Norm() / std::sqrt(3), 1e-12);
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

// Bad input has an answer

TEST(CNLSSolver, BadInputEndsAsAResult)
{
    using Spoil = std::function<void(Problem&)>;
    const auto residuals = [](const Vector& r) -> Spoil {
        return [r](Problem& p) { p.residuals = [r](const Vector&) { return r; }; };
    };
    const auto derivatives = [](const Matrix& J) -> Spoil {
        return [J](Problem& p) { p.derivatives = [J](const Vector&) { return J; }; };
    };
    const auto deviations = [](const Vector& sigma) -> Spoil {
        return [sigma](Problem& p) { p.deviations = [sigma] { return sigma; }; };
    };
    const auto inequality = [](const Vector& row, double rhs) -> Spoil {
        return [row, rhs](Problem& p) { p.AddInequality(row, rhs); };
    };
    const Spoil nothing = [](Problem&) {};
    int calls = 0;
    const Spoil changing = [&](Problem& p) { p.residuals = [&](const Vector&) { return Vector(++calls % 3, 1.0); }; };
    const Spoil noMeasurements = [&](Problem& p) {
        p.SetNumMeasurements(0);
        residuals({})(p);
    };
    struct Row {
        const char* what;
        Spoil spoil;
        Vector start;
        double tau;
        int result;
    };
    const std::vector<Row> rows = {
        {"short start", nothing, {1}, 1e-3, 4},
        {"NaN in the start", nothing, {1, NaN}, 1e-3, 4},
        {"infinite start", nothing, {Inf, 1}, 1e-3, 4},
        {"negative tau", nothing, {1, 1}, -1, 4},
        {"tau is NaN", nothing, {1, 1}, NaN, 4},
        {"residuals NaN", residuals({NaN, 1}), {1, 1}, 1, 4},
        {"residuals short", residuals({0}), {1, 1}, 1, 4},
        {"lengths differ", changing, {1, 1}, 1, 4},
        {"derivatives NaN", derivatives(Matrix(2, 2, NaN)), {1, 1}, 1, 4},
        {"derivatives short", derivatives(Matrix(2, 1)), {1, 1}, 1, 4},
        {"sigma 0", deviations({0, 1}), {1, 1}, 1, 4},
        {"sigma short", deviations({1}), {1, 1}, 1, 4},
        {"sigma NaN", deviations({NaN, 1}), {1, 1}, 1, 4},
        {"bound NaN", inequality({-1, 0}, NaN), {1, 1}, 1, 5},
        {"row NaN", inequality({NaN, 0}, 1), {1, 1}, 1, 5},
        {"row infinite", inequality({Inf, 0}, 1), {-1, 1}, 1, 5},
        {"row of zeros, unmeetable", inequality({0, 0}, -1), {1, 1}, 1, 5},
        {"row of zeros, void", inequality({0, 0}, 0), {1, 1}, 1e-3, 0},
        {"no bound", [](Problem& p) { p.AddBounds(0, -Inf, Inf); }, {1, 1}, 1e-3, 0},
        {"no measurements", noMeasurements, {1, 1}, 1, 0},
    };
    for (const Row& row : rows)
        for (const int multistarts : {0, 3}) {
            Problem problem(2, 2, Exact);
            row.spoil(problem);
            const Outcome fit = Fit(problem, row.start, {.tau = row.tau, .multistarts = multistarts});
            EXPECT_EQ(fit.result, row.result) << row.what << fit.log;
            if (row.result < 4) continue;
            for (std::size_t j = 0; j < row.start.Size(); ++j)
                EXPECT_TRUE(fit.params[j] == row.start[j] || std::isnan(row.start[j])) << row.what;
        }
    // Not a number beyond 2: the fit comes as near as it can.
    Problem cliff(1, 1, [](const Vector& p) { return Vector{p[0] < 2 ? p[0] - 3 : NaN}; });
    cliff.derivatives = [](const Vector&) { return Matrix{{1}}; };
    const Outcome fit = Fit(cliff, {1});
    EXPECT_NEAR(fit.params[0], 2, 0.1);
    EXPECT_LT(fit.rmse, 1.1);
}

} // namespace
