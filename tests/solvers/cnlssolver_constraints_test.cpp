#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "solvers/fit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;
using VoAlgo::CNLSSolver;

/// r = M·p − y, or its square root wave: many minima. Remembers the worst violation of the inequalities, in roundings.
struct Watched : VoAlgo::CNLSObjectiveFunction {
    Watched(Matrix m, Vector target)
        : CNLSObjectiveFunction(static_cast<int>(m.Cols()), static_cast<int>(m.Rows())), M(std::move(m)),
          y(std::move(target))
    {
    }
    Vector Error(const Vector& p) override
    {
        places.push_back(p);
        const Matrix& A = GetInequalitiesLHS();
        for (std::size_t i = 0; i < A.Rows(); ++i) {
            double excess = -GetInequalitiesRHS()[i];
            double magnitude = std::abs(excess);
            for (std::size_t j = 0; j < p.Size(); ++j) {
                excess += A(i, j) * p[j];
                magnitude += std::abs(A(i, j) * p[j]);
            }
            violation = std::max(violation, excess / (magnitude * std::numeric_limits<double>::epsilon()));
        }
        Vector r = M * p - y;
        for (std::size_t i = 0; i < r.Size(); ++i) r[i] += waves * std::sin(5 * r[i]);
        return r;
    }
    Matrix Jacobian(const Vector& z) override
    {
        const Vector r = M * z - y;
        Matrix J = M;
        for (std::size_t i = 0; i < J.Rows(); ++i)
            for (std::size_t j = 0; j < J.Cols(); ++j) J(i, j) *= 1 + 5 * waves * std::cos(5 * r[i]);
        return J;
    }

    Matrix M;
    Vector y;
    double waves = 0;
    double violation = 0;
    std::vector<Vector> places;
};

/// Smallest RMSE of M·p − y over A·p ≤ b: of all sets of rows that hold with equality, the best feasible solution.
double ConstrainedMinimum(const Matrix& M, const Vector& y, const Matrix& A, const Vector& b)
{
    const std::size_t n = M.Cols();
    double best = Inf;
    for (std::uint32_t set = 0; set < (1U << A.Rows()); ++set) {
        const auto q = static_cast<std::size_t>(std::popcount(set));
        if (q > n) continue;
        Matrix kkt(n + q, n + q); // [MᵀM Aᵀ; A 0]·[p; λ] = [Mᵀy; b]
        Vector rhs(n + q);
        const Matrix normal = M.Transposed() * M;
        const Vector gradient = M.Transposed() * y;
        for (std::size_t i = 0; i < n; ++i) {
            rhs[i] = gradient[i];
            for (std::size_t j = 0; j < n; ++j) kkt(i, j) = normal(i, j);
        }
        for (std::size_t row = 0, i = n; row < A.Rows(); ++row) {
            if ((set >> row & 1U) == 0) continue;
            for (std::size_t j = 0; j < n; ++j) kkt(i, j) = kkt(j, i) = A(row, j);
            rhs[i++] = b[row];
        }
        Vector solution(n + q);
        if (!VoAlgo::lapack::lssolve(kkt, rhs, solution)) continue;
        solution.Resize(n);
        const Vector Ap = A * solution;
        bool feasible = true;
        for (std::size_t i = 0; i < b.Size(); ++i) feasible = feasible && Ap[i] <= b[i] + 1e-9 * (1 + std::abs(b[i]));
        if (feasible) best = std::min(best, (M * solution - y).Norm() / std::sqrt(y.Size()));
    }
    return best;
}

