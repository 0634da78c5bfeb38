#include "VoAlgorithms/solvers/ctspsolver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using VoAlgo::CTSPSolver;
using Cities = std::vector<unsigned>;
using Matrix = VoAlgo::TMatrix<double>;
using Points = std::vector<kdtree::Vector<3>>;

Points RandomPoints(unsigned n, unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<float> any(0, 1);
    Points points(n);
    for (auto& p : points) p = {any(engine), any(engine), 0.1F * any(engine)};
    return points;
}

Matrix DistancesOf(const Points& points)
{
    Matrix distances(points.size(), points.size());
    for (std::size_t i = 0; i < points.size(); ++i)
        for (std::size_t j = 0; j < points.size(); ++j) {
            const double x = double{points[i].x} - double{points[j].x}, y = double{points[i].y} - double{points[j].y},
                         z = double{points[i].z} - double{points[j].z};
            distances(i, j) = std::sqrt(x * x + y * y + z * z);
        }
    return distances;
}

/// Symmetric without any geometry.
Matrix RandomDistances(unsigned n, unsigned seed)
{
    std::mt19937 engine(seed);
    Matrix distances(n, n);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j < i; ++j) distances(i, j) = distances(j, i) = static_cast<double>(engine() % 100);
    return distances;
}

double LengthOf(const Matrix& distances, const Cities& tour, bool isClosed)
{
    double length = 0;
    for (std::size_t i = 0; i + 1 < tour.size(); ++i) length += distances(tour[i], tour[i + 1]);
    return isClosed && tour.size() > 1 ? length + distances(tour.back(), tour.front()) : length;
}

bool AreNeighbours(const Cities& tour, unsigned a, unsigned b, bool isClosed)
{
    const auto place = [&](unsigned city) { return std::find(tour.begin(), tour.end(), city) - tour.begin(); };
    const std::ptrdiff_t apart = std::abs(place(a) - place(b));
    return apart == 1 || (isClosed && apart == static_cast<std::ptrdiff_t>(tour.size()) - 1);
}

/// What one call has to obey.
struct Demands {
    bool isClosed = true;
    std::optional<unsigned> first, last;
    std::vector<std::pair<unsigned, unsigned>> neighbours;

    void Set(CTSPSolver& solver) const
    {
        solver.SetClosed(isClosed);
        solver.SetEnds(first, last);
        for (const auto& [a, b] : neighbours) solver.RequireNeighbours(a, b);
    }
    [[nodiscard]] bool AreMetBy(const Cities& tour) const
    {
        if (!isClosed && ((first && tour.front() != *first) || (last && tour.back() != *last))) return false;
        return std::all_of(neighbours.begin(), neighbours.end(),
                           [&](const auto& pair) { return AreNeighbours(tour, pair.first, pair.second, isClosed); });
    }
};

/// The shortest of all orders.
double ShortestOf(const Matrix& distances, const Demands& demands)
{
    Cities order(distances.Rows());
    std::iota(order.begin(), order.end(), 0U);
    double shortest = std::numeric_limits<double>::infinity();
    do {
        if (demands.AreMetBy(order)) shortest = std::min(shortest, LengthOf(distances, order, demands.isClosed));
    } while (std::next_permutation(order.begin(), order.end()));
    return shortest;
}

void ExpectPermutation(Cities tour, std::size_t n)
{
    std::sort(tour.begin(), tour.end());
    Cities all(n);
    std::iota(all.begin(), all.end(), 0U);
    ASSERT_EQ(tour, all);
}

/// All kinds of demands that n cities can meet.
std::vector<Demands> AllDemands(unsigned n)
{
    const unsigned a = n / 2, b = n - 1;
    std::vector<Demands> all = {{true, {}, {}, {}}, {false, {}, {}, {}}, {false, 0, {}, {}}, {false, {}, b, {}}};
    if (n > 1) all.push_back({false, b, 0, {}});
    if (n > 4)
        all.insert(
            all.end(),
            {{true, {}, {}, {{a, 0}, {a, b}}}, {false, {}, 0, {{0, b}, {a, b}, {b, a}}}, {false, a, b, {{0, 1}}}});
    return all;
}

// Every order of up to 7 cities tried: for points, and for distances that no points have.
TEST(CTSPSolver, FewCitiesAgainstAllOrders)
{
    for (unsigned n = 1; n <= 7; ++n)
        for (unsigned seed = 0; seed < 6; ++seed) {
            const Points points = RandomPoints(n, seed);
            const bool hasPoints = seed % 2 == 0;
            const Matrix distances = hasPoints ? DistancesOf(points) : RandomDistances(n, seed);
            for (const Demands& demands : AllDemands(n)) {
                CTSPSolver solver = hasPoints ? CTSPSolver(points) : CTSPSolver(distances);
                demands.Set(solver);
                const Cities tour = solver.Solve();
                ExpectPermutation(tour, n);
                ASSERT_TRUE(demands.AreMetBy(tour)) << n;
                ASSERT_NEAR(LengthOf(distances, tour, demands.isClosed), ShortestOf(distances, demands), 1e-12);
                ASSERT_NEAR(solver.GetLength(), LengthOf(distances, tour, demands.isClosed), 1e-12);
                ASSERT_EQ(solver.GetLowerBound(), solver.GetLength());
            }
        }
}

