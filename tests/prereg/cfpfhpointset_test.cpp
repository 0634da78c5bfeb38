#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"

#include "support/clouds.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using prereg::CFPFHPointSet;
using prereg::ConfigurationFPFH;
using prereg::CPointFeatureHistogram;
using test_support::Cloud;
using test_support::LogCapture;
using test_support::Random;
using test_support::Vec3;
using testing::ElementsAre;
using testing::IsEmpty;
using VoAlgo::CTrafo;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
const std::string Channel = "KEP.PreRegistration.FPFH|";

CPointFeatureHistogram RandomHistogram(Random& random)
{
    CPointFeatureHistogram h;
    for (float& bin : h.bins) bin = random.Uniform(0.0F, 0.3F);
    return h;
}

// 600 points; every fifth is a feature with a random histogram.
struct Parts {
    Cloud cloud = test_support::Body(600, 2, 1);
    Cloud featurePoints;
    std::vector<CPointFeatureHistogram> features;

    Parts()
    {
        Random random(1);
        for (std::size_t i = 0; i < cloud.Size(); i += 5) {
            featurePoints.Add(cloud.points[i], cloud.normals[i]);
            features.push_back(RandomHistogram(random));
        }
    }
    [[nodiscard]] CFPFHPointSet Make() const
    {
        return {cloud.points, cloud.normals, featurePoints.points, featurePoints.normals, features};
    }
};

void ExpectEmpty(const CFPFHPointSet& set)
{
    EXPECT_TRUE(set.Empty());
    EXPECT_EQ(set.SizeFeatures(), 0U);
    EXPECT_THAT(set.GetFeaturePoints(), IsEmpty());
    EXPECT_THAT(set.GetFeatureNormals(), IsEmpty());
    EXPECT_EQ(set.GetFeatureKdTree().Size() + set.GetFeaturePointsKdTree().Size() + set.GetPointsKdTree().Size(), 0U);
    EXPECT_EQ(set.GetEllipsoid()[0], Vec3());
}

// Catches a fault that is not noticed, noticed with other words, or leaves parts of the set behind.
TEST(CFPFHPointSet, BadFeaturesAreReportedAndEmptyTheSet)
{
    const Parts good;
    LogCapture log;
    EXPECT_EQ(good.Make().SizeFeatures(), 120U);
    EXPECT_THAT(log.Take(), IsEmpty());

    Parts parts = good;
    for (std::size_t i = 0; i < 7; ++i) parts.features[i * 10][i] = NaN;
    parts.features[1] = parts.features[2];
    const CFPFHPointSet reduced = parts.Make();
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|kD-Tree reduced the number of FPFH features (Inf/NaN/duplicates) "
                                                  "from 120 to 112 (performance warning)"));
    EXPECT_EQ(reduced.SizeFeatures(), 120U);
    EXPECT_EQ(reduced.GetFeatureKdTree().Size(), 112U);
    EXPECT_EQ(reduced.Size(), 600U);

    for (auto& h : parts.features) h[32] = -std::numeric_limits<float>::infinity();
    ExpectEmpty(parts.Make());
    EXPECT_THAT(log.Take(),
                ElementsAre(Channel + "E|Inf/NaN in FPFH data resulted in empty kD-tree; invalidating point set"));

    parts = good;
    for (Vec3& p : parts.featurePoints.points) p.y = NaN;
    ExpectEmpty(parts.Make());
    EXPECT_THAT(
        log.Take(),
        ElementsAre(Channel + "E|Inf/NaN in feature point data resulted in empty kD-tree; invalidating point set"));

    parts = good;
    parts.featurePoints.points = {};
    ExpectEmpty(parts.Make()); // deliberately without a message
    parts.featurePoints.normals = {};
    ExpectEmpty(parts.Make());
    EXPECT_THAT(log.Take(), IsEmpty());
    parts.features.clear();
    ExpectEmpty(parts.Make());
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|point set has no features"));
    parts = good;
    parts.features.pop_back();
    EXPECT_THROW((void)parts.Make(), std::invalid_argument);
}

