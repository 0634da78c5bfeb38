#include "VoAlgorithms/solvers/cnaturalspline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::NanSensitiveDoubleEq;
using testing::Pointwise;
using VoAlgo::CNaturalSpline;
using VoAlgo::CNaturalSplineCurve;
using Numbers = std::vector<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Infinity = std::numeric_limits<double>::infinity();

MATCHER(IsClose, "is within 1e-12")
{
    return std::abs(std::get<0>(arg) - std::get<1>(arg)) <= 1e-12;
}

/// Ascending places with gaps from 0.05 to 2.
Numbers Places(std::size_t n, std::mt19937& engine)
{
    std::uniform_real_distribution<double> gap(0.05, 2.0);
    Numbers x(n, -3.0);
    for (std::size_t i = 1; i < n; ++i) x[i] = x[i - 1] + gap(engine);
    return x;
}

Numbers Noise(std::size_t n, std::mt19937& engine)
{
    std::normal_distribution<double> normal;
    Numbers y(n);
    for (double& e : y) e = normal(engine);
    return y;
}

/// ∫ y″² dx: y″ is straight on each interval.
double Bending(const CNaturalSpline& spline, const Numbers& x)
{
    double sum = 0;
    for (std::size_t i = 1; i < x.size(); ++i) {
        const double a = spline.Derivative(x[i - 1], 2), c = spline.Derivative(x[i], 2);
        sum += (x[i] - x[i - 1]) * (a * a + a * c + c * c) / 3;
    }
    return sum;
}

// Golden numbers: SciPy 1.10.1 with NumPy 1.24.2; CubicSpline(X, Y, bc_type='natural' and 'periodic') and
// make_smoothing_spline(X, Y, w=W or None, lam=…), at the places Q.
const Numbers X = {-1.5, -0.25, 0.5, 0.75, 2.0, 4.5, 5.0, 7.25};
const Numbers Y = {2.0, -1.0, 0.5, 3.0, -2.5, -0.5, 1.25, 2.0};
const Numbers W = {1, 2, 0.5, 4, 1, 3, 0.25, 1};
const Numbers Q = {-1.5, -1.0, 0.25, 0.6, 1.0, 3.0, 4.75, 6.0, 7.25};

void ExpectSpline(const CNaturalSpline& spline, double shift, const Numbers& values, const Numbers& slopes,
                  const Numbers& curvatures)
{
    Numbers v, s, c;
    for (const double q : Q) {
        v.push_back(spline(q + shift));
        s.push_back(spline.Derivative(q + shift, 1));
        c.push_back(spline.Derivative(q + shift, 2));
    }
    EXPECT_THAT(v, Pointwise(IsClose(), values));
    EXPECT_THAT(s, Pointwise(IsClose(), slopes));
    EXPECT_THAT(c, Pointwise(IsClose(), curvatures));
}

Numbers ExtremumPlaces(const CNaturalSpline& spline, double from, double to)
{
    Numbers places;
    bool isMaximum = false;
    for (const auto& e : spline.Extrema(from, to)) {
        EXPECT_TRUE(places.empty() || e.isMaximum != isMaximum); // they take turns
        EXPECT_EQ(e.y, spline(e.x));
        places.push_back(e.x);
        isMaximum = e.isMaximum;
    }
    return places;
}