/// A city more, at the place of another one, leaves the optimum as it is, but takes 13 cities to the search.
TEST(CTSPSolver, SearchFindsTheOptimumOfTwelveCities)
{
    for (unsigned seed = 0; seed < 20; ++seed)
        for (const bool isClosed : {true, false}) {
            Points points = RandomPoints(12, seed);
            CTSPSolver exact(points);
            points.push_back(points[5]);
            CTSPSolver search(points);
            for (CTSPSolver* solver : {&exact, &search}) solver->SetClosed(isClosed);
            search.SetRounds(200);
            (void)exact.Solve();
            ExpectPermutation(search.Solve(), 13);
            ASSERT_NEAR(search.GetLength(), exact.GetLength(), 1e-9) << seed;
            ASSERT_LE(search.GetLowerBound(), exact.GetLength() + 1e-9) << seed;
            ASSERT_GT(search.GetLowerBound(), 0.9 * exact.GetLength()) << seed;
        }
}

/// Demands hold in a search, too; the length is that of the tour, and not below the bound; points and their matrix are
/// one problem.
TEST(CTSPSolver, ManyCitiesMeetDemands)
{
    for (const unsigned n : {13U, 40U, 200U}) {
        const Points points = RandomPoints(n, n);
        const Matrix distances = DistancesOf(points);
        std::vector<Demands> all = AllDemands(n);
        Demands chain; // all but a few
        for (unsigned i = 0; i + 4 < n; ++i) chain.neighbours.emplace_back(i, i + 1);
        all.push_back(chain);
        for (const Demands& demands : all)
            for (const bool hasPoints : {true, false}) {
                CTSPSolver solver = hasPoints ? CTSPSolver(points) : CTSPSolver(distances);
                demands.Set(solver);
                solver.SetRounds(100);
                const Cities tour = solver.Solve();
                ExpectPermutation(tour, n);
                ASSERT_TRUE(demands.AreMetBy(tour)) << n;
                ASSERT_NEAR(solver.GetLength(), LengthOf(distances, tour, demands.isClosed), 1e-9);
                ASSERT_LT(solver.GetGap(), 0.06) << n << ' ' << demands.neighbours.size();
                ASSERT_EQ(solver.Solve(), tour);
            }
    }
}

/// Known optima. A grid of even size: as many steps as cities. A regular polygon with its middle left out: its outline.
/// Clusters far apart: the bound must not take an edge between them for missing. A line: there and back.
TEST(CTSPSolver, KnownOptima)
{
    Points grid, line, far;
    for (unsigned i = 0; i < 400; ++i) grid.emplace_back(static_cast<float>(i % 20), static_cast<float>(i / 20), 0.0F);
    for (unsigned i = 0; i < 100; ++i) line.emplace_back(static_cast<float>(i * 37 % 101), 0.0F, 0.0F);
    for (unsigned i = 0; i < 100; ++i) far.emplace_back(i % 2 == 0 ? 0.0F : 1e6F, static_cast<float>(i), 0.0F);
    std::vector<kdtree::Vector<2>> circle(200);
    for (unsigned i = 0; i < 200; ++i) {
        const double angle = 2 * 3.14159265358979323846 * (i * 77 % 200) / 200;
        circle[i] = {{static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))}};
    }
    const auto expect = [](CTSPSolver solver, bool isClosed, double optimum, double share = 0.99) {
        solver.SetClosed(isClosed);
        solver.SetRounds(500);
        (void)solver.Solve();
        EXPECT_NEAR(solver.GetLength(), optimum, 1e-7 * optimum);
        EXPECT_LE(solver.GetLowerBound(), (1 + 1e-7) * optimum);
        EXPECT_GT(solver.GetLowerBound(), share * optimum);
    };
    expect(CTSPSolver(grid), true, 400);
    expect(CTSPSolver(grid), false, 399);
    expect(CTSPSolver(line), true, 200, 0.85); // the ascent is slow here,
    expect(CTSPSolver(line), false, 100);
    expect(CTSPSolver(circle), true, 400 * std::sin(3.14159265358979323846 / 200));
    expect(CTSPSolver(far), true, 2e6 + 98 + 98, 0.5); // and slower still
    expect(CTSPSolver(far), false, 1e6 + 98 + 98);
}

