#include "VoAlgorithms/solvers/clpsolver.h"

#include "solvers/fit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

namespace {

using VoAlgo::CLPSolver;
using Matrix = VoAlgo::TMatrix<double>;
using Vector = VoAlgo::TVector<double>;

/// A programme in whole numbers, at most four unknowns.
struct Programme {
    using Row = std::array<int, 4>;
    unsigned n = 0;
    std::vector<Row> A;
    std::vector<int> b;
    Row c{};
};

/// Solves programmes in exact arithmetic: every choice of n rows is a vertex by Cramer's rule. Two boxes around
/// everything, the second twice as large, add vertices where there are none, and let an unbounded optimum grow.
class VertexEnumeration {
public:
    int status = CLPSolver::Infeasible;
    double value = 0;

    explicit VertexEnumeration(const Programme& programme)
    {
        constexpr int size = 100'000; // beyond every vertex: coefficients up to 3, b up to 30
        const std::optional<Fraction> small = Best(programme, size);
        if (!small) return;
        const std::optional<Fraction> large = Best(programme, 2 * size);
        status = Less(*small, *large) ? CLPSolver::Unbounded : CLPSolver::Optimal;
        value = static_cast<double>(small->over) / static_cast<double>(small->under);
    }

private:
    struct Fraction {
        std::int64_t over;
        std::int64_t under; // positive
    };
    static bool Less(const Fraction& a, const Fraction& b)
    {
        return static_cast<long double>(a.over) * static_cast<long double>(b.under) <
               static_cast<long double>(b.over) * static_cast<long double>(a.under);
    }

    /// Of the first n rows and columns, by expansion along the first column.
    static std::int64_t Determinant(const std::array<std::array<std::int64_t, 4>, 4>& m, unsigned n, unsigned first = 0,
                                    unsigned rowsUsed = 0)
    {
        if (first == n) return 1;
        std::int64_t sum = 0;
        int sign = 1;
        for (unsigned r = 0; r < n; ++r) {
            if ((rowsUsed >> r & 1U) != 0) continue;
            if (m[r][first] != 0) sum += sign * m[r][first] * Determinant(m, n, first + 1, rowsUsed | 1U << r);
            sign = -sign;
        }
        return sum;
    }

    static std::optional<Fraction> Best(Programme p, int box)
    {
        for (unsigned j = 0; j < p.n; ++j)
            for (const int sign : {1, -1}) {
                p.A.push_back({});
                p.A.back()[j] = sign;
                p.b.push_back(box);
            }
        std::optional<Fraction> best;
        std::vector<unsigned> chosen(p.n);
        std::iota(chosen.begin(), chosen.end(), 0U);
        do {
            const auto vertex = Vertex(p, chosen);
            if (vertex && (!best || Less(*best, *vertex))) best = vertex;
        } while (Next(chosen, static_cast<unsigned>(p.A.size())));
        return best;
    }

    static bool Next(std::vector<unsigned>& chosen, unsigned count)
    {
        for (auto k = static_cast<unsigned>(chosen.size()); k-- > 0;)
            if (chosen[k] < count - (chosen.size() - k)) {
                std::iota(chosen.begin() + k, chosen.end(), chosen[k] + 1);
                return true;
            }
        return false;
    }

