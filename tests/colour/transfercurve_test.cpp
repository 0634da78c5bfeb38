#include "VoAlgorithms/colour/din99o.h"
#include "VoAlgorithms/colour/hsl.h"
#include "VoAlgorithms/colour/hsv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace VoAlgo::cs;

template <class Color>
class TransferCurves : public testing::Test {
};
using Colors = testing::Types<RGB, XYZ, Lab, DIN99o, HSL, HSV>;
TYPED_TEST_SUITE(TransferCurves, Colors);

TYPED_TEST(TransferCurves, StartAsIdentityAndConstantOutside)
{
    const TypeParam color(60, 40, 0.5);
    for (const int points : {2, 3, 17})
        for (int channel = 0; channel < 3; ++channel) {
            const auto curve = TypeParam::CreateChannelTransferCurve(channel, points);
            const auto [min, max] = curve.Range();
            ASSERT_EQ(curve.NumPoints(), static_cast<std::size_t>(points));
            for (int i = 0; i < points; ++i)
                EXPECT_NEAR(curve.GetPoint(static_cast<std::size_t>(i)).x, min + (max - min) * i / (points - 1), 1e-13);
            for (double x = min; x <= max; x += (max - min) / 1000) EXPECT_NEAR(curve(x), x, 1e-13);
            EXPECT_TRUE(curve(min - 1) == min && curve(-HUGE_VAL) == min && curve(max + 1) == max);
            EXPECT_TRUE(std::isnan(curve(std::nan(""))));
            const auto i = static_cast<std::size_t>(channel);
            EXPECT_EQ(TypeParam::CreateColorTransferCurve(points)(color)[i], curve(color[i]));
        }
}

// Wrong use throws; a bad place is refused and leaves the curve as it was.
TEST(ChannelTransferCurve, RefusesBadPlaces)
{
    EXPECT_THROW(static_cast<void>(RGB::CreateChannelTransferCurve(3, 4)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(RGB::CreateChannelTransferCurve(-1, 4)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(RGB::CreateChannelTransferCurve(0, 1)), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(RGB::CreateColorTransferCurve(-7)), std::invalid_argument);
    const double nan = std::nan("");
    EXPECT_THROW(CChannelTransferCurve({1, 1}, 2), std::invalid_argument);
    EXPECT_THROW(CChannelTransferCurve({nan, 1}, 2), std::invalid_argument);
    auto curve = RGB::CreateChannelTransferCurve(0, 4); // 0, 85, 170, 255
    EXPECT_THROW(static_cast<void>(curve.GetPoint(4)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(curve.MovePoint(4, {1, 1})), std::out_of_range);
    using Point = CChannelTransferCurve::Point; // not finite; outside in y; outside in x; not between the neighbours
    for (const auto& place :
         {Point{nan, 1}, Point{1, nan}, Point{HUGE_VAL, 1}, Point{100, 256}, Point{100, -1e-9}, Point{-1, 1},
          Point{0, 10}, Point{1e-9, 1}, Point{170, 1}, Point{171, 1}, Point{std::nextafter(170, 0), 1}})
        EXPECT_FALSE(curve.MovePoint(1, place)) << place.x << " " << place.y;
    EXPECT_FALSE(curve.MovePoint(3, {255.5, 255}));
    for (double x = 0; x <= 255; x += 0.5) EXPECT_NEAR(curve(x), x, 1e-13);
    EXPECT_TRUE(curve.MovePoint(1, {1e-6, 255})) << "the ends are open";
    EXPECT_TRUE(curve.MovePoint(0, {0, 0}));
    EXPECT_TRUE(std::isfinite(curve(5e-7)));
}

// Each channel of a colour is shaped by its own curve.
TEST(ColorTransferCurve, ShapesEachChannel)
{
    auto curve = RGB::CreateColorTransferCurve(3);
    ASSERT_TRUE(curve.Channel(0).MovePoint(1, {100, 200}) && curve.Channel(2).MovePoint(0, {0, 30}));
    EXPECT_EQ(curve(RGB(100, 100, 0)), RGB(200, 100, 30));
    EXPECT_THROW(static_cast<void>(curve.Channel(3)), std::out_of_range);
}

// Secants 1 and 1/2 over widths 1 and 3: the weights 7 and 5 give the slope 12 ÷ (7 ÷ 1 + 5 ÷ ½) = 12/17.
TEST(ChannelTransferCurve, SlopeIsTheWeightedHarmonicMean)
{
    CChannelTransferCurve curve({0, 4}, 3);
    ASSERT_TRUE(curve.MovePoint(1, {1, 1}) && curve.MovePoint(2, {4, 2.5}));
    EXPECT_NEAR((curve(1 + 1e-6) - curve(1 - 1e-6)) / 2e-6, 12.0 / 17, 1e-5);
}

// Random points: the curve passes through them, stays between the values of neighbours, is monotone between them, and
// its slope does not jump at a point.
TEST(ChannelTransferCurve, IsMonotoneBetweenItsPoints)
{
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> unit;
    for (int round = 0; round < 300; ++round) {
        const std::size_t points = 2 + engine() % 9;
        auto curve = Lab::CreateChannelTransferCurve(1, static_cast<int>(points));
        std::vector<double> y(points);
        for (double& value : y) value = engine() % 4 == 0 ? 0 : -128 + 255 * std::pow(unit(engine), 3);
        if (round % 3 == 0) std::sort(y.begin(), y.end());
        for (std::size_t i = 0; i < points; ++i) {
            const double left = i == 0 ? -128 : curve.GetPoint(i - 1).x;
            const double right = i + 1 == points ? 127 : curve.GetPoint(i + 1).x;
            ASSERT_TRUE(curve.MovePoint(i, {left + (right - left) * (0.02 + 0.96 * unit(engine)), y[i]}));
        }
        for (std::size_t i = 0; i + 1 < points; ++i) {
            const auto p = curve.GetPoint(i), q = curve.GetPoint(i + 1);
            ASSERT_EQ(curve(p.x), p.y);
            const double sign = q.y > p.y ? 1 : -1;
            double previous = p.y;
            for (int step = 1; step <= 200; ++step) {
                const double value = curve(std::min(p.x + (q.x - p.x) * step / 200, q.x));
                ASSERT_GE(sign * (value - previous), p.y == q.y ? 0 : -1e-13) << round << " " << i << " " << step;
                previous = value;
            }
            ASSERT_NEAR(previous, q.y, 1e-12);
            if (i == 0) continue;
            const double h = 1e-7 * std::min(p.x - curve.GetPoint(i - 1).x, q.x - p.x);
            const double before = (p.y - curve(p.x - h)) / h, after = (curve(p.x + h) - p.y) / h;
            ASSERT_NEAR(before, after, 1e-3 * (1 + std::abs(before))) << round << " " << i;
        }
    }
}

} // namespace
