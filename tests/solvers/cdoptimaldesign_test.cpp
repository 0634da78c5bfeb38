#include "VoAlgorithms/solvers/cdoptimaldesign.h"

#include "VoAlgorithms/numerics/lapack.h"

#include "solvers/fit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace {

using VoAlgo::CDOptimalDesign;
using Indices = VoAlgo::TVector<int>;
using testing::ElementsAre;

struct Design {
    bool ok;
    Indices chosen;
    double determinant;
};

Design Choose(const Matrix& candidates, int size, int starts = 10)
{
    CDOptimalDesign design(candidates);
    design.SetLogging(false);
    Indices chosen{-7};
    const bool ok = design.Run(size, chosen, starts);
    return {ok, chosen, design.GetDeterminant()};
}

/// Through the singular values of the chosen rows, not through the normal matrix.
template <class Chosen>
double Criterion(const Matrix& candidates, const Chosen& chosen)
{
    Matrix rows;
    for (const int i : chosen) rows.AppendRow(candidates.Row(i));
    Matrix u, vt;
    Vector s;
    EXPECT_TRUE(VoAlgo::lapack::svd(rows, u, s, vt));
    double product = 1;
    for (const double value : s) product *= value * value;
    return product;
}

TEST(OptimalDesign, FindsTheBestSubsetOfSmallSets)
{
    std::mt19937 twister(1);
    for (int k = 0; k < 60; ++k) {
        const auto parameters = static_cast<unsigned>(1 + twister() % 3);
        const auto count = static_cast<unsigned>(parameters + 1 + twister() % 7);
        const auto size = static_cast<int>(parameters + twister() % (count - parameters + 1));
        Matrix candidates = RandomMatrix(twister, count, parameters);
        if (k % 3 == 0) // many like measurements, among them some that say nothing
            for (unsigned i = 0; i < count; ++i)
                for (unsigned j = 0; j < parameters; ++j) candidates(i, j) = std::round(candidates(i, j));
        double best = 0;
        for (unsigned subset = 0; subset < 1U << count; ++subset) {
            if (std::popcount(subset) != size) continue;
            std::vector<int> chosen;
            for (unsigned i = 0; i < count; ++i)
                if ((subset >> i & 1U) != 0) chosen.push_back(static_cast<int>(i));
            best = std::max(best, Criterion(candidates, chosen));
        }
        const Design design = Choose(candidates, size);
        ASSERT_EQ(design.ok, best > 1e-12) << k;
        EXPECT_NEAR(design.determinant, design.ok ? best : 0, 1e-10 * best) << k;
        if (!design.ok) continue;
        EXPECT_NEAR(Criterion(candidates, design.chosen), best, 1e-10 * best) << k;
        EXPECT_TRUE(std::is_sorted(design.chosen.begin(), design.chosen.end(), std::less_equal<>())) << k;
    }
}

// Polynomials on [−1, 1]: the optimal places are the roots of (1 − x²)·P'(x) with the Legendre polynomial P.
// Source: P. G. Hoel, Ann. Math. Statist. 29 (1958) 1134.
TEST(OptimalDesign, PutsPolynomialsWhereTheoryDoes)
{
    const int intervals = 200;
    Matrix cubic(intervals + 1, 4);
    for (int i = 0; i <= intervals; ++i) {
        const double x = 2.0 * i / intervals - 1;
        for (unsigned j = 0; j < 4; ++j) // in unlike units
            cubic(i, j) = 1e6 * std::pow(1000.0, -static_cast<double>(j)) * std::pow(x, j);
    }
    EXPECT_THAT(Choose(cubic, 4).chosen, ElementsAre(0, 55, 145, 200)); // ±1/√5 = ±0.447
    EXPECT_EQ(Choose(cubic, 9).chosen.Size(), 9);
}

