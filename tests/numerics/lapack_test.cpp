#include "VoAlgorithms/numerics/lapack.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <future>
#include <limits>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace VoAlgo;
using testing::Each;
using testing::ElementsAre;
using Matrix = TMatrix<double>;
using Vector = TVector<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();

template <class T = double>
TMatrix<T> RandomMatrix(std::mt19937& twister, unsigned rows, unsigned cols)
{
    std::normal_distribution<T> normal;
    TMatrix<T> m(rows, cols);
    for (unsigned c = 0; c < cols; ++c)
        for (T& e : m.Column(c)) e = normal(twister);
    return m;
}

/// Of the given rank, as a product of thin factors.
template <class T = double>
TMatrix<T> RandomMatrix(std::mt19937& twister, const std::array<unsigned, 3>& rowsColsRank)
{
    const auto [rows, cols, rank] = rowsColsRank;
    return RandomMatrix<T>(twister, rows, rank) * RandomMatrix<T>(twister, rank, cols);
}
constexpr std::array<unsigned, 3> Shapes[] = {{1, 1, 1}, {5, 3, 3}, {3, 5, 3}, {6, 6, 4},
                                              {9, 4, 2}, {4, 9, 1}, {60, 7, 7}}; // rows, columns, rank

template <class T>
T Largest(const TMatrix<T>& m)
{
    T largest = 0;
    for (unsigned c = 0; c < m.Cols(); ++c)
        for (const T e : m.Column(c)) largest = std::max(largest, std::abs(e));
    return largest;
}

template <class T>
T Orthogonality(const TMatrix<T>& q)
{
    return Largest(q.Transposed() * q - TMatrix<T>::Identity(q.Cols()));
}

template <class T>
bool IsUpperTriangular(const TMatrix<T>& r)
{
    for (unsigned c = 0; c < r.Cols(); ++c)
        for (unsigned row = c + 1; row < r.Rows(); ++row)
            if (r(row, c) != 0) return false;
    return true;
}

TEST(Cholesky, FactorAndInverseOfRandomMatrices)
{
    std::mt19937 twister(1);
    for (const unsigned n : {0U, 1U, 2U, 5U, 40U, 130U}) { // beyond 64 the routine works in blocks
        const Matrix root = RandomMatrix(twister, n + 3, n);
        const Matrix a = root.Transposed() * root;
        Matrix u = a;
        for (unsigned c = 0; c < n; ++c)
            for (unsigned r = c + 1; r < n; ++r) u(r, c) = NaN; // the lower triangle is not read
        ASSERT_TRUE(cholesky(u)) << n;
        EXPECT_TRUE(IsUpperTriangular(u));
        EXPECT_LE(Largest(u.Transposed() * u - a), 1e-13 * Largest(a));
        Matrix inverse;
        ASSERT_TRUE(choleskyInverse(u, inverse));
        EXPECT_EQ(inverse, inverse.Transposed());
        EXPECT_LE(Largest(a * inverse - Matrix::Identity(n)), 1e-12 * Largest(a) * Largest(inverse));
        ASSERT_TRUE(choleskyInverse(u, u)); // in place
        EXPECT_EQ(u, inverse);
    }
}

TEST(Cholesky, RefusesWhatHasNoFactor)
{
    Matrix kept{{7}};
    for (Matrix m : {Matrix(2, 3), Matrix{{1, NaN}, {NaN, 1}}, Matrix{{Inf}}}) {
        const std::string before = testing::PrintToString(m);
        EXPECT_FALSE(cholesky(m));
        EXPECT_EQ(testing::PrintToString(m), before);
        EXPECT_FALSE(choleskyInverse(m, kept));
    }
    for (Matrix m : {Matrix{{1, 2}, {2, 1}}, Matrix{{0}}, Matrix{{-1}}, Matrix(3, 3)}) EXPECT_FALSE(cholesky(m)) << m;
    EXPECT_FALSE(choleskyInverse(Matrix{{1, 2}, {0, 0}}, kept));
    EXPECT_EQ(kept, (Matrix{{7}}));
}