TEST(CNaturalSpline, NaturalEqualsGolden)
{
    const CNaturalSpline spline(X, Y);
    const double firstSlope = -2.6840068129418517, lastSlope = -0.9136939332646561;
    ExpectSpline(spline, 0,
                 {2.0, 0.6807171385644224, -1.0076392968883787, 1.5126201575007956, 4.0366646291726695,
                  -5.424557926547542, 0.44915530558417105, 2.661011218047645, 2.0},
                 {firstSlope, -2.5476835427297626, 3.277328791372099, 10.67661247571492, 0.47401173897716875,
                  0.7559702064987608, 3.5396848443986597, 0.24096094321496386, lastSlope},
                 {0, 0.5452930808483554, 19.074027959832698, 2.5476142268645745, -26.309209924626412, 5.764403578962018,
                  -2.3729697786934736, -1.8474478023673917, 0});
    EXPECT_NEAR(spline.Integral(-1, 6), -5.3818632312085, 1e-12);
    EXPECT_EQ(spline.Integral(6, -1), -spline.Integral(-1, 6));
    EXPECT_THAT(spline.Roots(-1.5, 7.25), Pointwise(IsClose(), Numbers{-0.7230883708776368, 0.44002225691329544,
                                                                       1.7033758001639523, 4.627787663294627}));
    EXPECT_THAT(
        ExtremumPlaces(spline, -1.5, 7.25),
        Pointwise(IsClose(), Numbers{0.03542784971184765, 1.0182502962386217, 2.875314628105648, 6.138052490082965}));
    // Straight beyond the ends, where the line behind the last point has a root, too.
    EXPECT_NEAR(spline(-5), 2 - 3.5 * firstSlope, 1e-12);
    EXPECT_NEAR(spline(10), 2 + 2.75 * lastSlope, 1e-12);
    EXPECT_EQ(spline.Derivative(10, 2), 0);
    EXPECT_NEAR(spline.Integral(7.25, 10), 2 * 2.75 + 2.75 * 2.75 / 2 * lastSlope, 1e-12);
    EXPECT_NEAR(spline.Integral(-5, 10), spline.Integral(-5, 1.1) + spline.Integral(1.1, 10), 1e-12);
    EXPECT_NEAR(spline.Roots(5, 100).at(0), 7.25 - 2 / lastSlope, 1e-12);
}

TEST(CNaturalSpline, PeriodicEqualsGolden)
{
    const CNaturalSpline spline = CNaturalSpline::Periodic(X, Y);
    for (const double shift : {0.0, 3 * 8.75, -2 * 8.75})
        ExpectSpline(
            spline, shift,
            {2.0, 0.8133724012034905, -1.0169220113078907, 1.5135374636400147, 4.034743302283132, -5.407788973998863,
             0.43819531329014666, 2.975255637498354, 2.0},
            {-2.0325174630888982, -2.5848297856040197, 3.3200709571097002, 10.677184515536306, 0.4678219046546226,
             0.7712872682665957, 3.5219782659943055, 0.549669193688646, -2.0325174630888982},
            {-1.8796035239889626, -0.32964576607152263, 19.125844442950573, 2.4087357595731973, -26.296394431433686,
             5.748529916175961, -2.022250025284693, -2.2518951268551097, -1.8796035239889626});
    EXPECT_NEAR(spline.Integral(-1, 6), -5.165995091670695, 1e-12);
    EXPECT_NEAR(spline.Integral(-1, 36), -3.467971519256837, 1e-12);
    const Numbers roots = {-0.685416212934088, 0.44022716989939437, 1.7030937520135292, 4.629571880877947};
    const Numbers extrema = {0.03501069391435713, 1.0180179600961257, 2.8726414133987936, 6.248164449041665};
    Numbers manyRoots, manyExtrema;
    for (int turn = -1; turn < 2; ++turn)
        for (std::size_t i = 0; i < 4; ++i) {
            manyRoots.push_back(roots[i] + 8.75 * turn);
            manyExtrema.push_back(extrema[i] + 8.75 * turn);
        }
    EXPECT_THAT(spline.Roots(-1.5 - 8.75, 7.25 + 8.75), Pointwise(IsClose(), manyRoots));
    EXPECT_THAT(ExtremumPlaces(spline, -1.5 - 8.75, 7.25 + 8.75), Pointwise(IsClose(), manyExtrema));
}

