#include "VoAlgorithms/colour/din99o.h"
#include "VoAlgorithms/colour/hsl.h"
#include "VoAlgorithms/colour/hsv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using namespace VoAlgo::cs;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Huge = std::numeric_limits<double>::max();

template <class Color>
double MaxDifference(const Color& a, const Color& b)
{
    return std::max({std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2])});
}

// Checked at compile time: the packed layouts byte by byte, the clamps, the deliberate oddities.
static_assert(RGB(1, 2, 3).ToARGB() == 0xFF010203U && RGB(1, 2, 3).ToABGR() == 0xFF030201U);
static_assert(RGB(1, 2, 3).ToBGRA() == 0x030201FFU && RGB(1, 2, 3).ToRGBA() == 0x010203FFU);
static_assert(RGB::FromARGB(0x80010203U) == RGB(1, 2, 3) && RGB::FromABGR(0x80030201U) == RGB(1, 2, 3));
static_assert(RGB::FromBGRA(0x03020180U) == RGB(1, 2, 3) && RGB::FromRGBA(0x01020380U) == RGB(1, 2, 3));
static_assert(RGB(255, 255, 255).ToGray() == 255 && RGB(0, 255, 0).ToGray() == 182 && RGB(0, 0, 100).ToGray() == 7);
static_assert(RGB(-1, 256, 7.25).Clamp() == RGB(0, 255, 7.25) && XYZ(-1, 101, 100.5).Clamp() == XYZ(0, 100, 100));
static_assert(Lab(101, -129, 128).Clamp() == Lab(100, -128, 127));
static_assert(HSL(-1, 101, 50) == HSL(0, 100, 50) && HSL(361, -1, 0).H == 360);
static_assert(HSV(361, 1.5, -0.5) == HSV(360, 1, 0));
static_assert(Lab(100, 0, 0).ToXYZ() == XYZ(95.047, 100, 100));
static_assert(HSL(RGB(255, 255, 255)).L == 255 && HSL(RGB(255, 255, 255)).S == 0);
static_assert(HSL(RGB(1, 0.5, 0.5)).L == 0.75 && HSL(RGB(1, 0.5, 0.5)).S == 0.5 / 1.5);
static_assert(noexcept(Lab(RGB())) && noexcept(DIN99o(Lab())) && noexcept(XYZ::FromSRGB({})));

// Rounding and clamping against the C library's rounding in the default mode, around every tie and far outside.
TEST(PackedColours, RoundTiesToEvenAndClamp)
{
    std::vector<double> values = {NaN, -Huge, Huge, -HUGE_VAL, HUGE_VAL, 127.5, 126.5, 0x1p-1074, -0x1p-1074};
    for (double half = -140; half <= 270; half += 0.5)
        for (const double value : {half, std::nextafter(half, -Huge), std::nextafter(half, Huge)})
            values.push_back(value);
    for (const double value : values) {
        SCOPED_TRACE(value);
        const auto expected = [value](double lowest, double highest) {
            return std::isnan(value) ? lowest : std::clamp(std::nearbyint(value), lowest, highest);
        };
        const RGB::Packed rgb = RGB::Packed().FromRGB(value, 1, value);
        EXPECT_EQ(rgb.r, expected(0, 255));
        EXPECT_EQ(rgb, RGB::Packed(RGB(value, 1, value)));
        EXPECT_EQ(RGB(0, value, 0).ToG(), expected(0, 255));
        const DIN99o::Packed din(DIN99o(value, value, value));
        EXPECT_EQ(din.L, expected(0, 100));
        EXPECT_EQ(din.a, expected(-128, 127));
        EXPECT_EQ(DIN99o(din), DIN99o(din.L, din.a, din.b));
    }
}

// The published matrices and gamma with their published colours: white, and sRGB's red, green and blue (IEC 61966-2-1,
// CIE 15), to the digits printed there.
TEST(Conversions, GoldenValues)
{
    EXPECT_LT(MaxDifference(XYZ::FromSRGB({255, 255, 255}), XYZ::WhiteReference()), 8e-3);
    EXPECT_LT(MaxDifference(XYZ::FromSRGB({255, 0, 0}), XYZ(41.24, 21.26, 1.93)), 0.01);
    EXPECT_LT(MaxDifference(XYZ::FromSRGB({128, 128, 128}), XYZ(20.517, 21.586, 23.504)), 3e-3);
    EXPECT_LT(MaxDifference(Lab(XYZ::FromSRGB({255, 0, 0})), Lab(53.24, 80.09, 67.20)), 0.02);
    EXPECT_LT(MaxDifference(Lab(XYZ::FromSRGB({0, 255, 0})), Lab(87.73, -86.18, 83.18)), 0.02);
    EXPECT_LT(MaxDifference(Lab(XYZ::FromSRGB({0, 0, 255})), Lab(32.30, 79.19, -107.86)), 0.02);
    EXPECT_LT(MaxDifference(XYZ(RGB(127.5, 127.5, 127.5)), XYZ(47.5228, 50, 54.4377)), 1e-4); // linear: half the white
    EXPECT_EQ(XYZ(RGB(-5, 300, 0)), XYZ(RGB(0, 255, 0)));
    EXPECT_EQ(XYZ::FromSRGB({-5, 300, 0}), XYZ::FromSRGB({0, 255, 0}));
    EXPECT_EQ(HSL(0, 100, 50).ToRGB(), RGB(1, 0, 0));
    EXPECT_EQ(HSV(RGB(0, 0, 0)), HSV(0, 0, 0));
}

