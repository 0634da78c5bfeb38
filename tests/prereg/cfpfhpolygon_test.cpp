#include "prereg/cfpfhpolygon.h"

#include "support/clouds.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace prereg;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;
using VoAlgo::CTrafo;

const std::string Channel = "KEP.PreRegistration.FPFH|";

// Feature i of a set; histograms with different labels lie farther apart than a lookup reaches.
struct Feature {
    Vec3 point;
    std::size_t label;
    float blur = 0.0F; // keeps copies of one label apart
};

CFPFHPointSet MakeSet(const std::vector<Feature>& features)
{
    std::vector<Vec3> points, normals;
    std::vector<CPointFeatureHistogram> histograms;
    for (const Feature& f : features) {
        points.push_back(f.point);
        normals.emplace_back(0.0F, 0.0F, 1.0F);
        CPointFeatureHistogram h;
        h[f.label % 11] = h[11 + f.label / 11 % 11] = h[22 + f.label / 121 % 11] = 1.0F;
        h[32] += f.blur;
        histograms.push_back(h);
    }
    return {points, normals, points, normals, histograms};
}

std::vector<Feature> Scattered(std::size_t n, float half)
{
    Random random(1);
    std::vector<Feature> features;
    for (std::size_t i = 0; i < n; ++i) features.push_back({random.InCube(half), i});
    return features;
}

ConfigurationFPFH Config(std::uint32_t vertices, double diameter = -1.0)
{
    ConfigurationFPFH config;
    config.uiNumPolygonVertices = vertices;
    config.dMaxPolygonDiameter = diameter;
    return config;
}

CFPFHPolygon Seed(const CFPFHPointSet& flt, const ConfigurationFPFH& config, unsigned seed = 1,
                  const CFPFHClusterAnalysis& clusters = {}, double distance = -1.0)
{
    std::mt19937 engine(seed);
    return {engine, flt, clusters, config, distance};
}

std::size_t NumDistinct(const CFPFHPolygon& polygon)
{
    return std::set(polygon.Indices().begin(), polygon.Indices().end()).size();
}

TEST(CFPFHPolygon, SeedsAnywhere)
{
    LogCapture log;
    const CFPFHPointSet flt = MakeSet(Scattered(40, 10.0F));
    EXPECT_THAT(Seed(MakeSet(Scattered(39, 10.0F)), Config(8)).Indices(), ElementsAre(-1));
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|too few points for seeding"));
    std::vector<int> drawn(40);
    for (unsigned seed = 1; seed <= 300; ++seed) { // exactly 5 features per vertex are enough
        const CFPFHPolygon polygon = Seed(flt, Config(8), seed);
        ASSERT_TRUE(polygon.IsSeeded());
        ASSERT_EQ(polygon.Indices().size(), 8U);
        ASSERT_EQ(NumDistinct(polygon), 8U);
        for (const int i : polygon.Indices()) ++drawn[static_cast<std::size_t>(i)];
    }
    for (const int count : drawn) EXPECT_NEAR(count, 60, 35); // uniform; five standard deviations
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(CFPFHPolygon, SeedsWithinADiameter)
{
    // 60 features in one ball, and balls of 20, which hold the 8 of a polygon but not five times as many.
    std::vector<Feature> features = Scattered(120, 0.5F);
    for (std::size_t i = 60; i < 120; ++i) features[i].point.x += 100.0F * static_cast<float>(i / 20);
    const CFPFHPointSet flt = MakeSet(features);
    LogCapture log;
    std::vector<std::string> surrender;
    for (const char* left : {"4", "3", "2", "1", "0"})
        surrender.push_back(Channel + "T|failed to create a polygon; " + left + " tries left ...");
    surrender.push_back(Channel + "W|failed to create a polygon; removing diameter restriction");
    int inBall = 0;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        const CFPFHPolygon polygon = Seed(flt, Config(8, 4.0), seed);
        ASSERT_EQ(NumDistinct(polygon), 8U);
        if (const auto messages = log.Take(); messages.size() >= 5) { // all five centres lay in small balls
            EXPECT_EQ(messages, surrender);
            continue;
        }
        ++inBall;
        EXPECT_LT(*std::max_element(polygon.Indices().begin(), polygon.Indices().end()), 60);
    }
    EXPECT_GT(inBall, 150);
    EXPECT_LT(inBall, 200);
    EXPECT_FALSE(Seed(MakeSet(Scattered(4, 1.0F)), Config(0, 4.0)).IsSeeded()); // fewer than the five centres
    EXPECT_TRUE(Seed(MakeSet(Scattered(5, 1.0F)), Config(1, 1e-3)).IsSeeded());
}

