#include "VoAlgorithms/prereg/cfpfhpreregistration.h"

#include "registration/registered_bodies.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace test_support;
using namespace prereg;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using VoAlgo::CTrafo;

const std::string Channel = "KEP.PreRegistration.FPFH|";

/// Every bit of every result.
std::string Figures(const std::vector<ICPResult>& results)
{
    return {reinterpret_cast<const char*>(results.data()), results.size() * sizeof(ICPResult)};
}

std::vector<ICPResult> TakeAll(CFPFHPreRegistration& driver)
{
    std::vector<ICPResult> results;
    while (driver.HasMoreResults()) results.push_back(driver.GetNextResult());
    return results;
}

testing::AssertionResult IsNear(const ICPResult& result, const ScanPair& pair)
{
    const float turn = result.trafo.GetRotationDistance(pair.truth);
    const Vec3 p = pair.flt.GetEllipsoid()[0];
    const float shift = (result.trafo * p - pair.truth * p).Norm();
    if (result.resultType == 0 && turn < 0.005F && shift < 0.05F) return testing::AssertionSuccess();
    return testing::AssertionFailure() << turn << " rad, " << shift << " mm: " << result.ToString(false);
}

// End to end: two scans of one body in any pose come together, and the search stops at the quorum.
TEST(PreRegistration, FindsThePoseOfTwoScans)
{
    for (unsigned shape = 1; shape <= 4; ++shape) {
        SCOPED_TRACE(shape);
        const ScanPair pair(shape);
        for (const double diameter : {15.0, -1.0}) { // polygons within a diameter; polygons of the feature clusters
            ConfigurationFPFH config = BodyConfig();
            config.dMaxPolygonDiameter = diameter;
            config.uiNumPolygons = diameter < 0.0 ? 1500 : 60;
            CFPFHPreRegistration driver(pair.fix, pair.flt, config, false);
            LogCapture log;
            ASSERT_TRUE(driver.Compute());
            EXPECT_THAT(log.Take(),
                        Contains(testing::MatchesRegex(
                            ".*T.aborting search: top cluster size .[0-9]+. reached quorum .3. after looking at "
                            "[0-9]+ polygons")));
            EXPECT_TRUE(IsNear(driver.PeekBestResult(), pair));
            const auto statistics = driver.GetStatistics();
            EXPECT_EQ(statistics.uiNumPolygons, config.uiNumPolygons); // as configured, though fewer were looked at
            EXPECT_EQ(statistics.uiNumProposals, statistics.uiNumSuccessful + statistics.uiNumFailed);
            EXPECT_GE(statistics.uiNumSuccessful, 3U);
        }
    }
}

// A host that searches in steps gets what one long search gives; each step clusters the features anew.
TEST(PreRegistration, GoesOnWhereItStopped)
{
    const ScanPair pair(2);
    for (const double diameter : {15.0, -1.0}) {
        ConfigurationFPFH config = BodyConfig();
        config.dMaxPolygonDiameter = diameter;
        config.uiTrafoClusteringQuorum = 0;
        config.uiNumPolygons = 150;
        CFPFHPreRegistration whole(pair.fix, pair.flt, config, false);
        config.uiNumPolygons = 50;
        CFPFHPreRegistration steps(pair.fix, pair.flt, config, false);
        LogCapture log;
        for (int i = 0; i < 3; ++i) (void)steps.Compute();
        EXPECT_THAT(log.Take(), Contains(HasSubstr("Clustered feature space")).Times(diameter < 0.0 ? 3 : 0));
        ASSERT_TRUE(whole.Compute());
        EXPECT_EQ(steps.GetStatistics().uiNumProposals, whole.GetStatistics().uiNumProposals);
        EXPECT_EQ(steps.PeekBestResult().trafo, whole.PeekBestResult().trafo);
        EXPECT_EQ(steps.GetBestClusterSize(), whole.GetBestClusterSize());
    }
}