TEST(OptimalDesign, NoExchangeImprovesALargerOneAndMoreStartsNeverHurt)
{
    std::mt19937 twister(2);
    const Matrix candidates = RandomMatrix(twister, 60, 6);
    const Design one = Choose(candidates, 15, 1), ten = Choose(candidates, 15);
    ASSERT_TRUE(one.ok && ten.ok);
    EXPECT_GE(ten.determinant, one.determinant);
    EXPECT_EQ(Choose(candidates, 15).chosen, ten.chosen);
    const double criterion = Criterion(candidates, ten.chosen);
    for (unsigned k = 0; k < 15; ++k)
        for (int other = 0; other < 60; ++other) {
            Indices exchanged = ten.chosen;
            if (std::find(exchanged.begin(), exchanged.end(), other) != exchanged.end()) continue;
            exchanged[k] = other;
            EXPECT_LE(Criterion(candidates, exchanged), criterion * (1 + 1e-9));
        }
}

// A straight line through measurements of unlike precision; the third parameter is for equalities.
TEST(OptimalDesign, TakesTheMeasurementsOfAProblem)
{
    Vector sigma{1, 0.1, 1, 1, -0.1, 1};
    Problem line(3, 6, [](const Vector& p) {
        Vector r(6);
        for (int i = 0; i < 6; ++i) r[i] = p[0] + p[1] * (i - 2.5) + p[2] * i * i;
        return r;
    });
    line.deviations = [&] { return sigma; };
    ASSERT_TRUE(line.AddEquality(2, 7));
    const Vector params{1, 2, 7};
    CDOptimalDesign design(line, params);
    design.SetLogging(false);
    Indices chosen;
    ASSERT_TRUE(design.Run(3, chosen));
    EXPECT_THAT(chosen, testing::AnyOf(ElementsAre(0, 1, 4), ElementsAre(1, 4, 5))); // the precise ones, and an end
    ASSERT_TRUE(design.Run(6, chosen));
    EXPECT_NEAR(design.GetDeterminant(), line.GetDCriterionValue(params), 1e-6 * design.GetDeterminant());

    EXPECT_FALSE(CDOptimalDesign(line, {1, 2}).Run(3, chosen));
    for (const Vector& bad : {Vector(5, 1.0), Vector{1, 1, 1, 0, 1, 1}}) {
        sigma = bad;
        EXPECT_FALSE(CDOptimalDesign(line, params).Run(3, chosen));
    }
}

TEST(OptimalDesign, RefusesWhatDeterminesNothing)
{
    const Matrix good{{1, 0}, {0, 1}, {1, 1}};
    using Row = std::pair<Matrix, int>;
    for (const auto& [candidates, size] :
         {Row{good, 1}, Row{good, 4}, Row{good, -1}, Row{Matrix(), 1}, Row{Matrix(3, 0), 1}, Row{Matrix(3, 2), 2},
          Row{{{1, 2}, {2, 4}, {-3, -6}}, 2}, Row{{{0.1, 0.3}, {0.2, 0.6}, {0.7, 2.1}}, 3},
          Row{{{1, 0}, {0, 1}, {NaN, 1}}, 2}}) {
        const Design design = Choose(candidates, size);
        EXPECT_FALSE(design.ok) << candidates;
        EXPECT_THAT(design.chosen, ElementsAre(-7));
        EXPECT_EQ(design.determinant, 0);
    }
    // Beyond the range of double in between, but not in the end.
    Matrix large = Matrix::Identity(40);
    for (unsigned i = 0; i < 40; ++i) large(i, i) = i % 2 == 0 ? 1e-20 : 1e20;
    EXPECT_NEAR(Choose(large, 40).determinant, 1, 1e-12);
}

TEST(OptimalDesign, LogsEachStartAndTheBest)
{
    CDOptimalDesign design({{1, 0}, {0, 1}, {2, 0}, {0, 3}});
    Indices chosen;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(design.Run(2, chosen, 1));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "(NLS OED) #iters=0: det start=36, det stop=36\n(NLS OED) det best=36\n");
    EXPECT_THAT(chosen, ElementsAre(2, 3));
}

} // namespace
