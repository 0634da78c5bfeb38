#include "platform/finite.h"
#include "registration/registered_bodies.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace test_support;
using namespace prereg;
using VoAlgo::CTrafo;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Infinity = std::numeric_limits<float>::infinity();

struct BadCloud {
    std::string name;
    Cloud cloud;
    bool isComputed; ///< whether features can be computed at all
};

std::vector<BadCloud> BadClouds()
{
    const auto repeated = [](const Vec3& p) { return Cloud{std::vector(5000, p), std::vector(5000, Vec3(0, 0, 1))}; };
    const auto every = [](std::size_t step, const std::function<void(Vec3 & point, Vec3 & normal)>& change) {
        Cloud cloud = Body(1500, 3, 1);
        for (std::size_t i = 0; i < cloud.Size(); i += step) change(cloud.points[i], cloud.normals[i]);
        return cloud;
    };
    Cloud line, duplicates = Body(1500, 3, 1);
    for (int i = 0; i < 2000; ++i) line.Add(0.01F * static_cast<float>(i) * Vec3(1, 2, 0), {0, 0, 1});
    for (std::size_t i = 0; i < 5000; ++i) duplicates.Add(duplicates.points[i % 7], duplicates.normals[i % 7]);
    return {{"empty", {}, true},
            {"one point", Plane(1, 1.0F), true},
            {"two points", {{{0, 0, 0}, {1, 0, 0}}, {{0, 0, 1}, {0, 0, 1}}}, true},
            {"one place", repeated({1, 2, 3}), false},
            {"duplicates", duplicates, false},
            {"a line", line, true},
            {"a plane", Plane(60, 0.5F), true},
            {"some NaN points", every(50, [](Vec3& p, Vec3&) { p.y = NaN; }), false},
            {"some infinite points", every(50, [](Vec3& p, Vec3&) { p.z = -Infinity; }), false},
            {"only NaN", every(1, [](Vec3& p, Vec3&) { p *= NaN; }), false},
            {"zero normals", every(3, [](Vec3&, Vec3& n) { n = Vec3(); }), true},
            {"only zero normals", every(1, [](Vec3&, Vec3& n) { n = Vec3(); }), true},
            {"normals of length 2", every(1, [](Vec3&, Vec3& n) { n *= 2.0F; }), true},
            {"NaN normals", every(20, [](Vec3&, Vec3& n) { n.x = NaN; }), true},
            {"infinite normals", every(20, [](Vec3&, Vec3& n) { n.x = Infinity; }), true},
            {"far away", every(1, [](Vec3& p, Vec3&) { p = 100.0F * p + Vec3(1e7F, -1e7F, 1e7F); }), true},
            {"tiny", every(1, [](Vec3& p, Vec3&) { p *= 1e-24F; }), true},
            {"huge", every(1, [](Vec3& p, Vec3&) { p *= 1e30F; }), true},
            {"largest floats", every(1, [](Vec3& p, Vec3&) { p *= 2e37F; }), true}};
}

// Whatever a cloud holds, each step gives a defined answer, and none crashes (run under the sanitizers as well). The
// set is also made by hand, so that what the data source refuses reaches the steps behind it.
TEST(BadClouds, GetADefinedAnswerAtEveryStep)
{
    const LogCapture quiet;
    const ScanPair good(1);
    ConfigurationFPFH config = BodyConfig();
    config.icpConfig.dMaxErrorRatio = -1.0;
    for (const BadCloud& bad : BadClouds()) {
        SCOPED_TRACE(bad.name);
        CFPFHDataSource source(BodyFeatureRadius, BodyQuality, 2, true);
        for (int round = 0; round < 2; ++round) // from scratch, then incrementally
            EXPECT_EQ(source.Update(bad.cloud.points, bad.cloud.normals), bad.isComputed);
        EXPECT_EQ(source.GetPoints().size(), bad.isComputed ? bad.cloud.Size() : 0U);
        // Where squares of tiny distances vanish, the curvature is unknown and there are no features.
        const auto features = source.GetFeatures();
        EXPECT_TRUE(features.empty() || VoAlgo::AllFinite(features[0].bins, 33 * features.size()));
        for (const Vec3& n : source.GetFeatureNormals()) EXPECT_TRUE(n.NormSq() > 0.0F);

        std::vector<CPointFeatureHistogram> others(bad.cloud.Size());
        for (std::size_t i = 0; i < others.size(); ++i) others[i] = good.fix.GetFeature(i % good.fix.SizeFeatures());
        const CFPFHPointSet byHand(bad.cloud.points, bad.cloud.normals, bad.cloud.points, bad.cloud.normals, others);
        for (const CFPFHPointSet& set : {CFPFHPointSet(source), byHand}) {
            for (const auto& [fix, flt] :
                 {std::pair(&good.fix, &set), std::pair(&set, &good.flt), std::pair(&set, &set)}) {
                const auto icp = fix->ComputeICPRegistration(config.icpConfig, *flt, CTrafo());
                EXPECT_TRUE(icp.resultType >= 0 && icp.resultType <= 9);
                EXPECT_TRUE(icp.resultType != 0 || icp.trafo);
                EXPECT_GE(fix->EstimateOverlapArea(*flt, CTrafo(), 1.0F, 2.0F, 1e9F), 0.0F);
                CFPFHPreRegistration driver(*fix, *flt, config, false);
                const bool isFound = driver.Compute();
                EXPECT_EQ(isFound, driver.HasMoreResults());
                for (const auto& result : driver.GetAllResults()) EXPECT_TRUE(result.resultType == 0 && result.trafo);
            }
            (void)set.RestrictWithPredicate([](const Vec3& p) { return p.x > 0.0F; }).Transform(CTrafo::Invalid());
            CFPFHDataSource merged(BodyFeatureRadius, BodyQuality, 1, false);
            const bool isMerged = merged.Update({{&set, CTrafo()}}, 0.5);
            EXPECT_EQ(isMerged, !merged.GetPoints().empty());
        }
    }
}