TEST(CFPFHPointSet, LookupEqualsALinearScan)
{
    const CFPFHPointSet set = Parts().Make();
    Random random(4);
    std::vector<std::pair<int, float>> found{{1, 1.0F}};
    for (int round = 0; round < 50; ++round) {
        const CPointFeatureHistogram query =
            round % 2 == 0 ? RandomHistogram(random) : set.GetFeature(random.Index(120));
        const float largest = random.Uniform(0.2F, 0.8F);
        const auto k = static_cast<unsigned>(random.Index(30));
        std::vector<std::pair<float, int>> expected;
        for (int i = 0; i < 120; ++i)
            expected.emplace_back(query.SoerensenDistance(set.GetFeature(static_cast<std::size_t>(i))), i);
        std::sort(expected.begin(), expected.end());
        set.LookupSimilarFeatures(found, query, k, largest);
        const auto within = std::count_if(expected.begin(), expected.end(),
                                          [&](const auto& e) { return e.first <= largest * largest; });
        ASSERT_EQ(found.size(), std::min<std::size_t>(k, static_cast<std::size_t>(within)));
        for (std::size_t i = 0; i < found.size(); ++i) {
            EXPECT_EQ(found[i].first, expected[i].second);
            EXPECT_NEAR(found[i].second, expected[i].first, 1e-6F);
        }
    }
    set.LookupSimilarFeatures(found, set.GetFeature(17), 10, 0.0F);
    EXPECT_THAT(found, ElementsAre(std::pair(17, 0.0F)));
}

TEST(CFPFHPointSet, MasksOfPointsChooseFeatures)
{
    CFPFHPointSet set = Parts().Make();
    EXPECT_EQ(set.GetFeatureBitMask(5000), 0U); // no masks yet
    EXPECT_THROW(set.SetFeatureBitMask(0, 1), std::out_of_range);
    LogCapture log;
    EXPECT_TRUE(set.RestrictWithMask(1).Empty());
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|point set has no features"));

    set.InitializeBitMasks(0b001);
    EXPECT_THAT(set.GetFeatureBitMasks(), testing::AllOf(testing::SizeIs(120), testing::Each(1U)));
    EXPECT_THAT([&] { (void)set.GetFeatureBitMask(120); },
                testing::ThrowsMessage<std::out_of_range>("invalid vector<T> subscript"));
    for (const std::size_t i : {3U, 40U, 130U, 599U}) set.SetBitMask(i, 0b111);
    set.SetFeatureBitMask(7, 0b110); // is not what decides
    const CFPFHPointSet kept = set.RestrictWithMask(0b110);
    EXPECT_EQ(kept.Size(), 4U);
    ASSERT_EQ(kept.SizeFeatures(), 2U); // deliberate: the masks of points 3 and 40 choose features 3 and 40
    EXPECT_EQ(kept.GetFeaturePoint(0), set.GetFeaturePoint(3));
    EXPECT_EQ(kept.GetFeatureNormal(1), set.GetFeatureNormal(40));
    EXPECT_EQ(std::memcmp(&kept.GetFeature(1), &set.GetFeature(40), sizeof(CPointFeatureHistogram)), 0);
    EXPECT_EQ(kept.GetFeatureKdTree().Size(), 2U);
    EXPECT_EQ(kept.GetPointsKdTree().Size(), 4U);
    EXPECT_NE(kept.GetEllipsoid()[0], Vec3());
    EXPECT_THAT(log.Take(), IsEmpty());
    EXPECT_EQ(set.RestrictWithMask(0).SizeFeatures(), 0U);
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|point set has no features"));
    set.ClearBitMasks();
    EXPECT_EQ(set.GetFeatureBitMask(7) + set.GetBitMask(3), 0U);
}

TEST(CFPFHPointSet, RestrictionsKeepWhatQualifies)
{
    const CFPFHPointSet set = Parts().Make();
    const auto right = [](const Vec3& p) { return p.x >= 2.0F; };
    const float A[] = {-1, 0, 0, 0, 0, 1}, b[] = {-2, 1e9F};
    LogCapture log;
    for (const CFPFHPointSet& half : {set.RestrictWithPredicate(right), set.RestrictWithInequalities(A, b, 2)}) {
        std::vector<Vec3> points, features;
        std::copy_if(set.GetPoints().begin(), set.GetPoints().end(), std::back_inserter(points), right);
        std::copy_if(set.GetFeaturePoints().begin(), set.GetFeaturePoints().end(), std::back_inserter(features), right);
        EXPECT_EQ(half.GetPoints(), points);
        EXPECT_EQ(half.GetFeaturePoints(), features);
        EXPECT_EQ(half.GetPointsKdTree().Size(), points.size());
        EXPECT_EQ(half.GetFeaturePointsKdTree().Size(), features.size());
        EXPECT_EQ(half.GetFeatureKdTree().Size(), half.GetFeatures().size());
        EXPECT_GT(half.GetEllipsoid()[0].x, 2.0F);
    }
    EXPECT_THAT(log.Take(), IsEmpty());
    const float nowhere[] = {-1e9F, 0};
    ExpectEmpty(set.RestrictWithInequalities(A, nowhere, 2));
    EXPECT_THAT(log.Take(), IsEmpty());
    ExpectEmpty(set.RestrictWithPredicate([](const Vec3&) { return false; }));
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|point set has no features"));
}

