#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "solvers/fit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using VoAlgo::CNLSSolver;

/// r = M·p − y, or a wave along it: many minima.
struct Wavy : Problem {
    Wavy(const Matrix& m, const Vector& target) : Problem(m.Cols(), m.Rows(), nullptr), M(m), y(target) {}
    Vector Error(const Vector& p) override
    {
        places.push_back(p);
        Vector r = M * p - y;
        for (double& e : r) e += waves * std::sin(5 * e);
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
    /// Of an inequality at any place that was asked, at worst; in roundings.
    [[nodiscard]] double Violation() const
    {
        double worst = 0;
        for (const Vector& p : places)
            for (std::size_t i = 0; i < GetInequalitiesRHS().Size(); ++i) {
                double excess = -GetInequalitiesRHS()[i], magnitude = std::abs(excess);
                for (std::size_t j = 0; j < p.Size(); ++j) {
                    excess += GetInequalitiesLHS()(i, j) * p[j];
                    magnitude += std::abs(GetInequalitiesLHS()(i, j) * p[j]);
                }
                worst = std::max(worst, excess / (magnitude * std::numeric_limits<double>::epsilon()));
            }
        return worst;
    }

    Matrix M;
    Vector y, inside;
    double waves = 0;
};

/// Smallest RMSE of M·p − y over A·p ≤ b: of all sets of rows that hold with equality, the best feasible solution.
double ConstrainedMinimum(const Matrix& M, const Vector& y, const Matrix& A, const Vector& b)
{
    const std::size_t n = M.Cols();
    const Matrix normal = M.Transposed() * M;
    const Vector gradient = M.Transposed() * y;
    double best = Inf;
    for (std::uint32_t set = 0; set < (1U << A.Rows()); ++set) {
        const auto q = static_cast<std::size_t>(std::popcount(set));
        if (q > n) continue;
        Matrix kkt(n + q, n + q); // [MᵀM Aᵀ; A 0]·[p; λ] = [Mᵀy; b]
        Vector rhs(n + q);
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
        const Vector excess = A * solution - b;
        if (*std::max_element(excess.begin(), excess.end()) <= 1e-9 * (1 + b.MaxAbs()))
            best = std::min(best, (M * solution - y).Norm() / std::sqrt(y.Size()));
    }
    return best;
}

/// A random problem whose minimum lies outside of its polytope more often than not. kind 0: box; 1: slanted rows;
/// 2: slanted rows, some twice and some as equations; +3: at 1000 instead of near the origin.
Wavy RandomProblem(std::mt19937& engine, std::size_t n, int kind)
{
    const Vector inside(n, kind >= 3 ? 1000.0 : 0.3), centre = RandomVector(engine, n) * 0.1 + inside;
    const Matrix M = RandomMatrix(engine, 8, n);
    Wavy problem(M, M * (centre + RandomVector(engine, n) * 3.0) + RandomVector(engine, 8) * 0.1);
    problem.inside = inside;
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

// Convex problems have one minimum, which enumeration finds and a refined fit reaches. Catches stops at corners and on
// rows that the fit should leave again, steps through rows, and drift.
TEST(CNLSSolverConstraints, FitsReachTheConstrainedMinimumAndStayInside)
{
    std::mt19937 engine(6);
    int onRows = 0, constructed = 0;
    for (int trial = 0; trial < 360; ++trial) {
        const std::size_t n = 2 + static_cast<std::size_t>(trial) % 3;
        Wavy problem = RandomProblem(engine, n, trial % 6);
        const Outcome fit = Fit(problem, trial % 4 == 0 ? problem.M.Row(0) * 100.0 : problem.inside, {.refine = true});
        constructed += fit.log.find("constructed") != std::string::npos ? 1 : 0;
        const double minimum =
            ConstrainedMinimum(problem.M, problem.y, problem.GetInequalitiesLHS(), problem.GetInequalitiesRHS());
        if (fit.result == CNLSSolver::ConstraintsViolated) {
            EXPECT_THAT(fit.log, HasSubstr(minimum < Inf ? "unbounded" : "infeasible")) << trial;
            continue;
        }
        EXPECT_LE(fit.rmse, minimum * (1 + 1e-6)) << "trial " << trial << fit.log;
        EXPECT_LE(fit.result, CNLSSolver::SmallStep) << trial << fit.log;
        EXPECT_LE(problem.Violation(), 4) << "trial " << trial;
        const Vector Ap = problem.GetInequalitiesLHS() * fit.params;
        for (std::size_t i = 0; i < Ap.Size(); ++i)
            onRows += Ap[i] >= problem.GetInequalitiesRHS()[i] - 1e-9 * std::abs(Ap[i]) ? 1 : 0;
    }
    EXPECT_GT(onRows, 360) << "the problems are no test of constraints";
    EXPECT_GT(constructed, 30);
}

// Multistart finds what a single fit misses, never returns anything worse, and repeats itself bit for bit. Thousands of
// steps along slanted rows, some with a stiff objective, do not drift.
TEST(CNLSSolverConstraints, MultistartIsNeverWorseRepeatsAndDoesNotDrift)
{
    std::mt19937 engine(8);
    int better = 0;
    std::size_t places = 0;
    for (int trial = 0; trial < 48; ++trial) {
        const bool stiff = trial % 2 == 1;
        Wavy problem = RandomProblem(engine, stiff ? 3 : 2, trial / 2 % 6);
        problem.waves = stiff ? 0.19 : 0.6;
        problem.M *= stiff ? 30.0 : 1.0;
        problem.y *= stiff ? 30.0 : 1.0;
        const Settings settings{.maxIter = stiff ? 300 : 1000,
                                .multistarts = 10,
                                .sampler = trial < 24 ? CNLSSolver::Gibbs : CNLSSolver::HitAndRun};
        const Outcome single = Fit(problem, problem.inside);
        const Outcome first = Fit(problem, problem.inside, settings), again = Fit(problem, problem.inside, settings);
        EXPECT_LE(first.rmse, single.rmse);
        better += first.rmse < 0.99 * single.rmse ? 1 : 0;
        EXPECT_EQ(first.params, again.params);
        EXPECT_EQ(first.log, again.log);
        EXPECT_LE(problem.Violation(), 4) << trial;
        places += problem.places.size();
    }
    EXPECT_GT(better, 12);
    EXPECT_GT(places, 2500U);
}

// Steps end on the bounds to the bit, and slide along them.
TEST(CNLSSolverConstraints, StepsAreCutBackAndSlide)
{
    Wavy box(Matrix::Identity(2), {3, 4});
    box.AddUpperBound(0, 1.1);
    EXPECT_NEAR(Fit(box, {0.3, 0.7}).params[1], 4, 1e-9);
    for (std::size_t i = 1; i < box.places.size(); ++i) EXPECT_EQ(box.places[i][0], 1.1);

    // From a start on the row x + y = 1, along it.
    Wavy slanted(Matrix::Identity(2), {3, 4});
    slanted.AddInequality({1, 1}, 1);
    const Outcome slid = Fit(slanted, {0.25, 0.75});
    for (const Vector& p : slanted.places) EXPECT_NEAR(p[0] + p[1], 1, 1e-15);
    EXPECT_NEAR(slid.params[0], 0, 1e-9);
    EXPECT_THAT(slid.log, Not(HasSubstr("warning")));

    // A corner ends a plain fit, and rows at the start are never left; a refined fit goes on.
    Wavy corner(Matrix::Identity(2), {3, 4});
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
    Wavy problem(Matrix::Identity(2), {0.5, 0.25});
    problem.AddBounds(0, 0, 1);
    problem.AddBounds(1, -2, 1);
    const Outcome fit = Fit(problem, {5, 5}, {.maxIter = 0});
    EXPECT_THAT(fit.log, testing::StartsWith("(NLS) constructed initial feasible solution\n2-vector:\n\t"));
    EXPECT_THAT(fit.log, HasSubstr(",\t-2;\n(NLS) iter. 0"));
    EXPECT_NEAR(fit.params[0], 0, 1e-12);
    EXPECT_NEAR(Fit(problem, {5, 5}).params[1], 0.25, 1e-9);
    for (const double scale : {1e-5, 1e-2, 1e2, 1e5}) { // the constructed start lies off its rows at every magnitude
        Wavy scaled(Matrix::Identity(2), {2.5 * scale, 2.25 * scale});
        for (int j : {0, 1}) scaled.AddBounds(j, 2 * scale, 3 * scale);
        EXPECT_LT(Fit(scaled, {1, 1}).rmse, 1e-9 * scale);
    }

    // Ten entries are shown.
    Wavy longer(Matrix::Identity(12), Vector(12));
    for (int j = 0; j < 12; ++j) longer.AddBounds(j, 1, 2);
    EXPECT_THAT(Fit(longer, Vector(12)).log, HasSubstr("12-vector:\n\t1,\t1,\t1,\t1,\t1,\t1,\t1,\t1,\t1,\t1,\n(NLS)"));

    Wavy open(Matrix::Identity(1), {0});
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
    Wavy open(Matrix{{1}, {1}}, {0, 1}), bounded = open, exact(Matrix{{1}}, {2}), infeasible = exact;
    bounded.AddBounds(0, -10, 10);
    exact.AddBounds(0, -10, 10);
    infeasible.AddBounds(0, 1, -1);
    Wavy outside(Matrix{{1, 0}}, {2}); // walks succeed but the equality leads out of the inequalities
    ASSERT_TRUE(outside.AddEquality({1, 1}, 5));
    for (int j : {0, 1}) outside.AddBounds(j, 0, 1);
    const auto log = [](Wavy& p, const Vector& start, int runs) { return Fit(p, start, {.multistarts = runs}).log; };
    EXPECT_THAT(log(open, {5}, 2), EndsWith("(NLS) warning: skipping multistart (no inequality constraints!)\n"));
    EXPECT_THAT(log(bounded, {5}, 2), testing::AllOf(HasSubstr("(NLS) SAMPLING FOR MULTISTART RUN 1 OF 2 (try #1)\n"),
                                                     HasSubstr("(NLS) SAMPLING FOR MULTISTART RUN 2 OF 2 (try #1)\n"),
                                                     EndsWith("(NLS) final residual RMSE=0.5\n")));
    EXPECT_THAT(log(exact, {5}, 3),
                HasSubstr("(NLS) obtained the best possible residual - omitting further multistart runs\n"));
    // From an upper bound a plain walk has no chord; a refined one has.
    EXPECT_THAT(log(bounded, {10}, 1), HasSubstr("RUN 1 OF 1 (try #1)\n(NLS) warmup failed.\n"));
    EXPECT_THAT(Fit(bounded, {10}, {.multistarts = 1, .refine = true}).log, Not(HasSubstr("warmup failed")));
    // The first walk begins at the fit, which is inside; the second at the start, which is not.
    EXPECT_THAT(log(bounded, {50}, 2), testing::AllOf(HasSubstr("RUN 1 OF 2 (try #1)\n(NLS) iter. 0"),
                                                      HasSubstr("RUN 2 OF 2 (try #1)\n(NLS) warmup failed.\n")));
    // Every walk fails, but counts.
    EXPECT_THAT(log(infeasible, {0}, 2),
                HasSubstr("RUN 2 OF 2 (try #1)\n(NLS) warmup failed.\n(NLS) final residual RMSE=inf\n"));
    EXPECT_EQ(Fit(infeasible, {0}, {.multistarts = 2}).result, CNLSSolver::ConstraintsViolated);
    // Five failures in a row end the series.
    EXPECT_THAT(log(outside, {0.5, 0.5}, 3), HasSubstr("(NLS) SAMPLING FOR MULTISTART RUN 1 OF 3 (try #5)\n"
                                                       "(NLS) infeasible constraints detected\n"
                                                       "(NLS) multistart run #1/#3 failed: constraint violation\n"
                                                       "(NLS) multistart series aborted (too many errors)\n"));
}

} // namespace
