#include "VoAlgorithms/colour/curvetext.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace VoAlgo::cs;
using Point = CChannelTransferCurve::Point;

TEST(CurveText, WrittenCurvesReadBackToTheSameBits)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> share;
    for (int round = 0; round < 200; ++round) {
        const double begin = std::ldexp(share(random) - 0.5, round - 100),
                     width = std::ldexp(1 + share(random), round - 100);
        const ChannelRange range{begin, begin + width};
        std::vector<Point> points(2 + random() % 20);
        for (std::size_t i = 0; i < points.size(); ++i) {
            const double step = width / static_cast<double>(points.size() + 1);
            points[i] = {begin + step * (static_cast<double>(i) + share(random) / 2), begin + width * share(random)};
        }
        const CurveText read = ReadCurve(WriteCurve({CChannelTransferCurve(range, points), "L* (grün)", "%"}));
        EXPECT_EQ(read.channel, "L* (grün)");
        EXPECT_EQ(read.unit, "%");
        EXPECT_EQ(read.curve.Range(), range);
        ASSERT_EQ(read.curve.NumPoints(), points.size());
        for (std::size_t i = 0; i < points.size(); ++i) EXPECT_EQ(read.curve.GetPoint(i), points[i]);
    }
}

TEST(CurveText, ReadsWhatPeopleWrite)
{
    const CurveText read = ReadCurve("\xEF\xBB\xBF# from the lab\r\n\r\ntransfercurve 1\r  range\t0 100 # percent\n"
                                     "channel  a b \nmonotone descending\npoints 3\n0 100\n 50 40\n100 40");
    EXPECT_EQ(read.channel, "a b");
    EXPECT_EQ(read.unit, "");
    EXPECT_EQ(read.curve(50), 40);
    EXPECT_EQ(WriteCurve(read),
              "transfercurve 1\nchannel a b\nrange 0 100\nmonotone descending\npoints 3\n 0 100\n 50 40\n 100 40\n");
}

TEST(CurveText, FaultsNameTheirPlace)
{
    const std::string head = "transfercurve 1\nrange 0 1\n";
    const std::pair<std::string, const char*> rows[] = {
        {"", "line 1, column 1: text ends before the signature"},
        {"# 1\ncurve 1", "line 2, column 1: not a transfer curve"},
        {"transfercurve 2", "line 1, column 15: unknown version"},
        {"transfercurve", "line 1, column 14: unknown version"},
        {"transfercurve 1 1", "line 1, column 17: more than expected"},
        {"transfercurve 1\n rang 0 1", "line 2, column 2: unknown key \"rang\""},
        {"transfercurve 1\nrange 0 0x1", "line 2, column 9: not a number"},
        {"transfercurve 1\nrange 0", "line 2, column 8: not a number"},
        {"transfercurve 1\nrange 0 inf", "line 2, column 7: not a range"},
        {"transfercurve 1\npoints 2", "line 2, column 1: points before their range"},
        {head + "monotone yes", "line 3, column 10: expected ascending, descending or no"},
        {head + "points 1\n0 0", "line 3, column 1: fewer than 2 points"},
        {head + "points 18446744073709551615\n0 0\n1 1", "line 6, column 1: text ends before the last point"},
        {head + "points 2\n0 0\n0 1", "line 5, column 1: not a point of the range to the right of the one before"},
        {head + "points 2\n0 0\n1 1.5", "line 5, column 1: not a point of the range to the right of the one before"},
        {head + "points 2\n0 nan\n1 1", "line 5, column 1: not a point of the range to the right of the one before"},
        {head + "points 2\n0 0\n1 1 1", "line 5, column 5: more than expected"},
        {head + "points 2\n0 0\n1 1\n2 2", "line 6, column 1: more than expected"},
        {head + "monotone ascending\npoints 2\n0 1\n1 0", "the points are not ascending, although the text says so"},
    };
    for (const auto& [text, error] : rows)
        EXPECT_THAT([&t = text] { (void)ReadCurve(t); }, testing::ThrowsMessage<std::invalid_argument>(error)) << text;
    const CChannelTransferCurve curve({0, 1}, 2);
    EXPECT_THROW((void)WriteCurve({curve, "a#b"}), std::invalid_argument);
    EXPECT_THROW((void)WriteCurve({curve, "", " mm"}), std::invalid_argument);
}

} // namespace