// A refusal is an answer, with its causes: scans of two bodies, and of two ends of one body.
TEST(PreRegistration, RefusesScansWithoutACommonPart)
{
    for (unsigned shape = 1; shape <= 3; ++shape) {
        SCOPED_TRACE(shape);
        const auto end = [shape](float side) {
            return ToPointSet(Body(4000, shape, 1, [side](const Vec3& p) { return side * p.x > 1.0F; }));
        };
        const CFPFHPointSet pairs[][2] = {{ScanPair(shape).fix, ScanPair(shape + 20).flt}, {end(-1.0F), end(1.0F)}};
        for (const auto& [fix, flt] : pairs) {
            CFPFHPreRegistration driver(fix, flt, BodyConfig(), false);
            EXPECT_FALSE(driver.Compute());
            EXPECT_FALSE(driver.HasMoreResults());
            EXPECT_EQ(driver.GetNextResult().resultType, -1);
            EXPECT_EQ(driver.PeekBestResult().resultType, -1);
            EXPECT_THAT(driver.GetAllResults(), IsEmpty());
            const auto statistics = driver.GetStatistics();
            EXPECT_GT(statistics.uiNumFailed, 0U);
            EXPECT_EQ(statistics.uiNumSuccessful, 0U);
            std::uint32_t sum = 0, previous = std::numeric_limits<std::uint32_t>::max();
            for (const auto& [type, count] : statistics.failures) {
                EXPECT_TRUE(type >= 1 && type <= 9 && count <= previous);
                previous = count;
                sum += count;
            }
            EXPECT_EQ(sum, statistics.uiNumFailed);
        }
    }
}

TEST(PreRegistration, StatisticsText)
{
    CFPFHPreRegistration::Statistics s{20, 5, 5, 0, {}};
    EXPECT_EQ(s.ToString(), "20 polys, 5 proposed trafos (5 successful, 0 failed)");
    s.failures = {{9, 10}, {1, 9}, {2, 8}, {3, 7}, {4, 6}, {5, 5}, {6, 4}, {7, 3}, {8, 2}, {10, 1}, {4, 0}, {5, 7}};
    const std::string text = s.ToString();
    EXPECT_EQ(text,
              "20 polys, 5 proposed trafos (5 successful, 0 failed) failure causes: stop/RMSE:10x strt/overlap:9x "
              "strt/inliers:8x iter/mismatches:7x iter/overlap:6x iter/inliers:5x stop/change:4x stop/conflicts:3x "
              "stop/overlap:2x *unknown*:1x");
    EXPECT_EQ(s.ToWString(), std::wstring(text.begin(), text.end()));
}

TEST(PreRegistration, TooLeanSetsAreRefusedAtOnce)
{
    const ScanPair pair(1);
    LogCapture log;
    CFPFHPreRegistration none;
    EXPECT_FALSE(none.Compute());
    EXPECT_THAT(log.Take(), Contains(Channel + "W|too few features in point set 'fix'"));
    CFPFHPreRegistration noFlt(pair.fix, CFPFHPointSet(), BodyConfig(), true);
    EXPECT_FALSE(noFlt.Compute());
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "W|too few features in point set 'flt'"));
    CFPFHPreRegistration null(nullptr, nullptr, BodyConfig());
    EXPECT_FALSE(null.Compute());
    for (CFPFHPreRegistration* driver : {&none, &noFlt, &null}) EXPECT_EQ(driver->InjectTrafo(CTrafo()).resultType, -1);
    CFPFHPreRegistration sparse(pair.fix, pair.flt, BodyConfig(), false);
    sparse.GetMatchingConfig().uiNumPolygonVertices = 0; // passes the first test
    sparse.GetMatchingConfig().uiNumPolygons = 2;
    (void)log.Take();
    EXPECT_FALSE(sparse.Compute());
    EXPECT_THAT(log.Take(), Contains(Channel + "W|seeding of polygon in 'flt' failed (probably too sparse)").Times(2));
}

// Without a quorum all polygons are looked at and clustering happens once, at the end; with it, at every proposal from
// the quorum on.
TEST(PreRegistration, QuorumDecidesHowOftenItClusters)
{
    const ScanPair pair(2);
    const auto run = [&](std::uint32_t quorum) {
        ConfigurationFPFH config = BodyConfig();
        config.uiTrafoClusteringQuorum = quorum;
        CFPFHPreRegistration driver(pair.fix, pair.flt, config, false);
        LogCapture log;
        EXPECT_TRUE(driver.Compute());
        const auto messages = log.Take();
        const auto numClusterings = std::count_if(messages.begin(), messages.end(), [](const std::string& m) {
            return m.find("clustering: found") != std::string::npos;
        });
        return std::pair(numClusterings, driver.GetStatistics().uiNumProposals);
    };
    const auto [onceAll, all] = run(0);
    EXPECT_EQ(onceAll, 1);
    EXPECT_GT(all, 6U);
    EXPECT_EQ(run(100000), run(0)); // never reached
    EXPECT_GT(run(3).first, 0);
    EXPECT_LT(run(3).second, all);
}

