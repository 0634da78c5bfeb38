#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"

#include "support/clouds.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace test_support;
using namespace prereg;
using testing::ElementsAre;
using testing::IsEmpty;
using VoAlgo::CTrafo;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
const std::string Channel = "KEP.PreRegistration.FPFH|";
const std::string NoFeatures = Channel + "W|point set has no features";

CPointFeatureHistogram RandomHistogram(Random& random)
{
    CPointFeatureHistogram h;
    for (float& bin : h.bins) bin = random.Uniform(0.0F, 0.3F);
    return h;
}

/// 600 points; every fifth is a feature with a random histogram.
struct Parts {
    Cloud cloud = Body(600, 2, 1);
    Cloud at;
    std::vector<CPointFeatureHistogram> features;

    Parts()
    {
        Random random(1);
        for (std::size_t i = 0; i < cloud.Size(); i += 5) {
            at.Add(cloud.points[i], cloud.normals[i]);
            features.push_back(RandomHistogram(random));
        }
    }
    [[nodiscard]] CFPFHPointSet Make() const { return {cloud.points, cloud.normals, at.points, at.normals, features}; }
};

void ExpectEmpty(const CFPFHPointSet& set)
{
    EXPECT_TRUE(set.Empty());
    EXPECT_EQ(set.SizeFeatures() + set.GetFeaturePoints().size() + set.GetFeatureNormals().size(), 0U);
    EXPECT_EQ(set.GetFeatureKdTree().Size() + set.GetFeaturePointsKdTree().Size() + set.GetPointsKdTree().Size(), 0U);
    EXPECT_EQ(set.GetEllipsoid()[0], Vec3());
}

// Catches a fault that is not noticed, noticed with other words, or leaves parts of the set behind.
TEST(CFPFHPointSet, BadFeaturesAreReportedAndEmptyTheSet)
{
    const std::string invalid = " data resulted in empty kD-tree; invalidating point set";
    const struct {
        const char* what;
        std::function<void(Parts&)> spoil;
        std::vector<std::string> messages;
    } rows[] = {
        {"no finite histogram",
         [](Parts& p) { std::for_each(p.features.begin(), p.features.end(), [](auto& h) { h[32] = -1.0F / 0.0F; }); },
         {Channel + "E|Inf/NaN in FPFH" + invalid}},
        {"no finite position",
         [](Parts& p) { std::for_each(p.at.points.begin(), p.at.points.end(), [](Vec3& at) { at.y = NaN; }); },
         {Channel + "E|Inf/NaN in feature point" + invalid}},
        {"no positions, deliberately without a message", [](Parts& p) { p.at.points.clear(); }, {}},
        {"no histograms", [](Parts& p) { p.features.clear(); }, {NoFeatures}},
        {"no features at all", [](Parts& p) { p.features.clear(), p.at = {}; }, {NoFeatures}},
    };
    const Parts good;
    LogCapture log;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Parts parts = good;
        row.spoil(parts);
        ExpectEmpty(parts.Make());
        EXPECT_EQ(log.Take(), row.messages);
    }
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
        const auto k = round == 7 ? 0xFFFFFFFFU : static_cast<unsigned>(random.Index(30));
        std::vector<std::pair<float, int>> expected;
        for (int i = 0; i < 120; ++i)
            expected.emplace_back(query.SoerensenDistance(set.GetFeature(static_cast<std::size_t>(i))), i);
        std::sort(expected.begin(), expected.end());
        const auto end = std::upper_bound(expected.begin(), expected.end(), std::pair(largest * largest, 120));
        expected.resize(std::min<std::size_t>(k, static_cast<std::size_t>(end - expected.begin())));
        set.LookupSimilarFeatures(found, query, k, largest);
        ASSERT_EQ(found.size(), expected.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
            EXPECT_EQ(found[i].first, expected[i].second);
            EXPECT_NEAR(found[i].second, expected[i].first, 1e-6F);
        }
    }
    set.LookupSimilarFeatures(found, set.GetFeature(17), 10, 0.0F);
    EXPECT_THAT(found, ElementsAre(std::pair(17, 0.0F)));
    for (const float nothing : {-1.0F, NaN}) {
        set.LookupSimilarFeatures(found, set.GetFeature(17), 10, nothing);
        EXPECT_THAT(found, IsEmpty());
    }
}