TEST(CNaturalSpline, SmoothingEqualsGolden)
{
    EXPECT_THAT(CNaturalSpline::Smoothing(X, Y, 0.05).Values(Q),
                Pointwise(IsClose(), Numbers{1.7787449799530974, 0.4988500087341612, 0.6003294438366286,
                                             1.2290551232129436, 1.149442658767705, -2.988537204151738,
                                             0.3434840219312299, 2.1519419776128674, 2.049337981755105}));
    EXPECT_THAT(CNaturalSpline::Smoothing(X, Y, 10, W).Values(Q),
                Pointwise(IsClose(), Numbers{1.4475223781141218, 1.3514291568823042, 1.1472565498272211,
                                             1.078872281833762, 0.9619034223265837, 0.2270752945194643,
                                             0.13574927794504846, 0.4990367660201283, 1.048277014416843}));
    EXPECT_THAT(CNaturalSpline::Smoothing(X, Y, 0, W).Values(Q), Pointwise(IsClose(), CNaturalSpline(X, Y).Values(Q)));
    // The least-squares line.
    double w = 0, wx = 0, wy = 0, wxx = 0, wxy = 0;
    for (std::size_t i = 0; i < X.size(); ++i) {
        w += W[i];
        wx += W[i] * X[i];
        wy += W[i] * Y[i];
        wxx += W[i] * X[i] * X[i];
        wxy += W[i] * X[i] * Y[i];
    }
    const double slope = (w * wxy - wx * wy) / (w * wxx - wx * wx);
    const CNaturalSpline line = CNaturalSpline::Smoothing(X, Y, 1e9, W);
    for (const double q : {-10.0, 1.0, 10.0}) EXPECT_NEAR(line(q), wy / w + slope * (q - wx / w), 1e-6);
}

// Every number of points (both parities of the elimination): through the points, smooth at the knots and over the seam.
TEST(CNaturalSpline, IsSmoothEverywhere)
{
    std::mt19937 engine(1);
    for (std::size_t n = 2; n < 14; ++n) {
        SCOPED_TRACE(n);
        const Numbers x = Places(n, engine);
        const Numbers samples = Noise(n, engine);
        Numbers y = samples;
        const CNaturalSpline natural(x, y), smooth = CNaturalSpline::Smoothing(x, y, 0.1);
        std::vector<CNaturalSpline> splines = {natural, smooth};
        y.back() = y.front();
        if (n > 2) splines.push_back(CNaturalSpline::Periodic(x, y));
        for (const CNaturalSpline& spline : splines)
            for (const double knot : x) {
                const double left = knot - 1e-9;
                EXPECT_NEAR(spline(left), spline(knot), 1e-6);
                EXPECT_NEAR(spline.Derivative(left, 1), spline.Derivative(knot, 1), 1e-5);
                EXPECT_NEAR(spline.Derivative(left, 2), spline.Derivative(knot, 2), 1e-4);
            }
        for (std::size_t i = 0; i + 1 < n; ++i) {
            EXPECT_EQ(natural(x[i]), samples[i]);
            EXPECT_TRUE(n == 2 || splines.back()(x[i]) == y[i]);
        }
        EXPECT_EQ(natural.Derivative(x.front(), 2), 0);
        EXPECT_NEAR(natural.Derivative(x.back() - 1e-9, 2), 0, 1e-5);
    }
}

