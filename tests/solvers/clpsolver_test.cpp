#include "VoAlgorithms/solvers/clpsolver.h"

#include "solvers/fit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <random>
#include <vector>

namespace {

using VoAlgo::CLPSolver;

/// Maximise c·z over A·z ≤ b.
struct Programme {
    Matrix A;
    Vector b, c;
};

/// By expansion along the first column that is left.
double Determinant(const Matrix& m, unsigned column = 0, unsigned rowsUsed = 0)
{
    if (column == m.Cols()) return 1;
    double sum = 0, sign = 1;
    for (unsigned r = 0; r < m.Rows(); ++r) {
        if ((rowsUsed >> r & 1U) != 0) continue;
        if (m(r, column) != 0) sum += sign * m(r, column) * Determinant(m, column + 1, rowsUsed | 1U << r);
        sign = -sign;
    }
    return sum;
}

/// The largest c·z inside a box, −∞ if there is none: every choice of n rows is a vertex by Cramer's rule. Exact for
/// small whole numbers up to the division, which rounds equal fractions to equal values.
double BestVertex(Programme p, double box)
{
    const unsigned n = p.A.Cols();
    for (const double sign : {1.0, -1.0})
        for (unsigned j = 0; j < n; ++j) {
            p.A.AppendRow(Matrix::Identity(n).Row(j) * sign);
            p.b.Append(box);
        }
    double best = -Inf;
    Matrix rows(n, n);
    Vector bounds(n), z(n); // z is multiplied by |determinant|
    std::vector<char> chosen(p.A.Rows());
    std::fill_n(chosen.begin(), n, 1);
    do {
        for (unsigned i = 0, k = 0; k < n; ++i) {
            if (chosen[i] == 0) continue;
            for (unsigned j = 0; j < n; ++j) rows(k, j) = p.A(i, j);
            bounds[k++] = p.b[i];
        }
        const double determinant = Determinant(rows);
        if (determinant == 0) continue;
        for (unsigned j = 0; j < n; ++j) {
            Matrix replaced = rows;
            std::copy(bounds.begin(), bounds.end(), replaced.Column(j).begin());
            z[j] = std::copysign(1, determinant) * Determinant(replaced);
        }
        if (p.c.Dot(z) / std::abs(determinant) <= best) continue;
        const Vector excess = p.A * z - p.b * std::abs(determinant);
        if (*std::max_element(excess.begin(), excess.end()) <= 0) best = p.c.Dot(z) / std::abs(determinant);
    } while (std::prev_permutation(chosen.begin(), chosen.end()));
    return best;
}

struct Optimum {
    int status;
    double value;
};

/// Of a programme in whole numbers. The boxes are beyond every vertex; they add vertices where there are none, and the
/// larger one lets an unbounded optimum grow.
Optimum Enumerate(const Programme& p)
{
    const double small = BestVertex(p, 1e5), large = BestVertex(p, 2e5);
    if (small == -Inf) return {CLPSolver::Infeasible, 0};
    return {small < large ? CLPSolver::Unbounded : CLPSolver::Optimal, small};
}

/// In whole numbers, with everything that makes a programme hard, each at random.
Programme RandomProgramme(std::mt19937& twister)
{
    const auto below = [&](unsigned end) { return static_cast<unsigned>(twister() % end); };
    const auto oneIn = [&](unsigned chance) { return below(chance) == 0; };
    const unsigned n = 1 + below(4), rows = below(n == 4 ? 7 : 9);
    const auto randomRow = [&] {
        Vector row(n);
        for (double& e : row) e = below(7) - 3.0;
        return row;
    };
    Programme p{Matrix(0, n), {}, randomRow()};
    const auto add = [&](const Vector& row, double bound) {
        p.A.AppendRow(row);
        p.b.Append(bound);
    };
    const Vector point = randomRow();
    const bool throughPoint = oneIn(3), flat = oneIn(4); // flat: the last unknown acts as the sum of the others
    for (unsigned i = 0; i < rows; ++i) {
        Vector row = oneIn(3) ? Matrix::Identity(n).Row(below(n)) * (oneIn(2) ? 1.0 : -1.0) : randomRow();
        if (flat) row[n - 1] = std::accumulate(row.begin(), row.end() - 1, 0.0);
        if (oneIn(20)) row = Vector(n);
        const double bound = throughPoint && !oneIn(6) ? row.Dot(point) : below(12) - 3.0;
        add(row, bound);
        if (oneIn(5)) add(row, bound);                        // twice
        if (oneIn(6)) add(-row, -bound - (oneIn(4) ? 1 : 0)); // an equation, or a gap, or a strip without interior
    }
    if (rows > 0 && oneIn(4)) p.c = p.A.Row(below(rows)); // a whole face is optimal
    return p;
}

/// The largest excess over b, in relation to the size of the row.
double Excess(const Programme& s, const Vector& z)
{
    double excess = 0;
    for (unsigned i = 0; i < s.A.Rows(); ++i) {
        long double sum = -s.b[i];
        for (unsigned j = 0; j < z.Size(); ++j) sum += static_cast<long double>(s.A(i, j)) * z[j];
        const double magnitude = std::abs(s.b[i]) + s.A.Row(i).MaxAbs() * z.Size() * (1 + z.MaxAbs());
        if (sum > 0) excess = std::max(excess, static_cast<double>(sum) / magnitude);
    }
    return excess;
}

void ExpectAsEnumerated(const Programme& s, const Optimum& exact, double allowedExcess)
{
    CLPSolver solver(s.A, s.b, s.c);
    const bool solved = solver.Run();
    ASSERT_EQ(solver.GetStatus(), exact.status) << s.A << "b " << s.b << "\nc " << s.c;
    EXPECT_EQ(solved, exact.status == CLPSolver::Optimal);
    bool valid = !solved;
    const Vector z = solver.GetSolution(&valid);
    EXPECT_EQ(valid, solved);
    ASSERT_EQ(z.Size(), solved ? s.c.Size() : 0);
    if (!solved) return;
    EXPECT_NEAR(s.c.Dot(z), exact.value, 1e-9 * (1 + std::abs(exact.value))) << s.A << "b " << s.b << "\nc " << s.c;
    EXPECT_LE(Excess(s, z), allowedExcess) << s.A << "b " << s.b << "\nz " << z;
}

// Whole numbers; then the same polyhedron with rounded coefficients: rows in unlike units, and turned so that planes
// through one point, opposite planes and dependent columns are so only up to rounding.
TEST(LinearProgramme, AgreesWithVertexEnumerationOnThousandsOfSystems)
{
    std::mt19937 twister(4711);
    std::uniform_real_distribution<double> exponent(-4, 4), angle(0, 3);
    std::map<int, int> count;
    for (int k = 0; k < 1500; ++k) {
        SCOPED_TRACE(k);
        Programme p = RandomProgramme(twister);
        const Optimum exact = Enumerate(p);
        ++count[exact.status];
        ExpectAsEnumerated(p, exact, 1e-15);
        for (unsigned i = 0; i < p.A.Rows(); ++i) {
            const double unit = std::pow(10.0, exponent(twister));
            for (unsigned j = 0; j < p.A.Cols(); ++j) p.A(i, j) *= unit;
            p.b[i] *= unit;
        }
        ExpectAsEnumerated(p, exact, 1e-10);
        Matrix turn = Matrix::Identity(p.A.Cols());
        for (unsigned j = 1; j < p.A.Cols(); ++j) {
            Matrix one = Matrix::Identity(p.A.Cols());
            one(j - 1, j - 1) = one(j, j) = std::cos(angle(twister));
            one(j, j - 1) = std::sqrt(1 - one(j, j) * one(j, j));
            one(j - 1, j) = -one(j, j - 1);
            turn = turn * one;
        }
        ExpectAsEnumerated({p.A * turn, p.b, turn.Transposed() * p.c}, exact, 1e-10);
        if (HasFatalFailure()) return;
    }
    for (const int status : {CLPSolver::Infeasible, CLPSolver::Optimal, CLPSolver::Unbounded})
        EXPECT_GT(count[status], 150) << status; // the test meets all three often
}

// Here multipliers and slopes that are 0 come out as 1e-65 or so, and their signs once decided.
TEST(LinearProgramme, TakesRemnantsOfZeroForZero)
{
    for (const Programme& p :
         {Programme{{{0, 0, 1}, {0, 0, -1}, {-2, -3, -1}, {-1, 1, -2}}, {3, -4, -1, -5}, {1, 1, 2}},
          Programme{{{3, -1, -3, 1},
                     {-1, -2, -3, 0},
                     {3, 1, 1, 0},
                     {0, 0, 1, 0},
                     {0, 0, 1, 0},
                     {0, 0, -1, 0},
                     {-1, -3, 3, -1}},
                    {1, 5, 5, 3, 3, -3, 7},
                    {0, 3, -1, 1}},
          Programme{{{-2, 3, -2, -3}, {0, 1, 0, 0}, {0, -1, 0, 0}, {3, -3, 2, 0}, {-3, 0, -1, 2}, {-1, 1, 1, -2}},
                    {3, 7, -7, 7, -3, 3},
                    {-3, 0, -1, 2}}})
        ExpectAsEnumerated(p, Enumerate(p), 1e-15);
}

// More unknowns than enumeration can take: a point is made optimal by writing c as a positive sum of rows that meet
// there. Up to twice as many of these as there are unknowns make it degenerate.
TEST(LinearProgramme, FindsOptimaThatWereBuiltIn)
{
    std::mt19937 twister(1);
    for (unsigned n = 1; n <= 25; ++n) {
        const unsigned tight = n + (n * (n % 3)) / 2, rows = 4 * n;
        const Vector optimum = RandomVector(twister, n) * 100.0;
        const Vector amount = RandomVector(twister, rows); // the multiplier of a tight row, the distance of another
        Programme p{RandomMatrix(twister, rows, n), Vector(rows), Vector(n)};
        for (unsigned i = 0; i < rows; ++i) {
            if (i < tight) p.c += p.A.Row(i) * std::abs(amount[i]);
            p.b[i] = p.A.Row(i).Dot(optimum) + (i < tight ? 0 : 20 * std::abs(amount[i]));
        }
        CLPSolver solver(p.A, p.b, p.c), again(p.A, p.b, p.c);
        ASSERT_TRUE(solver.Run() && again.Run()) << n;
        EXPECT_LE((solver.GetSolution(nullptr) - optimum).Norm(), 1e-9 * optimum.Norm()) << n;
        EXPECT_EQ(again.GetSolution(nullptr), solver.GetSolution(nullptr)); // to the bit
    }
}

TEST(LinearProgramme, EndsWhereTheSimplexMethodIsKnownToSuffer)
{
    // E. M. L. Beale, Naval Res. Logist. Quart. 2 (1955) 269: the largest-coefficient rule goes in circles.
    Programme beale{
        {{0.25, -60, -0.04, 9}, {0.5, -90, -0.02, 3}, {0, 0, 1, 0}}, {0, 0, 1, 0, 0, 0, 0}, {0.75, -150, 0.02, -6}};
    for (unsigned j = 0; j < 4; ++j) beale.A.AppendRow(-Matrix::Identity(4).Row(j));
    CLPSolver solver(beale.A, beale.b, beale.c);
    ASSERT_TRUE(solver.Run());
    EXPECT_NEAR(beale.c.Dot(solver.GetSolution(nullptr)), 0.05, 1e-15);

    // V. Klee, G. J. Minty, in: Inequalities III (1972) 159: 2^n vertices on the way, and bounds from 5 to 5^n.
    const unsigned n = 10;
    Programme cube{Matrix(2 * n, n), Vector(2 * n), Vector(n)};
    for (unsigned i = 0; i < n; ++i) {
        for (unsigned j = 0; j < i; ++j) cube.A(i, j) = std::ldexp(1, static_cast<int>(i - j + 1));
        cube.A(i, i) = 1;
        cube.b[i] = std::pow(5, i + 1);
        cube.A(n + i, i) = -1;
        cube.c[i] = std::ldexp(1, static_cast<int>(n - 1 - i));
    }
    CLPSolver climber(cube.A, cube.b, cube.c);
    ASSERT_TRUE(climber.Run());
    Vector top(n);
    top[n - 1] = std::pow(5, n);
    EXPECT_EQ(climber.GetSolution(nullptr), top);
}

TEST(LinearProgramme, AnswersToOddAndBadInput)
{
    struct Row {
        Programme in;
        int status;
        Vector solution;
    };
    const Row table[] = {
        {{Matrix(0, 2), {}, {0, 0}}, CLPSolver::Optimal, {0, 0}},
        {{Matrix(0, 2), {}, {0, 1}}, CLPSolver::Unbounded, {}},
        {{Matrix(0, 0), {}, {}}, CLPSolver::Optimal, {}},
        {{Matrix(1, 0), {-1}, {}}, CLPSolver::Infeasible, {}},
        {{{{0}, {1}}, {0, 3}, {1}}, CLPSolver::Optimal, {3}},
        {{{{0}, {1}}, {-1e-300, 3}, {1}}, CLPSolver::Infeasible, {}},
        {{{{1}, {1}}, {Inf, 3}, {1}}, CLPSolver::Optimal, {3}},
        {{{{1}}, {Inf}, {1}}, CLPSolver::Unbounded, {}},
        {{{{1}}, {-Inf}, {1}}, CLPSolver::Infeasible, {}},
        {{{{1}, {-1}}, {0.1, -0.1}, {-1}}, CLPSolver::Optimal, {0.1}},
        {{{{1e-300}, {-1e-300}}, {1e-305, 0}, {1e300}}, CLPSolver::Optimal, {1e-305 / 1e-300}},
        {{{{1e-300}}, {1e300}, {1}}, CLPSolver::GaveUp, {}}, // an optimum beyond all doubles
        {{{{NaN}}, {1}, {1}}, CLPSolver::BadInput, {}},
        {{{{1}}, {NaN}, {1}}, CLPSolver::BadInput, {}},
        {{{{1}}, {1}, {NaN}}, CLPSolver::BadInput, {}},
        {{{{Inf}}, {1}, {1}}, CLPSolver::BadInput, {}},
        {{{{1}}, {1}, {-Inf}}, CLPSolver::BadInput, {}},
        {{{{1, 2}}, {1}, {1}}, CLPSolver::BadInput, {}},
        {{{{1}}, {1, 2}, {1}}, CLPSolver::BadInput, {}},
    };
    for (const Row& row : table) {
        CLPSolver solver(row.in.A, row.in.b, row.in.c);
        EXPECT_EQ(solver.GetStatus(), CLPSolver::NotRun);
        EXPECT_EQ(solver.Run(), row.status == CLPSolver::Optimal);
        EXPECT_EQ(solver.GetStatus(), row.status) << &row - table;
        EXPECT_EQ(solver.GetSolution(nullptr), row.solution) << &row - table;
    }
}

} // namespace
