#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "VoAlgorithms/numerics/lapack.h"

#include "solvers/fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <stdexcept>

namespace {

using Indices = VoAlgo::TVector<int>;

Problem Linear(const Matrix& M)
{
    return {M.Cols(), M.Rows(), [M](const Vector& p) { return M * p; }};
}

/// n parameters, for what has to do with constraints only.
Problem Unmeasured(int n)
{
    return Linear(Matrix(1, n));
}

/// The columns of the kernel that go with the free variables.
Matrix FreeKernel(const Problem& problem)
{
    const Matrix& kernel = problem.GetEqualityConstraintsKernel();
    Matrix K(kernel.Rows(), kernel.Cols() - 1);
    for (unsigned j = 0; j < K.Cols(); ++j)
        for (unsigned i = 0; i < K.Rows(); ++i) K(i, j) = kernel(i, j + 1);
    return K;
}

// All p = K·[1; z] satisfy the equalities, and the free variables are parameters. A refused equality leaves no trace.
TEST(CNLSObjectiveFunction, EqualitiesLeaveTheirSolutions)
{
    std::mt19937 engine(1);
    for (int trial = 0; trial < 100; ++trial) {
        const int n = 2 + trial % 5;
        const int equalities = 1 + trial % (n - 1);
        Problem problem = Unmeasured(n);
        for (int e = 0; e < equalities; ++e) ASSERT_TRUE(problem.AddEquality(RandomVector(engine, n), 1.0 + e));
        const Matrix lhs = problem.GetEqualitiesLHS();
        ASSERT_TRUE(problem.AddEquality(lhs.Row(0) * 2.0, 2.0)) << "follows from the first";
        const Vector z = RandomVector(engine, n - equalities);
        ASSERT_EQ(problem.GetFreeVariablesIndices().Size(), z.Size());
        const Matrix kernel = problem.GetEqualityConstraintsKernel();

        EXPECT_FALSE(problem.AddEquality(lhs.Row(0), 7));
        EXPECT_FALSE(problem.AddEquality(Vector(n + 1), 0));
        EXPECT_FALSE(problem.AddEquality(0, NaN));
        EXPECT_FALSE(problem.AddEquality(n, 0));
        EXPECT_FALSE(problem.SetEqualities(lhs, Vector(1 + equalities)));
        EXPECT_EQ(problem.GetEqualitiesRHS().Size(), static_cast<std::size_t>(equalities + 1));
        EXPECT_EQ(problem.GetEqualityConstraintsKernel(), kernel);

        const Vector p = problem.BuildParamsFromFree(z);
        for (std::size_t j = 0; j < z.Size(); ++j) EXPECT_EQ(p[problem.GetFreeVariablesIndices()[j]], z[j]);
        const Vector missed = lhs * p;
        for (std::size_t e = 0; e < missed.Size(); ++e) EXPECT_NEAR(missed[e], 1.0 + static_cast<double>(e), 1e-10);
        EXPECT_TRUE(problem.SetEqualities(Matrix(), Vector()));
        EXPECT_EQ(problem.BuildParamsFromFree(p), p);
    }
}

TEST(CNLSObjectiveFunction, FixedParametersAreConstant)
{
    Problem problem = Unmeasured(3);
    const auto variable = [&] { return Indices{problem.IsVariable(0), problem.IsVariable(1), problem.IsVariable(2)}; };
    EXPECT_EQ(variable(), (Indices{1, 1, 1}));
    ASSERT_TRUE(problem.AddEquality(1, 0.1));
    EXPECT_EQ(variable(), (Indices{1, 0, 1}));
    EXPECT_EQ(problem.BuildParamsFromFree({5, 6}), (Vector{5, 0.1, 6}));
    EXPECT_EQ(problem.GetFreeVariablesIndices(), (Indices{0, 2}));
    ASSERT_TRUE(problem.AddEquality(Vector{1, 0, 1}, 3));
    EXPECT_EQ(variable(), (Indices{1, 0, 1})) << "both still vary, together";
    ASSERT_TRUE(problem.AddEquality(2, 1));
    EXPECT_TRUE(problem.IsConstant(0));
    EXPECT_LT((problem.BuildParamsFromFree(Vector()) - Vector{2, 0.1, 1}).MaxAbs(), 1e-14);
    EXPECT_THROW((void)problem.BuildParamsFromFree(Vector(1)), std::invalid_argument);
}

// The same points are feasible in parameters and in free variables.
TEST(CNLSObjectiveFunction, InequalitiesInFreeVariables)
{
    std::mt19937 engine(2);
    for (int trial = 0; trial < 50; ++trial) {
        Problem problem = Unmeasured(4);
        ASSERT_TRUE(problem.AddEquality(RandomVector(engine, 4), 1));
        ASSERT_TRUE(trial % 2 != 0 || problem.AddEquality(2, 0.3));
        problem.AddBounds(2, 0.3, 0.3);                              // on the constant: nothing is left of it
        problem.AddInequality(problem.GetEqualitiesLHS().Row(0), 1); // follows from an equality
        for (int row = 0; row < 3; ++row) problem.AddInequality(RandomVector(engine, 4), 0.5);
        Matrix A;
        Vector b;
        problem.GetFreeVariablesInequalities(A, b);
        const Vector z = RandomVector(engine, problem.GetFreeVariablesIndices().Size());
        const Vector full = problem.GetInequalitiesLHS() * problem.BuildParamsFromFree(z);
        const Vector free = A * z;
        for (std::size_t i = 0; i < b.Size(); ++i)
            EXPECT_NEAR(b[i] - free[i], problem.GetInequalitiesRHS()[i] - full[i], 1e-12);
        for (int i = 0; i < 3 && trial % 2 == 0; ++i) EXPECT_TRUE(b[i] == 0 && A.Row(i).MaxAbs() == 0) << trial;
    }
}

TEST(CNLSObjectiveFunction, BoundsAndInequalities)
{
    Problem problem = Unmeasured(3);
    const auto bounded = [&] { return Indices{problem.IsBounded(0), problem.IsBounded(1), problem.IsBounded(2)}; };
    EXPECT_EQ(bounded(), (Indices{0, 0, 0}));
    problem.AddBounds(0, -1, 2);
    problem.AddLowerBound(1, 0);
    problem.AddUpperBound(2, 5);
    EXPECT_EQ(problem.GetInequalitiesLHS(), (Matrix{{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 0, 1}}));
    EXPECT_EQ(problem.GetInequalitiesRHS(), (Vector{1, 2, 0, 5}));
    EXPECT_EQ(bounded(), (Indices{1, 0, 0}));
    problem.AddInequality({0, 1, -1}, 1); // p1 ≤ p2 + 1 ≤ 6, and p2 ≥ p1 − 1 ≥ −1
    EXPECT_EQ(bounded(), (Indices{1, 1, 1}));

    problem.SetInequalities(Matrix{{0, 1, 0}}, {1});
    EXPECT_TRUE(problem.IsUnbounded(0));
    ASSERT_TRUE(problem.AddEquality(0, 4));
    EXPECT_TRUE(problem.IsBounded(0)) << "constant";
    problem.SetInequalities(Matrix{{0, 1, 0}, {0, -1, 0}}, {0, -1});
    EXPECT_TRUE(problem.IsBounded(2)) << "infeasible";

    const std::function<void()> wrong[] = {[&] { problem.AddInequality(Vector(2), 0); },
                                           [] { Unmeasured(0).AddInequality(Vector(2), 0); },
                                           [&] { problem.AddLowerBound(3, 0); },
                                           [&] { problem.SetInequalities(Matrix(2, 2), Vector(2)); },
                                           [&] { problem.SetInequalities(Matrix(2, 3), Vector(1)); },
                                           [&] { (void)problem.IsBounded(-1); },
                                           [] { Problem(2, -1, nullptr); }};
    for (const auto& call : wrong) EXPECT_THROW(call(), std::invalid_argument) << &call - wrong;
    problem.SetInequalities(Matrix(), Vector());
    EXPECT_FALSE(problem.HasInequalities());
    problem.SetNumParams(2);
    EXPECT_FALSE(problem.HasEqualities());
    EXPECT_EQ(problem.BuildParamsFromFree({1, 2}), (Vector{1, 2}));
}

// A stencil of order o is exact for polynomials of degree o, and for no higher one.
TEST(CNLSObjectiveFunction, NumericalDerivativesHaveTheirOrder)
{
    Problem powers(2, 7, [](const Vector& p) {
        Vector r(7, p[1]);
        for (int j = 0; j < 7; ++j) r[j] += std::pow(p[0], j);
        return r;
    });
    Vector params{1.5, -2};
    for (int order = 1; order <= 5; ++order) {
        const Vector derivative = powers.errorFDDerivatives(params, 0, 0.25, order);
        EXPECT_EQ(params, (Vector{1.5, -2}));
        for (int j = 0; j <= order; ++j)
            EXPECT_NEAR(derivative[j], j * std::pow(1.5, j - 1), 1e-12) << "order " << order << " degree " << j;
        EXPECT_GT(std::abs(derivative[order + 1] - (order + 1) * std::pow(1.5, order)), 1e-4) << order;
    }
    for (const int order : {0, 6}) EXPECT_THROW(powers.errorFDDerivatives(params, 0, 1, order), std::invalid_argument);
}

// Against the closed form of linear problems, K·(KᵀMᵀW M K)⁻¹·Kᵀ·σ², in units far apart and more rows than one block.
TEST(CNLSObjectiveFunction, CovarianceHasTheClosedForm)
{
    std::mt19937 engine(4);
    for (const std::size_t m : {4U, 30U, 300U})
        for (const int equalities : {0, 1, 2}) {
            Matrix M = RandomMatrix(engine, m, 4);
            Vector deviations(m);
            for (std::size_t i = 0; i < m; ++i) {
                M(i, 1) *= 1e4;
                M(i, 3) *= 1e-4;
                deviations[i] = 0.5 + static_cast<double>(i % 3);
            }
            Problem problem = Linear(M);
            problem.deviations = [&] { return deviations; };
            ASSERT_TRUE(equalities < 1 || problem.AddEquality(2, 1));
            ASSERT_TRUE(equalities < 2 || problem.AddEquality({1, 1, 0, 0}, 1));
            const Matrix K = FreeKernel(problem);
            Matrix J = M * K; // by the free variables: what follows through the equalities moves along
            for (std::size_t i = 0; i < m; ++i)
                for (unsigned j = 0; j < J.Cols(); ++j) J(i, j) /= deviations[i];
            Matrix information = J.Transposed() * J;
            ASSERT_TRUE(VoAlgo::cholesky(information));
            Matrix inverse;
            ASSERT_TRUE(VoAlgo::choleskyInverse(information, inverse));
            const Matrix expected = K * inverse * K.Transposed() * 9.0;

            const Vector anywhere(4);
            const Matrix covariance = problem.GetCovariance(anywhere, -3),
                         correlation = problem.GetCorrelation(anywhere, 1);
            for (std::size_t i = 0; i < 4; ++i)
                for (std::size_t j = 0; j < 4; ++j) {
                    const double scale = std::sqrt(expected(i, i) * expected(j, j));
                    EXPECT_NEAR(covariance(i, j), expected(i, j), 1e-6 * scale) << m << ' ' << equalities;
                    EXPECT_NEAR(correlation(i, j), scale > 0 ? expected(i, j) / scale : 0, 1e-6);
                }
            double determinant = 1; // of UᵀU
            for (unsigned j = 0; j < K.Cols(); ++j) determinant *= information(j, j) * information(j, j);
            EXPECT_NEAR(problem.GetDCriterionValue(anywhere) / determinant, 1, 1e-6);
        }
}

// Of a line p0·p1·x + p2 only the product counts, for derivatives by differences up to their roundings.
TEST(CNLSObjectiveFunction, NumericalDerivativesDoNotHideWhatIsNotDetermined)
{
    std::mt19937 engine(5);
    for (int trial = 0; trial < 100; ++trial) {
        Problem line(3, 20, [](const Vector& p) {
            Vector r(20);
            for (int i = 0; i < 20; ++i) r[i] = p[0] * p[1] * (0.1 * i) + p[2] - 1;
            return r;
        });
        const Vector p = RandomVector(engine, 3) * std::pow(10.0, trial % 4 - 1);
        EXPECT_EQ(line.GetDCriterionValue(p), 0);
        const Matrix covariance = line.GetCovariance(p, 1);
        EXPECT_NE(covariance(0, 0) == 0, covariance(1, 1) == 0) << "one of the two counts as known" << p;
        ASSERT_TRUE(line.AddEquality(1, p[1]));
        EXPECT_GT(line.GetDCriterionValue(p), 0);
    }
    // Nearly dependent, but told apart by exact derivatives.
    Indices determined;
    const Matrix close = Problem::getCovariance({{1, 1}, {1, 1 + 1e-6}}, determined, 1);
    EXPECT_EQ(determined, (Indices{0, 1}));
    EXPECT_NEAR(close(0, 0) * 1e-12, 2, 1e-5);
}

TEST(CNLSObjectiveFunction, CovarianceLeavesOutWhatIsNotDetermined)
{
    // Only p0 + 1e6·p2 and p1 are measured.
    Problem problem = Linear({{1, 0, 1e6}, {1, 0, 1e6}, {0, 2, 0}, {0, 0, 0}});
    const Matrix covariance = problem.GetCovariance({1, 2, 3}, 1);
    EXPECT_NEAR(covariance(1, 1), 0.25, 1e-8);
    EXPECT_EQ(covariance(0, 0) == 0, covariance(2, 2) != 0) << "one of the two counts as known";
    EXPECT_NEAR(covariance(0, 0) + 1e12 * covariance(2, 2), 0.5, 1e-5);
    EXPECT_EQ(problem.GetDCriterionValue({1, 2, 3}), 0);
    Indices determined;
    const Matrix part = Problem::getCovariance({{0, 3}, {0, 4}}, determined, 2) - Matrix{{0, 0}, {0, 4.0 / 25}};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(part.Data()[i], 0, 1e-15);
    EXPECT_EQ(determined, Indices{1});

    for (const Vector& bad : {Vector(2), Vector{1, NaN, 2}}) {
        EXPECT_TRUE(std::isnan(problem.GetCovariance(bad, 1)(0, 0)));
        EXPECT_TRUE(std::isnan(problem.GetDCriterionValue(bad)));
    }
    problem.deviations = [] { return Vector{1, 1, 0, 1}; };
    EXPECT_TRUE(std::isnan(problem.GetCovariance({1, 2, 3}, 1)(1, 1)));
    EXPECT_TRUE(std::isnan(problem.GetCorrelation({1, 2, 3}, 1)(1, 1)));
    problem.SetNumMeasurements(5); // the residuals are 4
    EXPECT_TRUE(problem.Jacobian({1, 2, 3}).Empty());
    problem.SetNumMeasurements(0);
    EXPECT_TRUE(problem.Jacobian({1, 2, 3}).Empty());
    EXPECT_EQ(problem.GetCovariance({1, 2, 3}, 1), Matrix(3, 3, Inf));
}

} // namespace