// No other function through the points bends less, and none has a lower sum of misfit and bending.
TEST(CNaturalSpline, BendsLeast)
{
    std::mt19937 engine(2);
    for (int run = 0; run < 50; ++run) {
        SCOPED_TRACE(run);
        const std::size_t n = 3 + static_cast<std::size_t>(run) % 10;
        const Numbers x = Places(n, engine), y = Noise(n, engine), noise = Noise(2 * n, engine);
        const CNaturalSpline spline(x, y);
        const double bending = Bending(spline, x);
        Numbers w(n), denseX, denseY;
        for (std::size_t i = 0; i < n; ++i) w[i] = std::exp(noise[i]);
        for (const double size : {0.0, 1e-3, 1.0}) {
            denseX = {x[0]};
            denseY = {y[0]};
            for (std::size_t i = 1; i < n; ++i) {
                const double middle = (x[i - 1] + x[i]) / 2;
                denseX.insert(denseX.end(), {middle, x[i]});
                denseY.insert(denseY.end(), {spline(middle) + size * noise[i], y[i]});
            }
            const double other = Bending(CNaturalSpline(denseX, denseY), denseX);
            EXPECT_GT(other, bending * (1 - 1e-10));
            EXPECT_EQ(other > bending * (1 + 1e-10), size > 0);
        }
        const double lambda = std::pow(10.0, run % 5 - 3);
        const auto cost = [&](const CNaturalSpline& s) {
            double sum = lambda * Bending(s, x);
            for (std::size_t i = 0; i < n; ++i) sum += w[i] * (y[i] - s(x[i])) * (y[i] - s(x[i]));
            return sum;
        };
        const CNaturalSpline smooth = CNaturalSpline::Smoothing(x, y, lambda, w);
        const double least = cost(smooth);
        for (std::size_t i = 0; i < n; ++i)
            for (const double step : {-1e-3, 1e-3}) {
                Numbers moved = smooth.Values(x);
                moved[i] += step;
                EXPECT_GT(cost(CNaturalSpline(x, moved)), least);
            }
    }
}

// The same bits alone, in bulk and in place, whatever the order of the places.
TEST(CNaturalSpline, BulkEqualsSingleValues)
{
    std::mt19937 engine(3);
    const Numbers x = Places(40, engine);
    Numbers y = Noise(40, engine);
    y.back() = y.front();
    std::uniform_real_distribution<double> place(x.front() - 30, x.back() + 30);
    Numbers random(500), dense, sparse, edges = {NaN, 1, Infinity, 2, -Infinity, 3, 1e300, -1e300};
    for (double& q : random) q = place(engine);
    for (double q = x.front() - 1; q < x.back() + 1; q += 0.01) dense.push_back(q);
    for (double q = x.front() - 50; q < x.back() + 50; q += 7.7) sparse.push_back(q);
    for (const double knot : x) edges.insert(edges.end(), {knot, std::nextafter(knot, -9), std::nextafter(knot, 99)});
    const Numbers backwards(dense.rbegin(), dense.rend());
    Numbers twice = dense;
    twice.insert(twice.end(), dense.begin(), dense.end());
    for (const CNaturalSpline& spline : {CNaturalSpline(x, y), CNaturalSpline::Periodic(x, y)})
        for (const Numbers& queries : {random, dense, sparse, edges, backwards, twice, Numbers{}}) {
            Numbers single, bulk = queries;
            for (const double q : queries) single.push_back(spline(q));
            EXPECT_THAT(spline.Values(queries), Pointwise(NanSensitiveDoubleEq(), single));
            spline.Values(bulk.data(), bulk.size(), bulk.data());
            for (std::size_t i = 0; i < bulk.size(); ++i)
                EXPECT_TRUE(bulk[i] == single[i] || (std::isnan(bulk[i]) && std::isnan(single[i])));
        }
    EXPECT_TRUE(std::isnan(CNaturalSpline(x, y)(NaN)));
}

// A fine grid sees every change of sign of generic splines.
TEST(CNaturalSpline, RootsAndExtremaEqualScan)
{
    std::mt19937 engine(4);
    for (int run = 0; run < 60; ++run) {
        SCOPED_TRACE(run);
        const Numbers x = Places(2 + static_cast<std::size_t>(run) % 20, engine), y = Noise(x.size(), engine);
        const CNaturalSpline spline(x, y);
        const double from = x.front() - 1.7, to = x.back() + 1.3;
        const auto scan = [&](const auto& f) {
            Numbers places;
            const double step = (to - from) / 50'000;
            for (double q = from; q < to; q += step)
                if (f(q) * f(std::min(q + step, to)) < 0) places.push_back(q + step / 2);
            return places;
        };
        const Numbers roots = spline.Roots(from, to);
        EXPECT_THAT(roots, Pointwise(testing::DoubleNear(1e-3), scan(spline)));
        for (const double root : roots) EXPECT_LT(std::abs(spline(root)), 1e-13);
        const Numbers extrema = ExtremumPlaces(spline, from, to);
        EXPECT_THAT(extrema,
                    Pointwise(testing::DoubleNear(1e-3), scan([&](double q) { return spline.Derivative(q, 1); })));
        for (const double e : extrema) EXPECT_LT(std::abs(spline.Derivative(e, 1)), 1e-12);
    }
}