TEST(CFPFHPolygon, SeedsOneMemberOfEveryCluster)
{
    std::vector<Feature> features; // three labels, copies blurred a little
    for (std::size_t i = 0; i < 60; ++i)
        features.push_back({Vec3(static_cast<float>(i), 0, 0), i % 3 * 40, 1e-4F * static_cast<float>(i)});
    const CFPFHPointSet flt = MakeSet(features);
    ConfigurationFPFH config = Config(10);
    config.dFeatureClusteringBandwidth = 0.5;
    const LogCapture quiet;
    const CFPFHClusterAnalysis clusters(flt, config);
    ASSERT_EQ(clusters.GetNumClusters(), 3U);
    std::set<int> seen;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        const CFPFHPolygon polygon = Seed(flt, config, seed, clusters);
        ASSERT_EQ(polygon.Indices().size(), 3U);
        for (std::size_t k = 0; k < 3; ++k) {
            const auto members = clusters.GetCluster(k);
            EXPECT_EQ(std::count(members.begin(), members.end(), static_cast<unsigned>(polygon.Indices()[k])), 1);
            seen.insert(polygon.Indices()[k]);
        }
    }
    EXPECT_GT(seen.size(), 55U); // any member may be drawn
}

TEST(CFPFHPolygon, SeedsApart)
{
    const CFPFHPointSet flt = MakeSet(Scattered(60, 10.0F));
    LogCapture log;
    const CFPFHPolygon polygon = Seed(flt, Config(5), 1, {}, 6.0);
    ASSERT_TRUE(polygon.IsSeeded());
    for (const int a : polygon.Indices())
        for (const int b : polygon.Indices())
            EXPECT_TRUE(a == b || (flt.GetFeaturePoint(static_cast<std::size_t>(a)) -
                                   flt.GetFeaturePoint(static_cast<std::size_t>(b)))
                                          .Norm() >= 6.0F);
    EXPECT_FALSE(Seed(flt, Config(5), 1, {}, 100.0).IsSeeded());
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|seeding failed"));
}

// The fixed set holds the moved features, each with decoys of the same look elsewhere. The pose must come out whatever
// the decoys; features moved away must be shrunk off; with fewer than three left there is no pose.
TEST(CFPFHPolygon, MatchesByEqualSideLengths)
{
    const CTrafo pose = Random(4).Pose(1.1F, 20.0F);
    const std::vector<Feature> features = Scattered(100, 10.0F);
    const CFPFHPointSet flt = MakeSet(features);
    const ConfigurationFPFH config = Config(10);
    const CFPFHPolygon polygon = Seed(flt, config, 3);
    for (const std::size_t broken : {0U, 3U, 8U}) {
        SCOPED_TRACE(broken);
        Random random(5);
        std::vector<Feature> moved;
        for (std::size_t decoy = 0; decoy < 6; ++decoy)
            for (const Feature& f : features)
                moved.push_back({40.0F * random.Direction(), f.label, 0.01F + 0.01F * static_cast<float>(decoy)});
        for (const Feature& f : features) moved.push_back({pose * f.point, f.label});
        for (std::size_t i = 0; i < broken; ++i) // no feature of that look near the place
            moved[600 + static_cast<std::size_t>(polygon.Indices()[i])].point = 200.0F * random.Direction();
        LogCapture log;
        const CTrafo found = CFPFHPolygon::ComputePreRegistration(polygon, MakeSet(moved), flt, config);
        EXPECT_EQ(static_cast<bool>(found), broken < 8);
        const bool isShrunk =
            testing::Value(log.Take(), testing::Contains(testing::StartsWith(Channel + "T|shrinking polygon: 10 -> ")));
        EXPECT_EQ(isShrunk, broken == 3);
        if (!found) continue;
        const float tolerance = broken == 0 ? 1e-5F : 1e-4F;
        EXPECT_LT(found.GetRotationDistance(pose), tolerance);
        EXPECT_LT((found * Vec3(5, 5, 5) - pose * Vec3(5, 5, 5)).Norm(), 10.0F * tolerance);
    }
}