    /// c·z where the chosen rows meet, if they do so in one point, which all rows allow.
    static std::optional<Fraction> Vertex(const Programme& p, const std::vector<unsigned>& chosen)
    {
        std::array<std::array<std::int64_t, 4>, 4> rows{};
        for (unsigned i = 0; i < p.n; ++i) std::copy_n(p.A[chosen[i]].begin(), p.n, rows[i].begin());
        const std::int64_t determinant = Determinant(rows, p.n);
        if (determinant == 0) return std::nullopt;
        const std::int64_t sign = determinant > 0 ? 1 : -1;
        std::array<std::int64_t, 4> z{}; // times |determinant|
        for (unsigned j = 0; j < p.n; ++j) {
            auto replaced = rows;
            for (unsigned i = 0; i < p.n; ++i) replaced[i][j] = p.b[chosen[i]];
            z[j] = sign * Determinant(replaced, p.n);
        }
        const auto times = [&](const Programme::Row& row) {
            return std::inner_product(row.begin(), row.end(), z.begin(), std::int64_t{0});
        };
        for (std::size_t i = 0; i < p.A.size(); ++i)
            if (times(p.A[i]) > p.b[i] * sign * determinant) return std::nullopt;
        return Fraction{times(p.c), sign * determinant};
    }
};

/// Programmes with everything that makes them hard, each at random.
class Generator {
public:
    Programme Next()
    {
        Programme p;
        p.n = 1 + Below(4);
        const unsigned rows = Below(p.n == 4 ? 7 : 9);
        const bool throughOnePoint = OneIn(3);
        const bool flat = OneIn(4); // the last unknown acts as the sum of the others, or not at all
        const Programme::Row point = RandomRow(p.n, 3);
        for (unsigned i = 0; i < rows; ++i) {
            Programme::Row row = OneIn(3) ? UnitRow(p.n) : RandomRow(p.n, 3);
            if (flat) row[p.n - 1] = std::accumulate(row.begin(), row.begin() + (p.n - 1), 0);
            if (OneIn(20)) row.fill(0);
            int bound = static_cast<int>(Below(12)) - 3;
            if (throughOnePoint && !OneIn(6)) bound = std::inner_product(row.begin(), row.end(), point.begin(), 0);
            Add(p, row, bound);
            if (OneIn(5)) Add(p, row, bound); // twice
            if (OneIn(6)) {                   // an equation, or a gap, or a strip without interior
                for (int& e : row) e = -e;
                Add(p, row, -bound - (OneIn(4) ? 1 : 0));
            }
        }
        p.c = RandomRow(p.n, 3);
        if (!p.A.empty() && OneIn(4)) p.c = p.A[Below(static_cast<unsigned>(p.A.size()))]; // a whole face is optimal
        return p;
    }

    std::mt19937& Twister() { return twister_; }

private:
    unsigned Below(unsigned end) { return static_cast<unsigned>(twister_() % end); }
    bool OneIn(unsigned chance) { return Below(chance) == 0; }
    Programme::Row RandomRow(unsigned n, int largest)
    {
        Programme::Row row{};
        for (unsigned j = 0; j < n; ++j)
            row[j] = static_cast<int>(Below(2 * static_cast<unsigned>(largest) + 1)) - largest;
        return row;
    }
    Programme::Row UnitRow(unsigned n)
    {
        Programme::Row row{};
        row[Below(n)] = OneIn(2) ? 1 : -1;
        return row;
    }
    static void Add(Programme& p, const Programme::Row& row, int bound)
    {
        p.A.push_back(row);
        p.b.push_back(bound);
    }

    std::mt19937 twister_{4711};
};

struct Solved {
    Matrix A;
    Vector b;
    Vector c;
};

Solved InDoubles(const Programme& p)
{
    Solved s{Matrix(p.A.size(), p.n), Vector(p.A.size()), Vector(p.n)};
    for (unsigned i = 0; i < p.A.size(); ++i) {
        for (unsigned j = 0; j < p.n; ++j) s.A(i, j) = p.A[i][j];
        s.b[i] = p.b[i];
    }
    for (unsigned j = 0; j < p.n; ++j) s.c[j] = p.c[j];
    return s;
}

/// The largest excess over b, in relation to the size of the row.
double Excess(const Solved& s, const Vector& z)
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

void ExpectAsEnumerated(const Solved& s, const VertexEnumeration& exact, double allowedExcess)
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
    Generator generator;
    std::array<int, 4> count{};
    for (int k = 0; k < 1500; ++k) {
        SCOPED_TRACE(k);
        const Programme programme = generator.Next();
        const VertexEnumeration exact(programme);
        ++count[static_cast<std::size_t>(exact.status + 1)];
        Solved s = InDoubles(programme);
        ExpectAsEnumerated(s, exact, 1e-15);
        std::uniform_real_distribution<double> exponent(-4, 4);
        for (unsigned i = 0; i < s.A.Rows(); ++i) {
            const double unit = std::pow(10.0, exponent(generator.Twister()));
            for (unsigned j = 0; j < s.A.Cols(); ++j) s.A(i, j) *= unit;
            s.b[i] *= unit;
        }
        ExpectAsEnumerated(s, exact, 1e-10);
        std::uniform_real_distribution<double> angle(0, 3);
        for (unsigned j = 1; j < s.A.Cols(); ++j) {
            const double cosine = std::cos(angle(generator.Twister()));
            const double sine = std::sqrt(1 - cosine * cosine);
            const auto turn = [&](double& x, double& y) {
                const double turned = cosine * x + sine * y;
                y = cosine * y - sine * x;
                x = turned;
            };
            for (unsigned i = 0; i < s.A.Rows(); ++i) turn(s.A(i, j - 1), s.A(i, j));
            turn(s.c[j - 1], s.c[j]);
        }
        ExpectAsEnumerated(s, exact, 1e-10);
        if (HasFatalFailure()) return;
    }
    for (const int status : {CLPSolver::Infeasible, CLPSolver::Optimal, CLPSolver::Unbounded})
        EXPECT_GT(count[static_cast<std::size_t>(status + 1)], 150) << status; // the test meets all three often
}