TEST(CFPFHPointSet, MasksOfPointsChooseFeatures)
{
    CFPFHPointSet set = Parts().Make();
    EXPECT_EQ(set.GetFeatureBitMask(5000), 0U); // no masks yet
    EXPECT_THROW(set.SetFeatureBitMask(0, 1), std::out_of_range);
    LogCapture log;
    EXPECT_TRUE(set.RestrictWithMask(1).Empty());
    set.InitializeBitMasks(0b001);
    EXPECT_EQ(set.RestrictWithMask(0).SizeFeatures(), 0U);
    EXPECT_THAT(log.Take(), ElementsAre(NoFeatures, NoFeatures));
    EXPECT_THAT(set.GetFeatureBitMasks(), testing::AllOf(testing::SizeIs(120), testing::Each(1U)));
    EXPECT_THAT([&] { (void)set.GetFeatureBitMask(120); },
                testing::ThrowsMessage<std::out_of_range>("invalid vector<T> subscript"));
    for (const std::size_t i : {3U, 40U, 130U, 599U}) set.SetBitMask(i, 0b111);
    set.SetFeatureBitMask(7, 0b110); // is not what decides
    const CFPFHPointSet kept = set.RestrictWithMask(0b110);
    EXPECT_EQ(kept.Size(), 4U);
    ASSERT_EQ(kept.SizeFeatures(), 2U); // deliberate: the masks of points 3 and 40 choose features 3 and 40
    EXPECT_EQ(kept.GetFeatureKdTree().Size(), 2U);
    EXPECT_EQ(kept.GetFeaturePoint(0), set.GetFeaturePoint(3));
    EXPECT_EQ(kept.GetFeatureNormal(1), set.GetFeatureNormal(40));
    EXPECT_TRUE(SameBits<CPointFeatureHistogram>({kept.GetFeature(1)}, {set.GetFeature(40)}));
    EXPECT_NE(kept.GetEllipsoid()[0], Vec3());
    EXPECT_THAT(log.Take(), IsEmpty());
    set.ClearBitMasks();
    EXPECT_EQ(set.GetFeatureBitMask(7) + set.GetBitMask(3), 0U);
}

TEST(CFPFHPointSet, RestrictionsKeepWhatQualifies)
{
    const CFPFHPointSet set = Parts().Make();
    const auto isRight = [](const Vec3& p) { return p.x >= 2.0F; };
    const auto rightOf = [&](std::vector<Vec3> all) {
        std::erase_if(all, std::not_fn(isRight));
        return all;
    };
    const float A[] = {-1, 0, 0, 0, 0, 1}, b[] = {-2, 1e9F}, nowhere[] = {-1e9F, 0};
    LogCapture log;
    for (const CFPFHPointSet& half : {set.RestrictWithPredicate(isRight), set.RestrictWithInequalities(A, b, 2)}) {
        EXPECT_EQ(half.GetPoints(), rightOf(set.GetPoints()));
        EXPECT_EQ(half.GetFeaturePoints(), rightOf(set.GetFeaturePoints()));
        EXPECT_EQ(half.GetPointsKdTree().Size(), half.Size());
        EXPECT_EQ(half.GetFeaturePointsKdTree().Size(), half.GetFeaturePoints().size());
        EXPECT_EQ(half.GetFeatureKdTree().Size(), half.GetFeaturePoints().size());
        EXPECT_GT(half.GetEllipsoid()[0].x, 2.0F);
    }
    ExpectEmpty(set.RestrictWithInequalities(A, nowhere, 2));
    EXPECT_THAT(log.Take(), IsEmpty());
    ExpectEmpty(set.RestrictWithPredicate([](const Vec3&) { return false; }));
    EXPECT_THAT(log.Take(), ElementsAre(NoFeatures));
}

