#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/icpresult.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <utility>

namespace {

using prereg::ConfigurationFPFH;
using prereg::ConfigurationICP;
using prereg::ICPResult;

ICPResult Make(float smallBig, float overlap, float rmse, int inliers)
{
    ICPResult r;
    r.fStop_SmallBigRatio = smallBig;
    r.fStop_OverlapRatio = overlap;
    r.fStop_RMSE = rmse;
    r.iStop_NumberOfInliers = inliers;
    return r;
}

// Catches a default that is not the product it is meant to be, and a field that == forgets.
TEST(Configuration, DefaultsAndEquality)
{
    const ConfigurationICP c;
    const std::pair<double ConfigurationICP::*, double> doubles[] = {
        {&ConfigurationICP::dMinQueryRadius, 300 * 0.001},
        {&ConfigurationICP::dInitialQueryRadiusScaling, 10.0},
        {&ConfigurationICP::dPositionTolerance, 800 * 0.001},
        {&ConfigurationICP::dNormalAngleTolerance, 20 * 0.0174532925199433},
        {&ConfigurationICP::dMaxErrorRatio, 3 * 0.01},
        {&ConfigurationICP::dMaxRotationDistance, -1.0},
        {&ConfigurationICP::dMaxMovement, -1.0},
        {&ConfigurationICP::dMinOverlapRatio, 10 * 0.01},
        {&ConfigurationICP::dMaxRMSE, 100 * 0.001},
        {&ConfigurationICP::dMinOverlapArea, 0.0},
        {&ConfigurationICP::dMinSmallBigRatio, 60 * 0.01},
        {&ConfigurationICP::dSmallBigQueryRadiusScaling, 10.0},
        {&ConfigurationICP::dInlierScaling, 5.0}};
    for (const auto& [field, value] : doubles) {
        EXPECT_EQ(c.*field, value);
        ConfigurationICP other;
        EXPECT_EQ(c, other);
        other.*field += 1.0;
        EXPECT_NE(c, other);
    }
    EXPECT_EQ(c.uiMaxNumIterations, 10U);
    EXPECT_EQ(c.uiNumSamples, 500U);
    const ConfigurationFPFH f;
    EXPECT_EQ(std::tie(f.uiNumPolygons, f.uiNumPolygonVertices, f.uiNumNeighbors, f.uiMinCurvatureQuality),
              std::tuple(20U, 10U, 10U, 25U));
    EXPECT_EQ(std::tie(f.dMaxPolygonDiameter, f.dMaxPolygonVertexError, f.dFeatureRadius), std::tuple(-1.0, 1.0, 1.5));
    EXPECT_EQ(std::tie(f.dFeatureClusteringBandwidth, f.dTrafoClusteringBandwidth, f.dOrientationClusteringBandwidth,
                       f.uiTrafoClusteringQuorum, f.icpConfig),
              std::tuple(-1.0, 5.0, -1.0, 5U, c));
}

// Each row: a is better than b by the named criterion alone; all before it tie within their bands.
TEST(ICPResult, CriteriaDecideInTurnOutsideTheirBands)
{
    const struct {
        const char* criterion;
        ICPResult a, b;
    } rows[] = {
        {"small/big", Make(0.906F, 0.1F, 9.0F, 0), Make(0.9F, 0.9F, 0.1F, 500)},
        {"overlap", Make(0.9F, 0.516F, 9.0F, 0), Make(0.904F, 0.5F, 0.1F, 500)},
        {"RMSE", Make(0.9F, 0.5F, 0.05F, 0), Make(0.904F, 0.514F, 0.052F, 500)},
        {"inliers", Make(0.9F, 0.5F, 0.05F, 110), Make(0.904F, 0.514F, 0.049F, 100)},
        {"the smaller overlap, deliberately", Make(0.9F, 0.5F, 0.05F, 100), Make(0.904F, 0.514F, 0.049F, 109)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.criterion);
        EXPECT_TRUE(row.a < row.b);
        EXPECT_FALSE(row.b < row.a);
        EXPECT_TRUE(row.b > row.a);
        EXPECT_FALSE(row.a > row.b);
    }
    const ICPResult fresh; // infinite RMSEs tie
    EXPECT_FALSE(fresh < ICPResult());
    EXPECT_FALSE(fresh > ICPResult());
    EXPECT_TRUE(Make(-1.0F, -1.0F, 5.0F, -1) < fresh);
    constexpr int most = std::numeric_limits<int>::max(); // figures read from a document may be anything
    EXPECT_TRUE(Make(0.9F, 0.5F, 0.05F, most) < Make(0.9F, 0.5F, 0.05F, -most - 1));
}

TEST(ICPResult, TextsOfAllTypes)
{
    const std::pair<int, const char*> texts[] = {{-1, "undefined ICP result"},
                                                 {0, "success"},
                                                 {1, "initial overlap of point sets is too small"},
                                                 {2, "too few inliers, initially"},
                                                 {3, "too many mismatches during iteration"},
                                                 {4, "overlap too small during iteration"},
                                                 {5, "unknown result type"}, // deliberately without a text
                                                 {6, "final pose too far away from original pose"},
                                                 {7, "too many mismatches at final pose"},
                                                 {8, "overlap too small"},
                                                 {9, "RMSE too large"},
                                                 {10, "unknown result type"},
                                                 {-2, "unknown result type"}};
    ICPResult r = Make(0.875F, 0.5F, 0.0625F, 321);
    r.fStart_OverlapRatio = 0.75F;
    r.fStart_RMSE = 0.25F;
    r.fStart_MismatchesPerMatchRatio = 1.5F;
    r.iStart_NumberOfInliers = 300;
    r.fStop_MismatchesPerMatchRatio = 0.5F;
    r.iStop_Iterations = 7;
    const std::string figures =
        " / start (Overlap Ratio: 75.0p, RMSE: 0.250mm, Errors/Pair: 1.5, #inliers=300) stop "
        "(Overlap Ratio: 50.0p, RMSE: 0.062mm, Errors/Pair: 0.5, Small/Big: 0.88, #inliers=321, "
        "#iters: 7) ";
    for (const auto& [type, text] : texts) {
        r.resultType = type;
        EXPECT_EQ(r.ToString(true), std::string(text) + (type == 0 ? " (RMSE: 0.062mm)" : ""));
        EXPECT_EQ(r.ToString(false), text + figures);
        const std::string narrow = r.ToString(false);
        EXPECT_EQ(r.ToWString(false), std::wstring(narrow.begin(), narrow.end()));
    }
    EXPECT_EQ(ICPResult().ToString(false),
              "undefined ICP result / start (Overlap Ratio: -100.0p, RMSE: infmm, Errors/Pair: inf, #inliers=-1) stop "
              "(Overlap Ratio: -100.0p, RMSE: infmm, Errors/Pair: inf, Small/Big: -1.00, #inliers=-1, #iters: -1) ");
    EXPECT_EQ(ICPResult().fStop_OverlapArea, -1.0F);
}

} // namespace