// An outside pose joins the proposals and the results; what was verified once is not verified again.
TEST(PreRegistration, InjectedPoses)
{
    const ScanPair pair(3);
    ConfigurationFPFH config = BodyConfig();
    config.uiNumPolygons = 0;
    CFPFHPreRegistration driver(pair.fix, pair.flt, config, false);
    EXPECT_FALSE(driver.Compute()); // nothing to cluster
    LogCapture log;
    const CTrafo start = Random(1).Pose(0.03F, 0.2F) * pair.truth;
    const ICPResult result = driver.InjectTrafo(start);
    EXPECT_TRUE(IsNear(result, pair));
    EXPECT_THAT(log.Take(), Contains(testing::MatchesRegex(
                                ".*T.InjectTrafo: overlap ratio of refined trafo: [0-9.]+p .before: [0-9.]+p., "
                                "RMSE: 0.0[0-9]+mm .before: [0-9.]+mm.")));
    EXPECT_EQ(Figures({driver.InjectTrafo(start)}), Figures({result})); // once more: one cache entry, two proposals
    EXPECT_EQ(driver.GetAllResults().size(), 2U);
    EXPECT_EQ(driver.GetStatistics().ToString(), "0 polys, 1 proposed trafos (1 successful, 0 failed)");

    const ICPResult failed = driver.InjectTrafo(CTrafo(Vec3(), Vec3(500, 0, 0)));
    EXPECT_EQ(failed.resultType, 1);
    EXPECT_THAT(log.TakeComplaints(),
                ElementsAre(Channel + "W|InjectTrafo: refinement failed (initial overlap of point sets is too small)"));
    EXPECT_EQ(driver.GetAllResults().size(), 2U);
    EXPECT_EQ(driver.GetStatistics().uiNumProposals, 1U);

    ICPResult foreign; // pushed as it is
    foreign.resultType = 3;
    foreign.fStop_SmallBigRatio = 2.0F;
    driver.InjectICPResult(foreign);
    EXPECT_EQ(driver.PeekBestResult().resultType, 3);
    EXPECT_TRUE(driver.Compute()); // clusters both proposals into one result; the foreign one is no proposal
    EXPECT_EQ(driver.GetAllResults().size(), 1U);
    EXPECT_TRUE(IsNear(driver.PeekBestResult(), pair));
    const CTrafo faraway(Vec3(0.5F, 0.5F, 0.5F), Vec3());
    driver.GetMatchingConfig().icpConfig.dMaxRotationDistance = 0.5;
    EXPECT_EQ(driver.InjectTrafo(start, &faraway).resultType, 6); // measured from the second pose
}

// Accepted poses of one place and turn are one result; the order is that of the results, not of the cluster sizes.
TEST(PreRegistration, ClustersByPositionThenByOrientation)
{
    LogCapture log;
    const CFPFHPointSet ball = ToPointSet(Sphere(2000, 10.0F), 4.0, 1); // lands on itself in every turn
    ConfigurationFPFH config = BodyConfig();
    config.uiNumPolygons = 0;
    for (const double bandwidth : {-1.0, 0.3}) {
        config.dOrientationClusteringBandwidth = bandwidth;
        CFPFHPreRegistration driver(ball, ball, config, false);
        ICPResult best;
        for (const float angle : {0.0F, 0.02F, 1.5F, 1.53F, 1.55F}) {
            const ICPResult injected = driver.InjectTrafo(CTrafo(Vec3(0, 0, angle), Vec3()));
            ASSERT_EQ(injected.resultType, 0);
            if (best.resultType != 0 || injected < best) best = injected;
        }
        (void)log.Take();
        ASSERT_TRUE(driver.Compute());
        const auto messages = log.Take();
        EXPECT_THAT(messages, Contains(Channel + "T|clustering: found 1 position-clusters among 5 trafos"));
        EXPECT_THAT(messages, Contains(Channel + "T|  #0: cluster size 5"));
        EXPECT_EQ(driver.GetAllResults().size(), bandwidth < 0.0 ? 1U : 2U);
        if (bandwidth < 0.0) {
            EXPECT_EQ(Figures({driver.PeekBestResult()}), Figures({best})); // which represents the group
            continue;
        }
        EXPECT_THAT(messages, Contains(Channel + "T|cluster #0 (size 5) consists of 2 orientation clusters:"));
        for (const char* size : {"(size 2)", "(size 3)"}) // in the order in which their modes were found
            EXPECT_THAT(messages, Contains(testing::AllOf(HasSubstr("T|  orientation cluster #"), HasSubstr(size))));
    }
    // No clustering is possible, or the search for modes ends without any: every pose stands for itself.
    for (const auto& [bandwidth, message] :
         {std::pair(-1.0, "W|(position) clustering failed!"),
          std::pair(std::nan(""), "W|(position) clustering failed!"),
          std::pair(1e-30, "T|clustering: found 0 position-clusters among 2 trafos")}) {
        config.dTrafoClusteringBandwidth = bandwidth;
        CFPFHPreRegistration driver(ball, ball, config, false);
        for (const float angle : {0.0F, 0.02F}) (void)driver.InjectTrafo(CTrafo(Vec3(0, 0, angle), Vec3()));
        (void)log.Take();
        EXPECT_TRUE(driver.Compute());
        EXPECT_THAT(log.Take(), ElementsAre(Channel + message));
        EXPECT_THAT(driver.GetVerifiedTrafos(),
                    testing::AllOf(testing::SizeIs(2), testing::Each(testing::Field(
                                                           &CFPFHPreRegistration::VerifiedTrafo::clusterSize, 1U))));
    }
}

