#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "support/cerr_capture.h"
#include "support/nist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;
using VoAlgo::CNLSSolver;
using Vector = VoAlgo::TVector<double>;
using Matrix = VoAlgo::TMatrix<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();

/// Residuals from a function; numerical derivatives unless there is one for them. Remembers the places it was asked.
struct Problem : VoAlgo::CNLSObjectiveFunction {
    Problem(int n, int m, std::function<Vector(const Vector&)> f) : CNLSObjectiveFunction(n, m), residuals(std::move(f))
    {
    }
    Vector Error(const Vector& params) override
    {
        places.push_back(params);
        return residuals(params);
    }
    Matrix Jacobian(const Vector& z) override
    {
        return derivatives ? derivatives(z) : CNLSObjectiveFunction::Jacobian(z);
    }
    Vector StdDev() override { return deviations ? deviations() : CNLSObjectiveFunction::StdDev(); }

    std::function<Vector(const Vector&)> residuals;
    std::function<Matrix(const Vector&)> derivatives;
    std::function<Vector()> deviations;
    std::vector<Vector> places;
};

struct Outcome {
    CNLSSolver::EResult result{};
    double rmse = -1;
    Vector params;
    std::string log;
};

struct Settings {
    int maxIter = 1000;
    double tau = 1e-3;
    int multistarts = 0;
    CNLSSolver::ESampler sampler = CNLSSolver::Gibbs;
    bool robust = false;
};

Outcome Fit(VoAlgo::CNLSObjectiveFunction& problem, Vector start, const Settings& settings = {})
{
    const CerrCapture capture;
    CNLSSolver solver(problem, settings.robust, 0);
    Outcome outcome;
    outcome.params = std::move(start);
    outcome.result = solver.Run(outcome.params, outcome.rmse, settings.maxIter, settings.tau, settings.multistarts,
                                settings.sampler);
    outcome.log = capture.Text();
    return outcome;
}

Vector Exact(const Vector& p)
{
    return p - Vector{3, 4};
}

// Certified

class Nist : public testing::TestWithParam<std::size_t> {};