// Here multipliers and slopes that are 0 come out as 1e-65 or so, and their signs once decided.
TEST(LinearProgramme, TakesRemnantsOfZeroForZero)
{
    for (const Programme& programme :
         {Programme{3, {{0, 0, 1}, {0, 0, -1}, {-2, -3, -1}, {-1, 1, -2}}, {3, -4, -1, -5}, {1, 1, 2}},
          Programme{4,
                    {{3, -1, -3, 1}, {-1, -2, -3}, {3, 1, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, -1}, {-1, -3, 3, -1}},
                    {1, 5, 5, 3, 3, -3, 7},
                    {0, 3, -1, 1}},
          Programme{4,
                    {{-2, 3, -2, -3}, {0, 1}, {0, -1}, {3, -3, 2}, {-3, 0, -1, 2}, {-1, 1, 1, -2}},
                    {3, 7, -7, 7, -3, 3},
                    {-3, 0, -1, 2}}})
        ExpectAsEnumerated(InDoubles(programme), VertexEnumeration(programme), 1e-15);
}

// More unknowns than enumeration can take: a point is made optimal by writing c as a positive sum of rows that meet
// there. Up to twice as many of these as there are unknowns make it degenerate.
TEST(LinearProgramme, FindsOptimaThatWereBuiltIn)
{
    std::mt19937 twister(1);
    std::normal_distribution<double> normal;
    for (unsigned n = 1; n <= 25; ++n) {
        const unsigned tight = n + (n * (n % 3)) / 2;
        const unsigned rows = 4 * n;
        Solved s{Matrix(rows, n), Vector(rows), Vector(n)};
        Vector optimum(n);
        for (double& e : optimum) e = 100 * normal(twister);
        for (unsigned i = 0; i < rows; ++i) {
            const double multiplier = i < tight ? std::abs(normal(twister)) : 0;
            for (unsigned j = 0; j < n; ++j) {
                s.A(i, j) = normal(twister);
                s.c[j] += multiplier * s.A(i, j);
            }
            s.b[i] = s.A.Row(i).Dot(optimum) + (i < tight ? 0 : 20 * std::abs(normal(twister)));
        }
        CLPSolver solver(s.A, s.b, s.c);
        ASSERT_TRUE(solver.Run()) << n;
        const Vector z = solver.GetSolution(nullptr);
        EXPECT_LE((z - optimum).Norm(), 1e-9 * optimum.Norm()) << n;
        CLPSolver again(s.A, s.b, s.c);
        EXPECT_TRUE(again.Run());
        EXPECT_EQ(again.GetSolution(nullptr), z); // to the bit
    }
}

TEST(LinearProgramme, EndsWhereTheSimplexMethodIsKnownToSuffer)
{
    // E. M. L. Beale, Naval Res. Logist. Quart. 2 (1955) 269: the largest-coefficient rule goes in circles.
    const Solved beale{{{0.25, -60, -0.04, 9},
                        {0.5, -90, -0.02, 3},
                        {0, 0, 1, 0},
                        {-1, 0, 0, 0},
                        {0, -1, 0, 0},
                        {0, 0, -1, 0},
                        {0, 0, 0, -1}},
                       {0, 0, 1, 0, 0, 0, 0},
                       {0.75, -150, 0.02, -6}};
    CLPSolver solver(beale.A, beale.b, beale.c);
    ASSERT_TRUE(solver.Run());
    EXPECT_NEAR(beale.c.Dot(solver.GetSolution(nullptr)), 0.05, 1e-15);

    // V. Klee, G. J. Minty, in: Inequalities III (1972) 159: 2^n vertices on the way, and bounds from 5 to 5^n.
    constexpr unsigned n = 10;
    Solved cube{Matrix(2 * n, n), Vector(2 * n), Vector(n)};
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
        Solved in;
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