TEST(CFPFHPointSet, TransformMovesAllButTheHistograms)
{
    const CFPFHPointSet set = Parts().Make();
    const CTrafo pose = Random(9).Pose(1.2F, 30.0F);
    CFPFHPointSet moved = set.Transform(pose);
    const CFPFHPointSet copy = moved;
    moved = set;
    moved = CFPFHPointSet(copy);
    for (std::size_t i = 0; i < set.Size(); ++i) {
        ASSERT_EQ(moved.GetPoint(i), pose * set.GetPoint(i));
        ASSERT_EQ(moved.GetNormal(i), pose.Rotate(set.GetNormal(i)));
        ASSERT_EQ(moved.GetPointsKdTree().Nearest(&moved.GetPoint(i).x, 1.0F), static_cast<int>(i));
    }
    for (std::size_t i = 0; i < set.SizeFeatures(); ++i) {
        const Vec3 p = moved.GetFeaturePoint(i);
        ASSERT_EQ(p, pose * set.GetFeaturePoint(i));
        ASSERT_EQ(moved.GetFeatureNormal(i), pose.Rotate(set.GetFeatureNormal(i)));
        ASSERT_EQ(moved.GetFeaturePointsKdTree().Nearest(&p.x, 1.0F), static_cast<int>(i));
    }
    EXPECT_TRUE(SameBits(moved.GetFeatures(), set.GetFeatures()));
    for (int k = 0; k < 4; ++k) EXPECT_EQ(moved.GetEllipsoid()[k], pose * set.GetEllipsoid()[k]);
    EXPECT_GE(set.GetMemUsage(), sizeof(set) + 2 * 16 * (600 + 120) + 120 * (132 + 160));
}

TEST(CFPFHPointSet, TooLeanForTheConfiguration)
{
    const CFPFHPointSet set = Parts().Make(); // 600 points, 120 features
    ConfigurationFPFH config;
    EXPECT_TRUE(CFPFHPointSet().IsTooLean(config));
    for (const auto& [samples, vertices, isLean] : {std::tuple(600U, 12U, false), std::tuple(601U, 12U, true),
                                                    std::tuple(600U, 13U, true), std::tuple(0U, 0U, false)}) {
        config.icpConfig.uiNumSamples = samples;
        config.uiNumPolygonVertices = vertices;
        EXPECT_EQ(set.IsTooLean(config), isLean) << samples << ' ' << vertices;
    }
}

TEST(CFPFHPointSet, TakesTheArraysOfTheDataSourceAndSavesThem)
{
    const Cloud body = Body(1500, 1, 1);
    prereg::CFPFHDataSource source(4.0, 25, 1, false);
    ASSERT_TRUE(source.Update(body.points, body.normals));
    const CFPFHPointSet taken(source);
    EXPECT_EQ(taken.GetPoints(), body.points);
    EXPECT_EQ(taken.GetFeaturePoints(), source.GetFeaturePoints());
    EXPECT_EQ(taken.GetFeatureNormals(), source.GetFeatureNormals());
    EXPECT_TRUE(SameBits(taken.GetFeatures(), source.GetFeatures()));
    EXPECT_GT(taken.SizeFeatures(), 100U);

    const std::string name = testing::TempDir() + "cfpfhpointset_test.xyz";
    const std::vector<Vec3> points{{1.5F, -2.0F, 1234567.0F}}, normals{{0, 0, 1}};
    const CFPFHPointSet set(points, normals, points, normals, {CPointFeatureHistogram::Identity()});
    set.SaveFeaturePointsXYZN(name, 0x00FF8000);
    EXPECT_EQ(FileText(name), "1.5 -2 1.23457e+06 0 0 1 255 128 0\n");
    set.SaveFeaturePointsXYZN(name, 0xFFFFFFFF);
    EXPECT_EQ(FileText(name), "1.5 -2 1.23457e+06 0 0 1\n");
    std::filesystem::remove(name);
    EXPECT_THROW(set.SaveFeaturePointsXYZN("", 0), std::invalid_argument);
}

} // namespace