// No number in a setting hangs, crashes or lets an unverified pose pass, and a radius that is negative or NaN finds
// nothing.
TEST(BadSettings, GetADefinedAnswer)
{
    const LogCapture quiet;
    const ScanPair pair(2);
    ConfigurationFPFH good = BodyConfig();
    good.dMaxPolygonDiameter = -1.0;
    good.uiNumPolygons = 3;
    good.icpConfig.uiNumSamples = 200;
    const auto check = [&](ConfigurationFPFH config) {
        CFPFHPreRegistration driver(pair.fix, pair.flt, config, false);
        const auto injected = driver.InjectTrafo(pair.truth);
        EXPECT_TRUE(injected.resultType >= 0 && injected.resultType <= 9);
        EXPECT_TRUE(driver.Compute() || injected.resultType != 0);
        for (const auto& result : driver.GetAllResults()) EXPECT_TRUE(result.resultType == 0 && result.trafo);
        return injected;
    };
    ASSERT_EQ(check(good).resultType, 0);
    using Fpfh = ConfigurationFPFH;
    using Icp = prereg::ConfigurationICP;
    for (const double value : {double{NaN}, double{Infinity}, -1.0, 1e-320, 1e300}) {
        SCOPED_TRACE(value);
        ConfigurationFPFH bad = good;
        for (double Fpfh::*field : {&Fpfh::dMaxPolygonDiameter, &Fpfh::dMaxPolygonVertexError, &Fpfh::dFeatureRadius,
                                    &Fpfh::dFeatureClusteringBandwidth, &Fpfh::dTrafoClusteringBandwidth,
                                    &Fpfh::dOrientationClusteringBandwidth}) {
            bad = good;
            bad.*field = value;
            EXPECT_EQ(check(bad).resultType, 0); // none of them refuses a pose
        }
        for (double Icp::*field : {&Icp::dMinQueryRadius, &Icp::dInitialQueryRadiusScaling, &Icp::dPositionTolerance,
                                   &Icp::dNormalAngleTolerance, &Icp::dMaxErrorRatio, &Icp::dMaxRotationDistance,
                                   &Icp::dMaxMovement, &Icp::dMinOverlapRatio, &Icp::dMaxRMSE, &Icp::dMinOverlapArea,
                                   &Icp::dMinSmallBigRatio, &Icp::dSmallBigQueryRadiusScaling, &Icp::dInlierScaling}) {
            bad = good;
            bad.icpConfig.*field = value;
            const auto result = check(bad);
            if (value > 0.0) continue;
            const float ratio = result.fStop_SmallBigRatio;
            EXPECT_TRUE(field != &Icp::dMinQueryRadius || std::isnan(ratio));             // 0 of 0
            EXPECT_TRUE(field != &Icp::dSmallBigQueryRadiusScaling || ratio == Infinity); // some of 0
            const bool isRadius = field == &Icp::dInitialQueryRadiusScaling || field == &Icp::dPositionTolerance;
            EXPECT_TRUE(!isRadius || (result.resultType == 1 && result.fStart_OverlapRatio == 0.0F));
        }
    }
    good.icpConfig.dPositionTolerance = good.icpConfig.dInitialQueryRadiusScaling = -1.0;
    EXPECT_EQ(check(good).resultType, 1); // two negative factors make no radius
    EXPECT_EQ(pair.fix.EstimateOverlapArea(pair.flt, pair.truth, -1.0F, 2.0F, 1e9F), 0.0F);
    EXPECT_EQ(pair.fix.EstimateOverlapArea(pair.flt, pair.truth, 1.0F, -2.0F, 1e9F), 0.0F);
    CFPFHDataSource merged(BodyFeatureRadius, BodyQuality, 1, false);
    EXPECT_FALSE(merged.Update({{&pair.fix, CTrafo()}}, 1e-320)); // its reciprocal is infinite
}

} // namespace