template <class T>
class SingularValues : public testing::Test {
};
using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(SingularValues, Precisions);

// The minimum-norm solution is the one whose residual is orthogonal to a's columns and which itself lies in the span of
// a's rows. All four overloads.
TYPED_TEST(SingularValues, MultiplyBackAndSolveLeastSquares)
{
    using T = TypeParam;
    const T tolerance = 100 * std::numeric_limits<T>::epsilon();
    std::mt19937 twister{2};
    for (const auto& shape : Shapes) {
        const auto [rows, cols, rank] = shape;
        const TMatrix<T> a = RandomMatrix<T>(twister, shape), b = RandomMatrix<T>(twister, rows, 3);
        TMatrix<T> destroyed = a, u, vt, diagonal(rows, cols), x(cols, 3);
        TVector<T> s;
        ASSERT_TRUE(lapack::svd(destroyed, u, s, vt));
        ASSERT_EQ(s.Size(), std::min(rows, cols));
        for (unsigned i = 0; i < s.Size(); ++i) diagonal(i, i) = s[i];
        EXPECT_LE(Largest(u * diagonal * vt - a), tolerance * Largest(a));
        EXPECT_LE(std::max(Orthogonality(u), Orthogonality(vt)), tolerance);
        EXPECT_TRUE(std::is_sorted(s.begin(), s.end(), std::greater<>()));
        EXPECT_EQ(std::count_if(s.begin(), s.end(), [&](T v) { return v > tolerance * s[0]; }), rank);

        T cond = 0;
        destroyed = a;
        ASSERT_TRUE(lapack::lssolve(destroyed, b, x, &cond));
        const T scale = s[0] / s[rank - 1]; // of the part that is not cut off
        const T allowed = tolerance * scale * scale * std::max(T{1}, Largest(x)) * std::max(T{1}, Largest(a));
        EXPECT_LE(Largest(a.Transposed() * (a * x - b)), allowed * Largest(a));
        const TMatrix<T> inNullSpace = vt * x;
        if (rank == std::min(rows, cols))
            EXPECT_NEAR(cond, scale, tolerance * scale * scale);
        else
            EXPECT_GT(cond, 1 / tolerance);
        for (unsigned c = 0; c < 3; ++c) {
            for (unsigned i = rank; i < cols; ++i) EXPECT_LE(std::abs(inNullSpace(i, c)), allowed);
            TVector<T> one(cols);
            destroyed = a;
            ASSERT_TRUE(lapack::lssolve(destroyed, TVector<T>(b.Column(c)), one, nullptr));
            EXPECT_LE((one - TVector<T>(x.Column(c))).MaxAbs(), allowed);
        }
    }
}

TEST(LeastSquares, ParallelCallsGiveTheSameBits)
{
    std::mt19937 twister(5);
    std::vector<Matrix> problems(40);
    for (Matrix& problem : problems) problem = RandomMatrix(twister, {30, 20, 15});
    const auto solveAll = [&] {
        Matrix all;
        for (Matrix a : problems) {
            Vector x(20);
            EXPECT_TRUE(lapack::lssolve(a, Vector(30, 1.0), x));
            all.AppendRow(x);
        }
        return all;
    };
    const Matrix alone = solveAll();
    std::vector<std::future<Matrix>> together(4);
    for (auto& result : together) result = std::async(std::launch::async, solveAll);
    for (auto& result : together) EXPECT_EQ(result.get(), alone);
}