/// A random problem whose minimum lies outside of its polytope more often than not. kind 0: box; 1: slanted rows;
/// 2: slanted rows, some twice and some as equations; +3: at 1000 instead of near the origin.
Watched RandomProblem(std::mt19937& engine, std::size_t n, int kind)
{
    const Vector centre = RandomVector(engine, n) * 0.1 + Vector(n, kind >= 3 ? 1000.0 : 0.3);
    const Matrix M = RandomMatrix(engine, 8, n);
    Watched problem(M, M * (centre + RandomVector(engine, n) * 3.0) + RandomVector(engine, 8) * 0.1);
    const auto size = static_cast<int>(n);
    for (int j = 0; j < size && kind % 3 == 0; ++j) problem.AddBounds(j, centre[j] - 1, centre[j] + 1);
    for (int i = 0; i < 2 * size && kind % 3 != 0; ++i) {
        const Vector a = RandomVector(engine, n);
        const double b = a.Dot(centre) + std::abs(RandomVector(engine, 1)[0]);
        problem.AddInequality(a, b);
        if (kind % 3 == 2 && i == 0) problem.AddInequality(a * 3.0, b * 3.0);
        if (kind % 3 == 2 && i == 1) problem.AddInequality(-a, -b + 1e-3);
    }
    return problem;
}

Vector Centre(const Watched& problem, std::size_t n)
{
    return Vector(n, problem.GetInequalitiesRHS().MaxAbs() > 500 ? 1000.0 : 0.3);
}

// Convex problems have one minimum, which enumeration finds and a refined fit reaches. Catches stops at corners and on
// rows that the fit should leave again, steps through rows, and drift.
TEST(CNLSSolverConstraints, FitsReachTheConstrainedMinimumAndStayInside)
{
    std::mt19937 engine(6);
    int onRows = 0;
    int constructed = 0;
    for (int trial = 0; trial < 360; ++trial) {
        const std::size_t n = 2 + static_cast<std::size_t>(trial) % 3;
        Watched problem = RandomProblem(engine, n, trial % 6);
        Vector start = Centre(problem, n);
        if (trial % 4 == 0) start = problem.M.Row(0) * 100.0; // outside
        const Outcome fit = Fit(problem, start, {.refine = true});
        constructed += fit.log.find("constructed") != std::string::npos ? 1 : 0;
        const double minimum =
            ConstrainedMinimum(problem.M, problem.y, problem.GetInequalitiesLHS(), problem.GetInequalitiesRHS());
        if (fit.result == CNLSSolver::ConstraintsViolated) {
            EXPECT_THAT(fit.log, HasSubstr(minimum < Inf ? "unbounded" : "infeasible")) << trial;
            continue;
        }
        EXPECT_LE(fit.rmse, minimum * (1 + 1e-6)) << "trial " << trial << fit.log;
        EXPECT_LE(fit.result, CNLSSolver::SmallStep) << trial << fit.log;
        EXPECT_LE(problem.violation, 4) << "trial " << trial;
        const Vector Ap = problem.GetInequalitiesLHS() * fit.params;
        for (std::size_t i = 0; i < Ap.Size(); ++i)
            onRows += Ap[i] >= problem.GetInequalitiesRHS()[i] - 1e-9 * std::abs(Ap[i]) ? 1 : 0;
    }
    EXPECT_GT(onRows, 360) << "the problems are no test of constraints";
    EXPECT_GT(constructed, 30);
}

// Many steps along slanted rows, with a curved objective.
TEST(CNLSSolverConstraints, NoDriftOverThousandsOfSteps)
{
    std::mt19937 engine(7);
    std::size_t places = 0;
    for (int trial = 0; trial < 30; ++trial) {
        Watched problem = RandomProblem(engine, 3, trial % 6);
        problem.waves = 0.19;
        problem.M *= 30.0;
        problem.y *= 30.0;
        const Outcome fit =
            Fit(problem, Centre(problem, 3), {.maxIter = 300, .multistarts = 20, .sampler = CNLSSolver::HitAndRun});
        EXPECT_LE(problem.violation, 4) << trial;
        places += problem.places.size();
    }
    EXPECT_GT(places, 2500U);
}