// Copies go on as the original would; results come in the same order one by one and all at once.
TEST(PreRegistration, CopiesContinueAlike)
{
    const ScanPair pair(4), other(24);
    ConfigurationFPFH config = BodyConfig();
    config.uiTrafoClusteringQuorum = 0;
    config.icpConfig.dMaxRMSE = 1.0; // lets wrong poses pass: several results
    config.icpConfig.dMinSmallBigRatio = 0.05;
    config.dTrafoClusteringBandwidth = 0.05;
    CFPFHPreRegistration driver(pair.fix, other.flt, config, true);
    ASSERT_TRUE(driver.Compute());
    const std::vector<ICPResult> all = driver.GetAllResults();
    EXPECT_GT(all.size(), 3U);
    CFPFHPreRegistration copy = driver;
    CFPFHPreRegistration assigned;
    assigned = copy;
    CFPFHPreRegistration moved = std::move(assigned);
    EXPECT_EQ(Figures(TakeAll(copy)), Figures(all));
    EXPECT_FALSE(copy.HasMoreResults());
    EXPECT_EQ(Figures(driver.GetAllResults()), Figures(all)); // untouched by the copy
    EXPECT_TRUE(driver.Compute());
    for (CFPFHPreRegistration* twin : {&moved, &copy}) {
        EXPECT_TRUE(twin->Compute());
        EXPECT_EQ(Figures(twin->GetAllResults()), Figures(driver.GetAllResults()));
        EXPECT_EQ(twin->GetStatistics().ToString(), driver.GetStatistics().ToString());
    }
}

TEST(PreRegistration, ResultsComeBestFirst)
{
    CFPFHPreRegistration driver;
    ICPResult result;
    for (int i = 0; i < 30; ++i) {
        result.fStop_RMSE = 0.01F * static_cast<float>(i * 7 % 30); // beyond the band in which they tie
        driver.InjectICPResult(result);
    }
    const std::vector<ICPResult> all = driver.GetAllResults();
    ASSERT_EQ(all.size(), 30U);
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_EQ(Figures({driver.PeekBestResult()}), Figures({all[0]}));
    EXPECT_EQ(Figures(TakeAll(driver)), Figures(all));
}

TEST(PreRegistration, OverlapAreaIsFilledAndLimited)
{
    const ScanPair pair(5);
    ConfigurationFPFH config = BodyConfig();
    CFPFHPreRegistration driver(pair.fix, pair.flt, config, false);
    ASSERT_TRUE(driver.Compute());
    const ICPResult best = driver.PeekBestResult();
    const auto tolerance = static_cast<float>(config.icpConfig.dPositionTolerance);
    EXPECT_EQ(best.fStop_OverlapArea,
              pair.fix.EstimateOverlapArea(pair.flt, best.trafo, tolerance, 2.0F * tolerance, 1e9F));
    EXPECT_GT(best.fStop_OverlapArea, 100.0F);
    EXPECT_GT(driver.InjectTrafo(best.trafo).fStop_OverlapArea, 100.0F);
    ICPResult restored = best; // as a document keeps it
    restored.resultType = -1;
    restored.fStop_OverlapArea = -1.0F;
    driver.InjectICPResult(restored);
    LogCapture log;
    for (const bool isFirst : {true, false}) { // each area is estimated once
        for (const ICPResult& result : driver.GetAllResults()) EXPECT_GT(result.fStop_OverlapArea, 100.0F);
        EXPECT_EQ(log.Take().empty(), !isFirst);
    }
    for (const double share : {0.9, 1.1}) {
        config.icpConfig.dMinOverlapArea = share * static_cast<double>(best.fStop_OverlapArea);
        CFPFHPreRegistration limited(pair.fix, pair.flt, config, false);
        EXPECT_EQ(limited.Compute(), share < 1.0);
        EXPECT_EQ(limited.InjectTrafo(best.trafo).resultType, share < 1.0 ? 0 : 8);
    }
}

} // namespace
