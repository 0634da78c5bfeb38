#include "VoAlgorithms/colour/lab.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>

namespace {

using VoAlgo::cs::Lab;
using Real = long double;
using Complex = std::complex<Real>;

constexpr Real Radian = std::numbers::pi_v<Real> / 180;

Real Square(Real x)
{
    return x * x;
}

// The formula without hue angles as far as possible: colours are complex numbers, their difference of hue is the angle
// of a quotient and their mean hue that of the sum of directions. Opposite hues, where the sum vanishes, take the mean
// of the angles, as published.
Real Ciede2000(const Lab& first, const Lab& second)
{
    const auto weight = [](Real chroma) { return std::sqrt(1 / (1 + std::pow(25 / chroma, Real(7)))); };
    const Real meanAb = (std::hypot(Real(first.a), Real(first.b)) + std::hypot(Real(second.a), Real(second.b))) / 2;
    const Real stretch = meanAb == 0 ? 1 : 1.5L - 0.5L * weight(meanAb);
    const Complex z1(stretch * first.a, first.b), z2(stretch * second.a, second.b);
    const Real c1 = std::abs(z1), c2 = std::abs(z2), meanC = (c1 + c2) / 2;
    const Complex u1 = c1 > 0 ? z1 / c1 : 0, u2 = c2 > 0 ? z2 / c2 : 0;

    Real meanHue = std::arg(u1 + u2);
    if (std::abs(u1 + u2) < 1e-12L) {
        const auto positive = [](Real angle) { return angle < 0 ? angle + 360 * Radian : angle; };
        meanHue = (positive(std::arg(u1)) + positive(std::arg(u2))) / 2;
    }
    if (meanHue < 0) meanHue += 360 * Radian;
    const Real deltaH = 2 * std::sqrt(c1 * c2) * std::sin(std::arg(z2 * std::conj(z1)) / 2);

    const Real t = 1 - 0.17L * std::cos(meanHue - 30 * Radian) + 0.24L * std::cos(2 * meanHue) +
                   0.32L * std::cos(3 * meanHue + 6 * Radian) - 0.20L * std::cos(4 * meanHue - 63 * Radian);
    const Real l50 = Square((Real(first.L) + second.L) / 2 - 50);
    const Real l = (Real(second.L) - first.L) / (1 + 0.015L * l50 / std::sqrt(20 + l50));
    const Real c = (c2 - c1) / (1 + 0.045L * meanC);
    const Real h = deltaH / (1 + 0.015L * meanC * t);
    const Real turn = 30 * Radian * std::exp(-Square((meanHue / Radian - 275) / 25));
    const Real rotation = meanC == 0 ? 0 : -std::sin(2 * turn) * 2 * weight(meanC);
    return std::sqrt(l * l + c * c + h * h + rotation * c * h);
}

// Table 1 of G. Sharma, W. Wu and E. N. Dalal, "The CIEDE2000 color-difference formula: implementation notes,
// supplementary test data, and mathematical observations", Color Res. Appl. 30 (2005) 21-30. Both the published
// differences and the oracle above must agree, so that a slip in either shows.
const struct {
    Lab first, second;
    double difference;
} PublishedPairs[] = {
    {{50.0000, 2.6772, -79.7751}, {50.0000, 0.0000, -82.7485}, 2.0425},
    {{50.0000, 3.1571, -77.2803}, {50.0000, 0.0000, -82.7485}, 2.8615},
    {{50.0000, 2.8361, -74.0200}, {50.0000, 0.0000, -82.7485}, 3.4412},
    {{50.0000, -1.3802, -84.2814}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, -1.1848, -84.8006}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, -0.9009, -85.5211}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, 0.0000, 0.0000}, {50.0000, -1.0000, 2.0000}, 2.3669},
    {{50.0000, -1.0000, 2.0000}, {50.0000, 0.0000, 0.0000}, 2.3669},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0009}, 7.1792},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0010}, 7.1792},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0011}, 7.2195},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0012}, 7.2195},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0009, -2.4900}, 4.8045},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0010, -2.4900}, 4.8045},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0011, -2.4900}, 4.7461},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 0.0000, -2.5000}, 4.3065},
    {{50.0000, 2.5000, 0.0000}, {73.0000, 25.0000, -18.0000}, 27.1492},
    {{50.0000, 2.5000, 0.0000}, {61.0000, -5.0000, 29.0000}, 22.8977},
    {{50.0000, 2.5000, 0.0000}, {56.0000, -27.0000, -3.0000}, 31.9030},
    {{50.0000, 2.5000, 0.0000}, {58.0000, 24.0000, 15.0000}, 19.4535},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.1736, 0.5854}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.2972, 0.0000}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 1.8634, 0.5757}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.2592, 0.3350}, 1.0000},
    {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
    {{63.0109, -31.0961, -5.8663}, {62.8187, -29.7946, -4.0864}, 1.2630},
    {{61.2901, 3.7196, -5.3901}, {61.4292, 2.2480, -4.9620}, 1.8731},
    {{35.0831, -44.1164, 3.7933}, {35.0232, -40.0716, 1.5901}, 1.8645},
    {{22.7233, 20.0904, -46.6940}, {23.0331, 14.9730, -42.5619}, 2.0373},
    {{36.4612, 47.8580, 18.3852}, {36.2715, 50.5065, 21.2231}, 1.4146},
    {{90.8027, -2.0831, 1.4410}, {91.1528, -1.6435, 0.0447}, 1.4441},
    {{90.9257, -0.5406, -0.9208}, {88.6381, -0.8985, -0.7239}, 1.5381},
    {{6.7747, -0.2908, -2.4247}, {5.8714, -0.0985, -2.2286}, 0.6377},
    {{2.0776, 0.0795, -1.1350}, {0.9033, -0.0636, -0.5514}, 0.9082},
};

TEST(Ciede2000, PublishedPairsInBothOrders)
{
    for (const auto& [first, second, difference] : PublishedPairs) {
        SCOPED_TRACE(difference);
        EXPECT_NEAR(std::sqrt(first.DistanceSq_CIEDE2000(second)), difference, 5.1e-5);
        EXPECT_NEAR(std::sqrt(second.DistanceSq_CIEDE2000(first)), difference, 5.1e-5);
        EXPECT_NEAR(static_cast<double>(Ciede2000(first, second)), difference, 5.1e-5);
    }
}

TEST(Ciede2000, IsTheFormulaForRandomPairs)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> lightness(0, 100), chromatic(-128, 127), small(-2, 2);
    for (int i = 0; i < 20000; ++i) {
        const Lab first(lightness(engine), chromatic(engine), chromatic(engine));
        Lab second(lightness(engine), chromatic(engine), chromatic(engine));
        if (i % 2 == 0) second = {first.L + small(engine), first.a + small(engine), first.b + small(engine)};
        if (i % 10 == 0) second.a = second.b = 0;
        const double ours = std::sqrt(first.DistanceSq_CIEDE2000(second));
        ASSERT_NEAR(ours, static_cast<double>(Ciede2000(first, second)), 1e-9) << i;
        ASSERT_NEAR(ours, std::sqrt(second.DistanceSq_CIEDE2000(first)), 1e-12) << i;
        ASSERT_EQ(first.DistanceSq_CIEDE2000(first), 0);
    }
}

} // namespace