TEST(CFPFHPointSet, TransformMovesAllButTheHistograms)
{
    const CFPFHPointSet set = Parts().Make();
    const CTrafo pose = Random(9).Pose(1.2F, 30.0F);
    const CFPFHPointSet moved = set.Transform(pose);
    for (std::size_t i = 0; i < set.Size(); ++i) {
        ASSERT_EQ(moved.GetPoint(i), pose * set.GetPoint(i));
        ASSERT_EQ(moved.GetNormal(i), pose.Rotate(set.GetNormal(i)));
    }
    for (std::size_t i = 0; i < set.SizeFeatures(); ++i) {
        const Vec3 p = moved.GetFeaturePoint(i);
        ASSERT_EQ(p, pose * set.GetFeaturePoint(i));
        ASSERT_EQ(moved.GetFeatureNormal(i), pose.Rotate(set.GetFeatureNormal(i)));
        ASSERT_EQ(std::memcmp(&moved.GetFeature(i), &set.GetFeature(i), sizeof(CPointFeatureHistogram)), 0);
        ASSERT_EQ(moved.GetFeaturePointsKdTree().Nearest(&p.x, 1.0F), static_cast<int>(i));
    }
    for (int k = 0; k < 4; ++k) EXPECT_EQ(moved.GetEllipsoid()[k], pose * set.GetEllipsoid()[k]);
    const Vec3 p = moved.GetPoint(17);
    EXPECT_EQ(moved.GetPointsKdTree().Nearest(&p.x, 1.0F), 17);

    CFPFHPointSet copy = set;
    const CFPFHPointSet taken = std::move(copy);
    copy = moved;
    EXPECT_EQ(taken.GetFeaturePoints(), set.GetFeaturePoints());
    EXPECT_EQ(copy.GetFeaturePoints(), moved.GetFeaturePoints());
    EXPECT_GE(set.GetMemUsage(), sizeof(set) + 2 * 16 * (600 + 120) + 120 * (132 + 160));
}

TEST(CFPFHPointSet, TooLeanForTheConfiguration)
{
    const CFPFHPointSet set = Parts().Make(); // 600 points, 120 features
    const struct {
        std::uint32_t samples, vertices;
        bool isLean;
    } rows[] = {{600, 12, false}, {601, 12, true}, {600, 13, true}, {0, 0, false}};
    for (const auto& row : rows) {
        ConfigurationFPFH config;
        config.icpConfig.uiNumSamples = row.samples;
        config.uiNumPolygonVertices = row.vertices;
        EXPECT_EQ(set.IsTooLean(config), row.isLean) << row.samples << ' ' << row.vertices;
    }
    EXPECT_TRUE(CFPFHPointSet().IsTooLean(ConfigurationFPFH()));
}

TEST(CFPFHPointSet, TakesWhatTheDataSourceComputed)
{
    const Cloud body = test_support::Body(1500, 1, 1);
    prereg::CFPFHDataSource source(4.0, 25, 1, false);
    ASSERT_TRUE(source.Update(body.points, body.normals));
    const CFPFHPointSet set(source);
    EXPECT_EQ(set.GetPoints(), body.points);
    EXPECT_EQ(set.GetFeaturePoints(), source.GetFeaturePoints());
    EXPECT_EQ(set.GetFeatureNormals(), source.GetFeatureNormals());
    EXPECT_EQ(set.GetFeatures().size(), source.GetFeatures().size());
    EXPECT_GT(set.SizeFeatures(), 100U);
}

TEST(CFPFHPointSet, FeaturePointFile)
{
    const std::string name = testing::TempDir() + "cfpfhpointset_test.xyz";
    const std::vector<Vec3> points{{1.5F, -2.0F, 1234567.0F}, {0, 0, 1e-7F}}, normals{{0, 0, 1}, {0, 1, 0}};
    Random random(2);
    const CFPFHPointSet set(points, normals, points, normals, {RandomHistogram(random), RandomHistogram(random)});
    const auto written = [&](unsigned colour) {
        set.SaveFeaturePointsXYZN(name, colour);
        std::stringstream text;
        text << std::ifstream(name).rdbuf();
        std::filesystem::remove(name);
        return text.str();
    };
    EXPECT_EQ(written(0x00FF8000), "1.5 -2 1.23457e+06 0 0 1 255 128 0\n0 0 1e-07 0 1 0 255 128 0\n");
    EXPECT_EQ(written(0xFFFFFFFF), "1.5 -2 1.23457e+06 0 0 1\n0 0 1e-07 0 1 0\n");
    EXPECT_THAT([&] { set.SaveFeaturePointsXYZN("", 0); },
                testing::ThrowsMessage<std::invalid_argument>("empty file name"));
    EXPECT_THROW(set.SaveFeaturePointsXYZN(testing::TempDir() + "no/such/folder", 0), std::ios::failure);
}

} // namespace