TEST(CNaturalSpline, SpecialRootsAreListedOnce)
{
    const CNaturalSpline line({0, 1, 2}, {-1, 0, 1}), tent({0, 1, 2}, {1, 0, 1}), level({0, 1, 2}, {0, 0, 0});
    EXPECT_THAT(line.Roots(-5, 5), ElementsAre(1));
    EXPECT_THAT(line.Roots(1, 5), ElementsAre(1)); // at either end of the stretch, and at a stretch without length
    EXPECT_THAT(line.Roots(-5, 1), ElementsAre(1));
    EXPECT_THAT(line.Roots(1, 1), ElementsAre(1));
    EXPECT_THAT(line.Roots(2, 2), ElementsAre());
    EXPECT_THAT(tent.Roots(-1, 3), ElementsAre(1)); // touches at a knot
    EXPECT_EQ(tent.Extrema(0, 2).size(), 1);
    EXPECT_THAT(level.Roots(-1, 3), ElementsAre(-1, 0, 1, 2, 3)); // 0 throughout
    EXPECT_TRUE(level.Extrema(-1, 3).empty());
    // Lifted until a minimum between two knots touches: one root, or two or none within the rounding, side by side.
    const CNaturalSpline bowl({0, 1, 3, 4}, {4, 1, 1.5, 6});
    const auto minimum = bowl.Extrema(0, 4).at(0);
    const CNaturalSpline touching({0, 1, 3, 4}, {4 - minimum.y, 1 - minimum.y, 1.5 - minimum.y, 6 - minimum.y});
    const Numbers roots = touching.Roots(0, 4);
    ASSERT_EQ(roots.size(), 1);
    EXPECT_NEAR(roots[0], minimum.x, 1e-7);
    // Far from 1: no overflow, no lost root.
    for (const double scale : {1e-250, 1e250}) {
        const CNaturalSpline scaled({0, 1, 2, 3}, {scale, -scale, scale, -scale});
        EXPECT_EQ(scaled.Roots(0, 3).size(), 3) << scale;
        EXPECT_EQ(scaled.Extrema(0, 3).size(), 2) << scale;
        const CNaturalSpline dipping({0, 1, 3, 4}, {4 * scale, 0.1 * scale, 0.6 * scale, 6 * scale});
        EXPECT_EQ(dipping.Roots(0, 4).size(), 2) << scale;
    }
    // Touching at a knot whose slope is 0 but for the rounding; and zeros at both ends of a stretch.
    for (int i = 0; i < 200; ++i) {
        const double c = 1e-4 * i * i - 0.02;
        const Numbers x = {c - 1.1, c - 0.3, c, c + 0.3, c + 1.1};
        EXPECT_THAT(CNaturalSpline(x, {2, 1, 0, 1, 2}).Roots(c - 1.1, c + 1.1), ElementsAre(c));
        EXPECT_THAT(CNaturalSpline(x, {0, 1, 0.7, 1.9, 0}).Roots(x[0], x[4]), ElementsAre(x[0], x[4]));
    }
}