// Multistart finds what a single fit misses, never returns anything worse, and repeats itself bit for bit.
TEST(CNLSSolverConstraints, MultistartIsNeverWorseAndRepeats)
{
    std::mt19937 engine(8);
    int better = 0;
    for (int trial = 0; trial < 24; ++trial) {
        Watched problem = RandomProblem(engine, 2, trial % 6);
        problem.waves = 0.6;
        const Vector start = Centre(problem, 2);
        const Settings settings{.multistarts = 10,
                                .sampler = trial % 2 == 0 ? CNLSSolver::Gibbs : CNLSSolver::HitAndRun};
        const Outcome single = Fit(problem, start);
        const Outcome first = Fit(problem, start, settings);
        const Outcome again = Fit(problem, start, settings);
        EXPECT_LE(first.rmse, single.rmse);
        better += first.rmse < 0.99 * single.rmse ? 1 : 0;
        EXPECT_EQ(first.params, again.params);
        EXPECT_EQ(first.log, again.log);
        EXPECT_LE(problem.violation, 4);
    }
    EXPECT_GT(better, 6);
}

// Steps end on the bounds to the bit, and slide along them.
TEST(CNLSSolverConstraints, StepsAreCutBackAndSlide)
{
    Watched box(Matrix::Identity(2), {3, 4});
    box.AddUpperBound(0, 1.1);
    const Outcome fit = Fit(box, {0.3, 0.7});
    EXPECT_NEAR(box.places[1][1], 0.7 + 0.8 * 3.3 / 2.7, 1e-12) << "the first step ends where it meets the bound";
    for (std::size_t i = 1; i < box.places.size(); ++i) EXPECT_EQ(box.places[i][0], 1.1);
    EXPECT_NEAR(fit.params[1], 4, 1e-9);

    // From a start on the row x + y = 1, along it.
    Watched slanted(Matrix::Identity(2), {3, 4});
    slanted.AddInequality({1, 1}, 1);
    const Outcome slid = Fit(slanted, {0.25, 0.75});
    for (const Vector& p : slanted.places) EXPECT_NEAR(p[0] + p[1], 1, 1e-15);
    EXPECT_NEAR(slid.params[0], 0, 1e-9);
    EXPECT_THAT(slid.log, Not(HasSubstr("warning")));

    // A corner ends a plain fit, and rows at the start are never left; a refined fit goes on.
    Watched corner(Matrix::Identity(2), {3, 4});
    corner.AddLowerBound(0, 0);
    corner.AddLowerBound(1, 0);
    const Outcome rest = Fit(corner, {0, 0});
    EXPECT_EQ(rest.result, CNLSSolver::SmallStep);
    EXPECT_EQ(rest.params, (Vector{0, 0}));
    EXPECT_LT((Fit(corner, {0.01, 0}).params - Vector{3, 0}).MaxAbs(), 1e-9);
    EXPECT_LT((Fit(corner, {0.01, 0}, {.refine = true}).params - Vector{3, 4}).MaxAbs(), 1e-9);
}

TEST(CNLSSolverConstraints, InfeasibleStartsAreReplaced)
{
    Watched problem(Matrix::Identity(2), {0.5, 0.25});
    problem.AddBounds(0, 0, 1);
    problem.AddBounds(1, -2, 1);
    const Outcome fit = Fit(problem, {5, 5}, {.maxIter = 0});
    EXPECT_THAT(fit.log, testing::StartsWith("(NLS) constructed initial feasible solution\n2-vector:\n\t"));
    EXPECT_THAT(fit.log, HasSubstr(",\t-2;\n(NLS) iter. 0"));
    EXPECT_NEAR(fit.params[0], 0, 1e-12);
    EXPECT_NEAR(Fit(problem, {5, 5}).params[1], 0.25, 1e-9);
    for (const double scale : {1e2, 1e5}) { // the constructed start lies off its rows, whatever the magnitude
        Watched far(Matrix{{scale, 0}, {0, scale}}, {2.5, 2.25});
        for (int j : {0, 1}) far.AddBounds(j, 2 / scale, 3 / scale);
        Watched large(Matrix{{1, 0}, {0, 1}}, {2.5 * scale, 2.25 * scale});
        for (int j : {0, 1}) large.AddBounds(j, 2 * scale, 3 * scale);
        for (Watched* p : {&far, &large}) EXPECT_LT(Fit(*p, {1, 1}).rmse, 1e-9 * scale);
    }

    // Ten entries are shown.
    Watched longer(Matrix::Identity(12), Vector(12));
    for (int j = 0; j < 12; ++j) longer.AddBounds(j, 1, 2);
    EXPECT_THAT(Fit(longer, Vector(12)).log, HasSubstr("12-vector:\n\t1,\t1,\t1,\t1,\t1,\t1,\t1,\t1,\t1,\t1,\n(NLS)"));

    Watched open(Matrix::Identity(1), {0});
    open.AddUpperBound(0, 1);
    const Outcome unbounded = Fit(open, {2});
    EXPECT_EQ(unbounded.result, CNLSSolver::ConstraintsViolated);
    EXPECT_EQ(unbounded.log, "(NLS) unbounded constraints detected; introduce upper/lower bounds\n");
    EXPECT_EQ(unbounded.params, Vector{2});
    EXPECT_EQ(unbounded.rmse, Inf);
    open.AddLowerBound(0, 3);
    EXPECT_EQ(Fit(open, {2}).log, "(NLS) infeasible constraints detected\n");
}