TEST(LeastSquares, RefusesWhatDoesNotFitAndLeavesOutputsAlone)
{
    const Matrix a{{1, 2}, {3, 4}, {5, 6}};
    struct Row {
        Matrix a;
        Vector b, x;
    };
    double cond = 7;
    for (Row row : {Row{a, {1, 2}, {7, 7}}, Row{a, {1, 2, 3}, {7, 7, 7}}, Row{a, {1, NaN, 3}, {7, 7}},
                    Row{{{1, 2}, {Inf, 4}, {5, 6}}, {1, 2, 3}, {7, 7}}}) {
        EXPECT_FALSE(lapack::lssolve(row.a, row.b, row.x, &cond));
        EXPECT_THAT(row.x, Each(7));
    }
    Matrix copy = a, xs(2, 2, 7.0), nan{{NaN}};
    Vector x{7, 7};
    EXPECT_FALSE(lapack::lssolve(copy, Matrix(3, 1), xs, &cond));
    EXPECT_FALSE(lapack::svd(nan, xs, x, xs));
    EXPECT_EQ(xs, Matrix(2, 2, 7.0));
    EXPECT_THAT(x, Each(7));
    EXPECT_EQ(cond, 7);
}

TEST(LeastSquares, SolvesWhatIsEmptyOrZero)
{
    Vector x{7, 7};
    double cond = 7;
    Matrix zero(2, 2), nothing(0, 2), scaled{{3, 0}, {0, 6}}, xs(2, 0);
    EXPECT_TRUE(lapack::lssolve(zero, Vector{1, 1}, x, &cond));
    EXPECT_THAT(x, Each(0));
    EXPECT_TRUE(std::isnan(cond));
    x = {7, 7};
    EXPECT_TRUE(lapack::lssolve(nothing, Vector(), x, &cond));
    EXPECT_THAT(x, Each(0));
    EXPECT_TRUE(lapack::lssolve(scaled, Matrix(2, 0), xs, &cond)); // no right-hand sides
    EXPECT_EQ(cond, 2);
}

TEST(PivotedQr, FactorsMultiplyBack)
{
    std::mt19937 twister(3);
    for (const auto& shape : Shapes) {
        const auto [rows, cols, rank] = shape;
        const Matrix a = RandomMatrix(twister, shape);
        Matrix destroyed = a, q(rows, rows), r(rows, cols, 7.0);
        CPMatrix p(cols);
        ASSERT_TRUE(lapack::qrp(destroyed, q, r, p));
        EXPECT_TRUE(IsUpperTriangular(r));
        EXPECT_LE(Orthogonality(q), 1e-14);
        EXPECT_LE(Largest(a * p.Matrix<double>() - q * r), 1e-13 * Largest(a));
        for (unsigned i = 1; i < std::min(rows, cols); ++i)
            EXPECT_LE(std::abs(r(i, i)), std::abs(r(i - 1, i - 1)) * (1 + 1e-12));
    }
    Matrix a{{1, 2, 3}, {4, 5, 6}}, square(2, 2), wide(2, 3);
    CPMatrix p(3), shorter(2);
    EXPECT_FALSE(lapack::qrp(a, wide, wide, p));
    EXPECT_FALSE(lapack::qrp(a, square, square, p));
    EXPECT_FALSE(lapack::qrp(a, square, wide, shorter));
}

/// The largest residual of a·x = b, each equation in relation to its own terms; terms of 1e-30 are remnants of zeros.
double Missed(const Matrix& a, std::span<const double> x, const Vector& b)
{
    double worst = 0;
    for (unsigned i = 0; i < a.Rows(); ++i) {
        double missed = -b[i], magnitude = std::abs(b[i]);
        for (unsigned j = 0; j < a.Cols(); ++j) {
            missed += a(i, j) * x[j];
            magnitude += std::abs(a(i, j) * x[j]);
        }
        if (magnitude > 1e-30) worst = std::max(worst, std::abs(missed) / magnitude);
    }
    return worst;
}