// Every fit reaches the certified parameters and deviations from both starts, whatever the units of the parameters.
TEST_P(Nist, BothStartsReachTheCertifiedParameters)
{
    const nist::Problem problem = nist::ReadAll(VOALGO_SOURCE_DIR "/tests/data/nist")[GetParam()];
    nist::Objective objective(problem);
    for (const auto& values : problem.start) {
        Vector start(values.size());
        std::copy(values.begin(), values.end(), start.begin());
        const Outcome fit = Fit(objective, start);
        EXPECT_GE(nist::Digits(problem, fit.params), 6) << problem.name << fit.log;
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

/// The iteration in one variable, as plainly as it can be put.
struct Plain {
    std::vector<double> places;
    int result = 2;
    int iterations = 0;

    void Fit(const std::function<double(double)>& f, const std::function<double(double)>& df, double z, double tau,
             int maxIter)
    {
        constexpr double eps = 4.440892098500626e-16;
        places.push_back(z);
        double r = f(z);
        double J = df(z);
        double mu = tau * J * J;
        double nu = 1;
        for (int k = 1; k <= maxIter; ++k) {
            iterations = k;
            if (std::abs(J * r) <= eps || std::abs(r) <= eps) return Stop(0);
            const double h = -J * r / (J * J + mu);
            if (std::abs(h) <= eps * (std::abs(z) + eps)) return Stop(1);
            if (std::abs(h) >= 4503599627370496.0 * (std::abs(z) + eps)) return Stop(3);
            places.push_back(z + h);
            const double rNew = f(z + h);
            const double actual = (r * r - rNew * rNew) / 2;
            const double predicted = h * (mu * h - J * r) / 2;
            if (predicted > 0 && actual > 0) {
                z += h;
                r = rNew;
                J = df(z);
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
        Plain plain;
        plain.Fit(row.f, row.df, row.start, row.tau, row.maxIter);
        Problem problem(1, 1, [&](const Vector& p) { return Vector{row.f(p[0])}; });
        problem.derivatives = [&](const Vector& z) { return Matrix{{row.df(z[0])}}; };
        const Outcome fit = Fit(problem, {row.start}, {.maxIter = row.maxIter, .tau = row.tau});
        EXPECT_EQ(fit.result, row.result);
        EXPECT_EQ(plain.result, row.result);
        EXPECT_THAT(fit.log, HasSubstr("stopped after " + std::to_string(plain.iterations) + " iterations ('" +
                                       CNLSSolver::ResultText(fit.result) + "'"));
        ASSERT_EQ(problem.places.size(), plain.places.size());
        for (std::size_t i = 0; i < plain.places.size(); ++i)
            EXPECT_NEAR(problem.places[i][0], plain.places[i], 1e-9) << row.start << " place " << i;
    }
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
    EXPECT_NEAR(fit.rmse, Exact({3, 4}).Norm() + problem.residuals(fit.params).Norm() / std::sqrt(3), 1e-12);
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
    const Outcome robust = Fit(problem, start, {.robust = true});
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
    struct Row {
        const char* what;
        std::function<void(Problem&)> spoil;
        Vector start;
        double tau;
        int result;
    };
    int calls = 0;
    const std::vector<Row> rows = {
        {"short start", [](Problem&) {}, {1}, 1e-3, 4},
        {"NaN in the start", [](Problem&) {}, {1, NaN}, 1e-3, 4},
        {"infinite start", [](Problem&) {}, {Inf, 1}, 1e-3, 4},
        {"negative tau", [](Problem&) {}, {1, 1}, -1, 4},
        {"tau is NaN", [](Problem&) {}, {1, 1}, NaN, 4},
        {"residuals NaN", [](Problem& p) { p.residuals = [](const Vector&) {
                                               return Vector{NaN, 1};
                                           }; }, {1, 1}, 1, 4},
        {"residuals short", [](Problem& p) { p.residuals = [](const Vector&) { return Vector(1); }; }, {1, 1}, 1, 4},
        {"lengths differ",
         [&](Problem& p) { p.residuals = [&](const Vector&) { return Vector(++calls % 3, 1.0); }; },
         {1, 1},
         1,
         4},
        {"derivatives NaN",
         [](Problem& p) { p.derivatives = [](const Vector&) { return Matrix(2, 2, NaN); }; },
         {1, 1},
         1,
         4},
        {"derivatives short",
         [](Problem& p) { p.derivatives = [](const Vector&) { return Matrix(2, 1); }; },
         {1, 1},
         1,
         4},
        {"sigma 0", [](Problem& p) { p.deviations = [] {
                                         return Vector{0, 1};
                                     }; }, {1, 1}, 1, 4},
        {"sigma short", [](Problem& p) { p.deviations = [] { return Vector{1}; }; }, {1, 1}, 1, 4},
        {"sigma NaN", [](Problem& p) { p.deviations = [] {
                                           return Vector{NaN, 1};
                                       }; }, {1, 1}, 1, 4},
        {"bound NaN", [](Problem& p) { p.AddLowerBound(0, NaN); }, {1, 1}, 1, 5},
        {"row NaN",
         [](Problem& p) {
             p.AddInequality({NaN, 0}, 1);
         },
         {1, 1},
         1,
         5},
        {"row infinite",
         [](Problem& p) {
             p.AddInequality({Inf, 0}, 1);
         },
         {-1, 1},
         1,
         5},
        {"row of zeros, unmeetable",
         [](Problem& p) {
             p.AddInequality({0, 0}, -1);
         },
         {1, 1},
         1,
         5},
        {"row of zeros, void",
         [](Problem& p) {
             p.AddInequality({0, 0}, 0);
         },
         {1, 1},
         1e-3,
         0},
        {"no bound", [](Problem& p) { p.AddBounds(0, -Inf, Inf); }, {1, 1}, 1e-3, 0},
        {"no measurements",
         [](Problem& p) {
             p.SetNumMeasurements(0);
             p.residuals = [](const Vector&) { return Vector(); };
         },
         {1, 1},
         1,
         0},
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