TEST(CNLSSolverConstraints, MultistartTellsWhatItDoes)
{
    Watched problem(Matrix{{1}, {1}}, {0, 1});
    EXPECT_THAT(Fit(problem, {5}, {.multistarts = 2}).log,
                testing::EndsWith("(NLS) warning: skipping multistart (no inequality constraints!)\n"));

    problem.AddBounds(0, -10, 10);
    const std::string log = Fit(problem, {5}, {.multistarts = 2}).log;
    EXPECT_THAT(log, HasSubstr("(NLS) SAMPLING FOR MULTISTART RUN 1 OF 2 (try #1)\n"));
    EXPECT_THAT(log, HasSubstr("(NLS) SAMPLING FOR MULTISTART RUN 2 OF 2 (try #1)\n"));
    EXPECT_THAT(log, testing::EndsWith("(NLS) final residual RMSE=0.5\n"));

    Watched exact(Matrix{{1}}, {2});
    exact.AddBounds(0, -10, 10);
    EXPECT_THAT(Fit(exact, {5}, {.multistarts = 3}).log,
                HasSubstr("(NLS) obtained the best possible residual - omitting further multistart runs\n"));

    // From an upper bound a plain walk has no chord; a refined one has.
    EXPECT_THAT(Fit(problem, {10}, {.multistarts = 1}).log, HasSubstr("RUN 1 OF 1 (try #1)\n(NLS) warmup failed.\n"));
    EXPECT_THAT(Fit(problem, {10}, {.multistarts = 1, .refine = true}).log, Not(HasSubstr("warmup failed")));

    // The first walk begins at the fit, which is inside; the second at the start, which is not.
    EXPECT_THAT(Fit(problem, {50}, {.multistarts = 2}).log,
                testing::AllOf(HasSubstr("RUN 1 OF 2 (try #1)\n(NLS) iter. 0"),
                               HasSubstr("RUN 2 OF 2 (try #1)\n(NLS) warmup failed.\n")));

    // No feasible point: every walk fails, but counts.
    Watched infeasible(Matrix{{1}}, {2});
    infeasible.AddBounds(0, 1, -1);
    const Outcome failed = Fit(infeasible, {0}, {.multistarts = 2});
    EXPECT_EQ(failed.result, CNLSSolver::ConstraintsViolated);
    EXPECT_THAT(failed.log, HasSubstr("RUN 2 OF 2 (try #1)\n(NLS) warmup failed.\n(NLS) final residual RMSE=inf\n"));

    // Walks succeed but the equality leads out of the inequalities: five failures in a row end the series.
    Watched outside(Matrix{{1, 0}}, {2});
    ASSERT_TRUE(outside.AddEquality({1, 1}, 5));
    outside.AddBounds(0, 0, 1);
    outside.AddBounds(1, 0, 1);
    const Outcome aborted = Fit(outside, {0.5, 0.5}, {.multistarts = 3});
    EXPECT_THAT(aborted.log, HasSubstr("(NLS) SAMPLING FOR MULTISTART RUN 1 OF 3 (try #5)\n"
                                       "(NLS) infeasible constraints detected\n"
                                       "(NLS) multistart run #1/#3 failed: constraint violation\n"
                                       "(NLS) multistart series aborted (too many errors)\n"));
}

} // namespace