/// Checks a·K = 0, a·x₀ = b, and that the free unknowns have the identity in K. False when the equations were found
/// contradictory or of another rank.
bool SolvesFor(const Matrix& a, const Vector& rhs, unsigned rank, double tolerance)
{
    Vector x = rhs;
    CPMatrix p;
    Matrix destroyed = a;
    const Matrix kernel = lapack::qrp_kernel(destroyed, x, p);
    if (kernel.Cols() != a.Cols() - rank || x.Empty()) return false;
    EXPECT_LE(Missed(a, x, rhs), tolerance) << a << rhs;
    EXPECT_TRUE(std::is_sorted(p.Data() + rank, p.Data() + a.Cols()));
    for (unsigned k = 0; k < kernel.Cols(); ++k) {
        EXPECT_LE(Missed(a, kernel.Column(k), Vector(a.Rows())), tolerance) << a << kernel;
        for (unsigned l = 0; l < kernel.Cols(); ++l) EXPECT_EQ(kernel(p[rank + k], l), k == l ? 1 : 0);
    }
    return true;
}

// Wrong rank, a lost permutation or a wrong sign of the kernel all show. Equations and unknowns come in unlike units:
// every equation holds to the rounding of its own terms, not of the largest unknown's.
TEST(Kernel, DescribesAllSolutionsInUnlikeUnits)
{
    std::mt19937 twister(4);
    for (const auto& shape : Shapes) {
        const auto [rows, cols, rank] = shape;
        Matrix a = RandomMatrix(twister, shape);
        for (unsigned i = 0; i < rows; ++i)
            for (unsigned j = 0; j < cols; ++j) a(i, j) *= std::pow(10.0, 3.0 * (i % 5) - 6);
        EXPECT_TRUE(SolvesFor(a, a * Vector(cols, 1.25), rank, 1e-12)) << a;
    }
    int ofFullRank = 0;
    for (int trial = 0; trial < 500; ++trial) {
        const auto cols = static_cast<unsigned>(2 + twister() % 5);
        const auto rows = static_cast<unsigned>(1 + twister() % cols);
        Vector solution(RandomMatrix(twister, cols, 1).Column(0));
        for (double& e : solution) e *= std::pow(10.0, static_cast<double>(twister() % 13) - 6);
        Matrix a(rows, cols);
        for (unsigned c = 0; c < cols; ++c)
            for (double& e : a.Column(c)) e = static_cast<double>(twister() % 7) - 3;
        ofFullRank += SolvesFor(a, a * solution, rows, 1e-14) ? 1 : 0; // others may contradict themselves by rounding
    }
    EXPECT_GT(ofFullRank, 300);
}

TEST(Kernel, FixedUnknownsComeOutExactly)
{
    Matrix a{{0, 0, 0, 4, 0}, {0, 1, 0, 0, 0}, {0, 0, 0, 0, 0}, {0, 0.1, 0, 0.3, 0.7}, {0, 1, 0, 0, 0}};
    Vector b{2, 0.1, 0, 1, 0.1};
    CPMatrix p;
    EXPECT_EQ(lapack::qrp_kernel(a, b, p), (Matrix{{1, 0}, {0, 0}, {0, 1}, {0, 0}, {0, 0}}));
    EXPECT_THAT(b, ElementsAre(0, 0.1, 0, 0.5, testing::DoubleNear(0.84 / 0.7, 1e-15)));
    EXPECT_THAT(std::vector<int>(p.Data() + 3, p.Data() + 5), ElementsAre(0, 2)); // the free ones
}

TEST(Kernel, TellsContradictionsAndBadInput)
{
    CPMatrix p;
    for (Matrix contradiction : {Matrix{{1, 1}, {1, 1}}, Matrix{{1, 0}, {0, 0}}}) {
        Vector b{1, 2};
        EXPECT_EQ(lapack::qrp_kernel(contradiction, b, p).Cols(), 1);
        EXPECT_TRUE(b.Empty());
        EXPECT_EQ(p.Size(), 2);
    }
    for (Matrix bad : {Matrix{{1, NaN}}, Matrix{{1}, {2}}}) {
        Vector b{1};
        EXPECT_EQ(lapack::qrp_kernel(bad, b, p), Matrix());
        EXPECT_THAT(b, ElementsAre(1));
    }
    Matrix none(0, 3);
    Vector b;
    EXPECT_EQ(lapack::qrp_kernel(none, b, p), Matrix::Identity(3));
    EXPECT_EQ(b, Vector(3));
}

} // namespace
