#include "tools/tool_runner.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <set>
#include <sstream>

namespace tooltest {
namespace {

using Point = std::array<double, 3>;

double Distance(const Point& a, const Point& b)
{
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

/// The files, the printed JSON and the scan belong together: the points are points of the scan, far apart, and the
/// length is theirs; the same again gives the same bytes.
TEST(ToolPath, PointsLengthAndFilesBelongTogether)
{
    const Workplace place;
    const Points blob = Blob(3000, 100.0F);
    place.Write("a.xyz", XyzText(blob));
    for (const std::string closed : {"", " --closed"}) {
        const std::string command = "path a.xyz --points 60 --unit cm --json --out out" + closed;
        const Outcome outcome = place.Run(command);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
        EXPECT_EQ(outcome.output, place.Read("out/path.json"));
        EXPECT_EQ(place.Run(command).output, outcome.output);
        const auto json = nlohmann::json::parse(outcome.output);
        const auto points = json["points"].get<std::vector<Point>>();
        ASSERT_EQ(points.size(), 60);

        double length = closed.empty() ? 0.0 : Distance(points.back(), points.front()), apart = 1e9, farthest = 0.0;
        for (std::size_t i = 0; i + 1 < points.size(); ++i) length += Distance(points[i], points[i + 1]);
        EXPECT_NEAR(json["length"].get<double>(), length, 1e-4 * length);
        EXPECT_LE(json["lowerBound"], json["length"]);
        EXPECT_LT(json["gap"], 0.1);
        for (std::size_t i = 0; i < points.size(); ++i)
            for (std::size_t j = 0; j < i; ++j) apart = std::min(apart, Distance(points[i], points[j]));
        for (const auto& p : blob) {
            double nearest = 1e9;
            for (const Point& q : points) nearest = std::min(nearest, Distance({p.x, p.y, p.z}, q));
            farthest = std::max(farthest, nearest);
        }
        EXPECT_LE(farthest, apart + 1e-4); // what farthest points are

        std::istringstream rows(place.Read("out/path.txt"));
        for (const Point& p : points) {
            Point read{}, normal{};
            for (double& v : read) rows >> v;
            for (double& v : normal) rows >> v;
            EXPECT_LT(Distance(read, p), 1e-4);
            EXPECT_NEAR(Distance(normal, {}), 1.0, 1e-4);
        }
        EXPECT_THAT(place.Read("out/path.png"), testing::HasSubstr("PNG"));
    }
}

TEST(ToolPath, RefusesAndNames)
{
    const Workplace place;
    place.Write("a.xyz", XyzText(Blob(300, 100.0F)));
    EXPECT_EQ(place.Run("path a.xyz --points 300 --quiet").exitCode, 0);
    EXPECT_EQ(place.Run("path a.xyz --points 1 --out one").exitCode, 0);
    const Outcome many = place.Run("path a.xyz --points 301");
    EXPECT_EQ(many.exitCode, 3);
    EXPECT_THAT(many.errors, testing::HasSubstr("a.xyz: has 300 points, fewer than the 301 to choose"));
    const Outcome over = place.Run("path one/path.txt --points 1 --out one");
    EXPECT_EQ(over.exitCode, 64);
    EXPECT_THAT(over.errors, testing::HasSubstr("one/path.txt"));
    EXPECT_EQ(place.Shell("\"$VOALGO\" path a.xyz --points 9 > /dev/full").exitCode, 3);
}

} // namespace
} // namespace tooltest