// Weight of corner k of two triangles: 100 for equal sides down to 0.01 for the worst corner.
double Weight(const Vec3* a, const Vec3* b, std::size_t k)
{
    const auto mismatch = [&](std::size_t i, std::size_t j) {
        return std::fabs((b[j] - b[i]).Norm() - (a[j] - a[i]).Norm());
    };
    const auto worst = static_cast<double>(std::max({mismatch(0, 1), mismatch(1, 2), mismatch(2, 0)}));
    const auto own = static_cast<double>(std::max(mismatch(k, (k + 1) % 3), mismatch((k + 2) % 3, k)));
    return (10.0 - 9.9 * own / worst) * (10.0 - 9.9 * own / worst);
}

// Thousands of features that look alike: as many candidates for each vertex would need a graph of millions of edges.
TEST(CFPFHPolygon, NumberOfNeighborsCannotOutgrowTheFeatures)
{
    std::vector<Feature> features = Scattered(3000, 10.0F);
    for (Feature& f : features) f.blur = 1e-5F * static_cast<float>(std::exchange(f.label, 0));
    const CFPFHPointSet set = MakeSet(features);
    ConfigurationFPFH config = Config(3);
    for (const std::uint32_t neighbors : {0xFFFFFFFFU, 181U}) { // 181 of sqrt(33 * 3000 / 3)
        config.uiNumNeighbors = neighbors;
        EXPECT_EQ(CFPFHPolygon::ComputePreRegistration(Seed(set, config), set, set, config), CTrafo());
    }
}

// A triangle of features and what becomes of it.
TEST(CFPFHPolygon, ThreeVerticesAreTheFewest)
{
    const std::vector<Feature> features = Scattered(20, 10.0F);
    const CFPFHPointSet flt = MakeSet(features);
    const ConfigurationFPFH config = Config(3);
    const CFPFHPolygon polygon = Seed(flt, config, 2);
    const auto at = [&](std::size_t k) { return static_cast<std::size_t>(polygon.Indices()[k]); };
    const auto match = [&](const std::vector<Feature>& moved) {
        return CFPFHPolygon::ComputePreRegistration(polygon, MakeSet(moved), flt, config);
    };
    EXPECT_TRUE(match(features));
    auto moved = features; // one corner out of place by more than the largest error: two sides fail, one vertex is left
    moved[at(1)].point += Vec3(0, 0, 25.0F);
    EXPECT_FALSE(match(moved));
    moved = features; // a little out of place: kept, and the fit is only nearly the identity
    moved[at(1)].point += Vec3(0, 0, 0.5F);
    const Vec3 a[] = {features[at(0)].point, features[at(1)].point, features[at(2)].point};
    const Vec3 b[] = {moved[at(0)].point, moved[at(1)].point, moved[at(2)].point};
    const double weights[] = {Weight(a, b, 0), Weight(a, b, 1), Weight(a, b, 2)};
    EXPECT_EQ(match(moved), CTrafo::LeastSquaresFit(a, b, 3, weights));
    EXPECT_FALSE(match(moved) == CTrafo::LeastSquaresFit(a, b, 3));
    moved = features; // no feature of that look at all
    moved[at(2)].label = 900;
    EXPECT_FALSE(match(moved));

    LogCapture log;
    for (std::size_t i = 0; i < moved.size(); ++i) // on one line along an axis: Procrustes cannot tell the turn
        moved[i] = {Vec3(static_cast<float>(i * i), 0, 0), features[i].label};
    const CFPFHPointSet line = MakeSet(moved);
    EXPECT_FALSE(CFPFHPolygon::ComputePreRegistration(polygon, line, line, config));
    EXPECT_THAT(log.Take(), testing::Contains(Channel + "T|unreliable Procrustes result (3 points)"));
    EXPECT_FALSE(CFPFHPolygon::ComputePreRegistration(Seed(flt, Config(5)), flt, flt, config)); // the failure marker
}

} // namespace