TEST(CNaturalSpline, RefusalsNameThePlace)
{
    const Numbers x = {0, 1, 2};
    const CNaturalSpline spline(x, x);
    const std::pair<std::string, std::function<void()>> cases[] = {
        {"3 x, but 2 y are given",
         [&] {
             CNaturalSpline(x, {1, 2});
         }},
        {"1 points; at least 2 are needed", [] { CNaturalSpline({1}, {1}); }},
        {"2 points; at least 3 are needed",
         [] {
             (void)CNaturalSpline::Periodic({0, 1}, {1, 1});
         }},
        {"x[1] is not finite",
         [&] {
             CNaturalSpline({0, NaN, 2}, x);
         }},
        {"y[2] is not finite",
         [&] {
             CNaturalSpline(x, {0, 1, Infinity});
         }},
        {"x[1] and x[2] are not strictly ascending",
         [&] {
             CNaturalSpline({0, 1, 1}, x);
         }},
        {"x[0] and x[1] are not strictly ascending",
         [&] {
             CNaturalSpline({5, 1, 2}, x);
         }},
        {"x[0] and x[1] are too far apart or too close together",
         [&] {
             CNaturalSpline({-1e308, 1e308, 1.1e308}, x);
         }},
        {"x[1] and x[2] are too far apart or too close together",
         [&] {
             CNaturalSpline({-1, 0, 1e-310}, x);
         }},
        {"y[0] and y[2] of a periodic spline differ", [&] { (void)CNaturalSpline::Periodic(x, x); }},
        {"lambda is negative or not finite", [&] { (void)CNaturalSpline::Smoothing(x, x, NaN); }},
        {"3 points, but 1 weights are given", [&] { (void)CNaturalSpline::Smoothing(x, x, 1, {1}); }},
        {"weights[1] is not positive",
         [&] {
             (void)CNaturalSpline::Smoothing(x, x, 1, {1, 0, 1});
         }},
        {"a derivative of order 3; 1 and 2 are possible", [&] { (void)spline.Derivative(1, 3); }},
        {"the ends of a stretch must be finite", [&] { (void)spline.Integral(0, Infinity); }},
        {"the stretch ends before it begins", [&] { (void)spline.Roots(1, 0); }},
        {"x[1] and x[2] are not strictly ascending",
         [] {
             CNaturalSplineCurve(VoAlgo::TMatrix<double>{{0, 0}, {1, 0}, {1, 0}});
         }},
        {"3 x, but 4 y are given", [&] {
             CNaturalSplineCurve(VoAlgo::TMatrix<double>{{0, 0}, {1, 0}, {2, 1}}, x, true);
         }}};
    for (const auto& [text, call] : cases) try {
            call();
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), "CNaturalSpline: " + text);
        }
}

TEST(CNaturalSplineCurve, FollowsCircleAndHelix)
{
    constexpr int N = 48;
    constexpr double Pi = 3.14159265358979323846;
    VoAlgo::TMatrix<double> circle(N, 2), helix(N, 3);
    Numbers angles(N);
    for (int i = 0; i < N; ++i) {
        angles[static_cast<std::size_t>(i)] = 2 * Pi * i / N;
        circle(i, 0) = helix(i, 0) = std::cos(2 * Pi * i / N);
        circle(i, 1) = helix(i, 1) = std::sin(2 * Pi * i / N);
        helix(i, 2) = i;
    }
    const CNaturalSplineCurve closed(circle, true);
    const double length = N * 2 * std::sin(Pi / N); // of the polygon
    EXPECT_NEAR(closed.End(), length, 1e-12);
    for (double t = -1; t < 8; t += 0.1) {
        EXPECT_NEAR(closed(t)[0], std::cos(2 * Pi * t / length), 1e-5);
        EXPECT_NEAR(closed(t)[1], std::sin(2 * Pi * t / length), 1e-5);
        EXPECT_NEAR(std::hypot(closed.Derivative(t, 1)[0], closed.Derivative(t, 1)[1]), 2 * Pi / length, 1e-4);
    }
    const CNaturalSplineCurve open(helix, angles);
    const VoAlgo::TMatrix<double> values = open.Values({0, 1, 7});
    EXPECT_EQ(open.Dimension(), 3);
    EXPECT_NEAR(values(1, 1), std::sin(1.0), 1e-5);
    EXPECT_NEAR(values(2, 2), 7 * N / (2 * Pi), 1e-12); // straight
    EXPECT_EQ(values(2, 1), open.Coordinate(1)(7));
    EXPECT_EQ(CNaturalSplineCurve(helix).Values({5})(0, 2), CNaturalSplineCurve(helix)(5)[2]);
}

} // namespace
