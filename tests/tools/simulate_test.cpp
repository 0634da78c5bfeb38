#include "tools/tool_runner.h"

#include "VoAlgorithms/kdtree/tkdtree.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>

namespace tooltest {
namespace {

struct Pose {
    double m[16];

    [[nodiscard]] kdtree::Vector<3> Turn(const kdtree::Vector<3>& v) const
    {
        const auto row = [&](std::size_t r) {
            return static_cast<float>(m[4 * r] * v.x + m[4 * r + 1] * v.y + m[4 * r + 2] * v.z);
        };
        return {row(0), row(1), row(2)};
    }
    [[nodiscard]] kdtree::Vector<3> Move(const kdtree::Vector<3>& p) const
    {
        return Turn(p) +
               kdtree::Vector<3>(static_cast<float>(m[3]), static_cast<float>(m[7]), static_cast<float>(m[11]));
    }
};

Pose ParsePose(const std::string& text)
{
    std::istringstream words(text);
    Pose pose{};
    for (double& v : pose.m) words >> v;
    EXPECT_FALSE(words.fail());
    return pose;
}

/// Counted anew from the files: share of a's points that have a point of b within the radius, normals less than 60
/// degrees apart.
double Overlap(const PlyContent& a, const PlyContent& b, float radius)
{
    const kdtree::TKdTree<3, 48> tree(&b.points.front().x, b.points.size(), 4);
    double count = 0;
    for (std::size_t i = 0; i < a.points.size(); ++i) {
        const int j = tree.Nearest(&a.points[i].x, radius * radius);
        if (j >= 0 && a.normals[i].Dot(b.normals[static_cast<std::size_t>(j)]) > 0.5F) ++count;
    }
    return count / static_cast<double>(a.points.size());
}

double MeanSpacing(const PlyContent& c)
{
    const kdtree::TKdTree<3, 48> tree(&c.points.front().x, c.points.size(), 4);
    std::vector<std::pair<int, float>> found;
    double sum = 0;
    for (const auto& p : c.points) {
        tree.NearestK(&p.x, 2, std::numeric_limits<float>::infinity(), found);
        sum += std::sqrt(static_cast<double>(found.at(1).second));
    }
    return sum / static_cast<double>(c.points.size());
}

class Simulated : public testing::TestWithParam<double> {};

/// The truth that is written must bring the scans together, with the overlap that was asked for.
TEST_P(Simulated, TruthAndOverlapHold)
{
    const Workplace place;
    const Outcome outcome =
        place.Run("simulate --out s --points 8000 --seed 5 --overlap " + std::to_string(GetParam()));
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    const PlyContent fix = ParsePly(place.Read("s/fix.ply"));
    PlyContent flt = ParsePly(place.Read("s/flt.ply"));
    const Pose truth = ParsePose(place.Read("s/truth.txt"));
    EXPECT_NEAR(static_cast<double>(fix.points.size()), 8000.0, 400.0);
    const double spacing = std::max(MeanSpacing(fix), MeanSpacing(flt));
    const auto radius = static_cast<float>(2.0 * spacing);
    EXPECT_LT(Overlap(flt, fix, radius), 0.5 * GetParam()) << "the scans must not lie in place already";
    for (auto& p : flt.points) p = truth.Move(p);
    for (auto& n : flt.normals) n = truth.Turn(n);
    EXPECT_NEAR(std::min(Overlap(flt, fix, radius), Overlap(fix, flt, radius)), GetParam(), 0.03);
}

INSTANTIATE_TEST_SUITE_P(Overlaps, Simulated, testing::Values(0.25, 0.6, 0.9));

TEST(Simulate, SameSeedSameBytesOtherSeedOtherScans)
{
    const Workplace place;
    const std::string options = " --points 3000 --clutter 0.2 --seed ";
    ASSERT_EQ(place.Run("simulate --out a" + options + "1").exitCode, 0);
    ASSERT_EQ(place.Run("simulate --out b" + options + "1").exitCode, 0);
    ASSERT_EQ(place.Run("simulate --out c" + options + "2").exitCode, 0);
    for (const char* file : {"/fix.ply", "/flt.ply", "/truth.txt"}) {
        EXPECT_EQ(place.Read(std::string("a") + file), place.Read(std::string("b") + file)) << file;
        EXPECT_NE(place.Read(std::string("a") + file), place.Read(std::string("c") + file)) << file;
    }
}

/// Against the exact scan of the same seed: how far each error moves the points, and how alike it moves neighbours.
TEST(Simulate, ErrorsHaveTheirSizeAndLength)
{
    const Workplace place;
    const auto scan = [&](const std::string& options) {
        const Outcome outcome = place.Run("simulate --out s --points 6000 --seed 4 " + options);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        return ParsePly(place.Read("s/fix.ply")).points;
    };
    const Points exact = scan("--noise 0");
    const auto shifts = [&](const std::string& options) {
        const Points moved = scan(options);
        EXPECT_EQ(moved.size(), exact.size());
        std::vector<double> lengths;
        for (std::size_t i = 0; i < std::min(moved.size(), exact.size()); ++i)
            lengths.push_back(static_cast<double>((moved[i] - exact[i]).Norm()));
        return lengths;
    };
    const auto rms = [](const std::vector<double>& v, std::size_t step) { // of the values, or of their differences
        double sum = 0;
        for (std::size_t i = step; i < v.size(); ++i) sum += std::pow(v[i] - (step > 0 ? v[i - step] : 0.0), 2);
        return std::sqrt(sum / static_cast<double>(v.size()));
    };
    const auto independent = shifts("--noise 0.1"), alike = shifts("--noise 0.1 --correlation 10");
    EXPECT_NEAR(rms(independent, 0), 0.1, 0.005);
    EXPECT_NEAR(rms(alike, 0), 0.1, 0.04);
    EXPECT_LT(rms(alike, 1), 0.5 * rms(independent, 1));
    EXPECT_NEAR(rms(shifts("--noise 0 --warp 0.2"), 0), 0.2, 0.15); // a handful of waves: a wide range
    EXPECT_NEAR(rms(shifts("--noise 0 --quantum 0.6"), 0), 0.6 / std::sqrt(12.0), 0.02);
}

/// A mesh of a ball: every point of both scans lies on it, seen from the front, as exactly as the noise says.
TEST(Simulate, ScansOfAMeshLieOnTheMesh)
{
    constexpr unsigned Rings = 60;
    std::string obj;
    const Points ball = [] {
        Points points;
        for (unsigned i = 0; i <= Rings; ++i)
            for (unsigned j = 0; j < 2 * Rings; ++j) {
                const double a = 3.14159265358979 * i / Rings, b = 3.14159265358979 * j / Rings;
                points.emplace_back(static_cast<float>(30 * std::sin(a) * std::cos(b)),
                                    static_cast<float>(30 * std::sin(a) * std::sin(b)),
                                    static_cast<float>(30 * std::cos(a)));
            }
        return points;
    }();
    for (const auto& p : ball)
        obj += "v " + std::to_string(p.x) + ' ' + std::to_string(p.y) + ' ' + std::to_string(p.z) + '\n';
    for (unsigned i = 0; i < Rings; ++i)
        for (unsigned j = 0; j < 2 * Rings; ++j) {
            const unsigned a = 1 + i * 2 * Rings + j, b = 1 + i * 2 * Rings + (j + 1) % (2 * Rings);
            const auto [c, d] = std::pair{a + 2 * Rings, b + 2 * Rings};
            obj += "f " + std::to_string(a) + ' ' + std::to_string(c) + ' ' + std::to_string(d) + ' ' +
                   std::to_string(b) + '\n';
        }
    const Workplace place;
    place.Write("ball.obj", obj);
    const Outcome outcome = place.Run("simulate --mesh ball.obj --noise 0 --points 4000 --out s");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    const PlyContent fix = ParsePly(place.Read("s/fix.ply"));
    ASSERT_GT(fix.points.size(), 3000U);
    for (std::size_t i = 0; i < fix.points.size(); ++i) {
        EXPECT_NEAR(fix.points[i].Norm(), 30.0, 0.05); // between the corners the mesh lies 0.04 mm inside the ball
        EXPECT_GT(fix.normals[i].Dot(fix.points[i]) / fix.points[i].Norm(), 0.9F);
    }
    EXPECT_EQ(place.Run("simulate --mesh missing.obj --out s").exitCode, 3);
    place.Write("points.obj", "v 1 2 3\nv 4 5 6\n");
    EXPECT_THAT(place.Run("simulate --mesh points.obj --out s").errors, testing::HasSubstr("no surface to scan"));
}

} // namespace
} // namespace tooltest