// f of L*a*b* against the C library's cube root and the textbook's line. Two Halley steps leave a known error, which
// reveals another number of steps and another initial guess.
TEST(Conversions, CubeRootIsThatOfTwoHalleySteps)
{
    double largest = 0;
    for (double t = 0; t < 3; t += 1e-4) {
        const double f = (Lab(XYZ(0, 100 * t, 0)).L + 16) / 116;
        const double exact = t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116;
        largest = std::max(largest, std::abs(f - exact) / exact);
    }
    EXPECT_LT(largest, 1e-14);
    EXPECT_GT(largest, 2e-15);
}

// Round trips over the cube in steps of 5. The two matrices of the linear path are inverse to six digits; the gamma
// amplifies that near black.
TEST(RoundTrips, OverTheCube)
{
    double linear = 0, coded = 0, lab = 0, hsv = 0, hsl = 0;
    const auto widen = [](double& largest, const auto& there, const auto& back) {
        largest = std::max(largest, MaxDifference(there, back));
    };
    for (int i = 0; i < 52 * 52 * 52; ++i) {
        const RGB c(i % 52 * 5, i / 52 % 52 * 5, i / 52 / 52 * 5), unit(c.r / 255, c.g / 255, c.b / 255);
        const XYZ xyz(c);
        widen(linear, xyz.ToRGB(), c);
        widen(coded, XYZ::FromSRGB(c).ToSRGB(), c);
        if (xyz.Z <= 100) widen(lab, Lab(c).ToRGB(), c);
        widen(hsv, HSV(c).ToRGB(), c);
        const HSL h(unit); // the way back wants percent; the odd denominator makes it one only up to L = 0.5
        if (h.L <= 0.5) widen(hsl, HSL(h.H, 100 * h.S, 100 * h.L).ToRGB(), unit);
    }
    EXPECT_LT(std::max(linear, lab), 1e-3);
    EXPECT_LT(coded, 5e-3);
    EXPECT_LT(hsv, 1e-12);
    EXPECT_LT(hsl, 1e-14);
}

TEST(RoundTrips, RandomLab)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> lightness(0, 100), chromatic(-128, 127);
    int inside = 0;
    for (int i = 0; i < 100000; ++i) {
        const Lab c(lightness(engine), chromatic(engine), chromatic(engine));
        ASSERT_LT(MaxDifference(DIN99o(c).ToLab(), c), 1e-11);
        const XYZ there = c.ToXYZ();
        if (std::min({there.X, there.Y, there.Z}) <= 0 || std::max({there.X, there.Y, there.Z}) >= 100) continue;
        ++inside; // nothing was clamped
        ASSERT_LT(MaxDifference(Lab(there), c), 1e-3);
    }
    EXPECT_GT(inside, 10000);
}

// The axes of DIN99o are those of L*a*b* turned by 26°, and greys stay grey; hue and chroma against polar coordinates.
TEST(Din99o, MeasuresAndHue)
{
    EXPECT_EQ(DIN99o(0, 0, 1).Hue(), 90.00000000000017);
    EXPECT_EQ(DIN99o(0, 0, -1).Hue(), 269.9999999999999);
    EXPECT_EQ(DIN99o(0, 0, 0).Hue(), 0);
    EXPECT_EQ(DIN99o(0, -1, 0).Hue(), 179.99999999999974); // products of the rounded π, 2π and 180/π, worked out with
    EXPECT_EQ(DIN99o(0, 1, -1e-300).Hue(), 360.00000000000006); // 60 digits
    const double turn = 26 * std::acos(-1.0) / 180;
    const DIN99o red(Lab(50, 100 * std::cos(turn), 100 * std::sin(turn))); // e = 100, f = 0
    EXPECT_NEAR(red.Hue(), 26, 1e-10);
    EXPECT_NEAR(red.Chroma(), 23 * std::log(8.5), 1e-10);
    EXPECT_NEAR(red.L, 303.67 * std::log(1.195), 1e-10);
    for (double angle = 0.5; angle < 360; angle += 1) {
        const double radians = angle * std::acos(-1.0) / 180;
        const DIN99o c(10, 30 * std::cos(radians), 30 * std::sin(radians));
        EXPECT_NEAR(c.Hue(), angle, 1e-10);
        EXPECT_NEAR(c.Chroma(), 30, 1e-12);
        EXPECT_NEAR(c.DeltaC(DIN99o(0, 3, 4)), -25, 1e-12);
    }
    const DIN99o origin, other(2, 3, 6);
    EXPECT_EQ(origin.Distance(other), 7);
    EXPECT_EQ(origin.ChromaticDistance(other), std::sqrt(45));
}

// Hue by sectors against the textbook's formula V − V·S·max(0, min(k, 4 − k, 1)), k = (n + H/60) mod 6, n = 5, 3, 1.
TEST(HueSpaces, HsvToRgbIsTheTextbookFormula)
{
    for (double hue = 0; hue <= 360; hue += 0.75)
        for (const double s : {0.0, 0.3, 1.0}) {
            const auto channel = [&](double n) {
                const double k = std::fmod(n + hue / 60, 6);
                return 255 * (0.8 - 0.8 * s * std::max(0.0, std::min({k, 4 - k, 1.0})));
            };
            EXPECT_LT(MaxDifference(HSV(hue, s, 0.8).ToRGB(), RGB(channel(5), channel(3), channel(1))), 1e-10) << hue;
        }
    HSV wild(0, 1, 1);
    for (const double hue : {-1e300, -1.0, 361.0, HUGE_VAL}) {
        wild.H = hue; // both ends are red
        EXPECT_EQ(wild.ToRGB(), RGB(255, 0, 0));
    }
    wild.H = NaN;
    EXPECT_TRUE(std::isnan(wild.ToRGB().g));
}

} // namespace