TEST(CTSPSolver, EqualAndFewPoints)
{
    for (const unsigned n : {0U, 1U, 2U, 3U, 12U, 13U, 500U})
        for (const bool isClosed : {true, false}) {
            CTSPSolver same(Points(n, {1, 2, 3}));
            same.SetClosed(isClosed);
            ExpectPermutation(same.Solve(), n);
            EXPECT_EQ(same.GetLength(), 0);
            EXPECT_EQ(same.GetLowerBound(), 0);
            EXPECT_EQ(same.GetGap(), 0);
        }
    CTSPSolver none{Matrix()};
    EXPECT_EQ(none.Solve(), Cities());
    CTSPSolver two(Points{{0, 0, 0}, {3, 4, 0}});
    EXPECT_EQ(two.Solve(), (Cities{0, 1}));
    EXPECT_EQ(two.GetLength(), 10);
}

/// Rounds never make a tour longer; a callback sees them and stops where it says, with a whole tour.
TEST(CTSPSolver, RoundsImproveAndStop)
{
    const Points points = RandomPoints(2000, 1);
    CTSPSolver solver(points);
    double last = std::numeric_limits<double>::infinity();
    for (const unsigned rounds : {0U, 100U, 2500U}) {
        solver.SetRounds(rounds);
        (void)solver.Solve();
        EXPECT_LE(solver.GetLength(), last);
        last = solver.GetLength();
    }
    EXPECT_LT(solver.GetGap(), 0.03);
    for (const unsigned stop : {0U, 1000U}) {
        std::vector<std::pair<unsigned, double>> reports;
        solver.SetCallback([&](unsigned round, double length) {
            reports.emplace_back(round, length);
            return round < stop;
        });
        ExpectPermutation(solver.Solve(), points.size());
        EXPECT_EQ(reports.back().first, stop);
        EXPECT_TRUE(std::is_sorted(reports.rbegin(), reports.rend(),
                                   [](const auto& a, const auto& b) { return a.second < b.second - 1e-9; }));
        EXPECT_NEAR(solver.GetLength(), reports.back().second, 1e-9);
    }
}

template <class F>
std::string MessageOf(F f)
{
    try {
        f();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "nothing thrown";
}

TEST(CTSPSolver, RefusesWrongInput)
{
    using testing::HasSubstr;
    constexpr double Nan = std::numeric_limits<double>::quiet_NaN(), Inf = std::numeric_limits<double>::infinity();
    const auto refusal = [](const Matrix& m) { return MessageOf([&] { CTSPSolver solver(m); }); };
    EXPECT_THAT(refusal({{0, Nan}, {Nan, 0}}), HasSubstr("distance (1, 0) is not finite"));
    EXPECT_THAT(refusal({{0, Inf}, {Inf, 0}}), HasSubstr("is not finite"));
    EXPECT_THAT(refusal({{0, -1}, {-1, 0}}), HasSubstr("distance (1, 0) is negative"));
    EXPECT_THAT(refusal({{0, 1, 2}, {1, 0, 3}, {2, 4, 0}}), HasSubstr("distance (1, 2) differs from the way back"));
    EXPECT_THAT(refusal(Matrix(2, 3)), HasSubstr("2 rows and 3 columns"));
    EXPECT_THAT(MessageOf([] {
                    CTSPSolver solver(Points{{0, 0, 0}, {0, std::nanf(""), 0}});
                }),
                HasSubstr("point 1 is not finite"));

    const auto solve = [](const Demands& demands) {
        CTSPSolver solver(RandomPoints(20, 1));
        demands.Set(solver);
        (void)solver.Solve();
    };
    EXPECT_THROW(solve({false, 20, {}, {}}), std::out_of_range);
    EXPECT_THROW(solve({false, 3, 3, {}}), std::invalid_argument);
    EXPECT_THROW(solve({true, {}, {}, {{3, 20}}}), std::out_of_range);
    EXPECT_THROW(solve({true, {}, {}, {{3, 3}}}), std::invalid_argument);
    EXPECT_THAT(MessageOf([&] {
                    solve({true, {}, {}, {{3, 1}, {3, 2}, {3, 4}}});
                }),
                HasSubstr("more than two neighbours are required of city 3"));
    EXPECT_THAT(MessageOf([&] { solve({true, {}, {}, {{3, 1}, {2, 1}, {3, 2}}}); }), HasSubstr("form a ring"));
    EXPECT_THAT(MessageOf([&] { solve({false, 3, 1, {{3, 2}, {2, 1}}}); }), HasSubstr("form a ring"));
    EXPECT_THROW((void)CTSPSolver(Points(3)).GetLength(), std::logic_error);
    EXPECT_THROW((void)CTSPSolver(Points(3)).GetLowerBound(), std::logic_error);
}

} // namespace
