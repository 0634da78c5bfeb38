#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/icpresult.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>
#include <utility>

namespace {

using namespace prereg;

ICPResult Make(float smallBig, float overlap, float rmse, int inliers)
{
    ICPResult r;
    r.fStop_SmallBigRatio = smallBig;
    r.fStop_OverlapRatio = overlap;
    r.fStop_RMSE = rmse;
    r.iStop_NumberOfInliers = inliers;
    return r;
}

// The defaults are products in double arithmetic; a rounded literal would differ in the last bit.
TEST(Configuration, Defaults)
{
    const ConfigurationICP icp{10,        300 * 0.001, 10.0, 500,       800 * 0.001, 20 * 0.0174532925199433,
                               3 * 0.01,  -1.0,        -1.0, 10 * 0.01, 100 * 0.001, 0.0,
                               60 * 0.01, 10.0,        5.0};
    EXPECT_EQ(ConfigurationICP(), icp);
    EXPECT_EQ(ConfigurationFPFH(), (ConfigurationFPFH{20, 10, 10, -1.0, 1.0, 25, 1.5, -1.0, 5.0, -1.0, 5, icp}));
}

// Each row: a is better than b by the named criterion alone; all before it tie within their bands.
TEST(ICPResult, CriteriaDecideInTurnOutsideTheirBands)
{
    constexpr int Most = std::numeric_limits<int>::max(); // figures read from a document may be anything
    const struct {
        const char* criterion;
        ICPResult a, b;
    } rows[] = {
        {"small/big", Make(0.906F, 0.1F, 9.0F, 0), Make(0.9F, 0.9F, 0.1F, 500)},
        {"overlap", Make(0.9F, 0.516F, 9.0F, 0), Make(0.904F, 0.5F, 0.1F, 500)},
        {"RMSE", Make(0.9F, 0.5F, 0.05F, 0), Make(0.904F, 0.514F, 0.052F, 500)},
        {"RMSE against none", Make(-1.0F, -1.0F, 5.0F, -1), ICPResult()},
        {"inliers", Make(0.9F, 0.5F, 0.05F, 110), Make(0.904F, 0.514F, 0.049F, 100)},
        {"inliers whose difference overflows", Make(0.9F, 0.5F, 0.05F, Most), Make(0.9F, 0.5F, 0.05F, -Most - 1)},
        {"the smaller overlap, deliberately", Make(0.9F, 0.5F, 0.05F, 100), Make(0.904F, 0.514F, 0.049F, 109)},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(row.a < row.b && row.b > row.a && !(row.b < row.a) && !(row.a > row.b)) << row.criterion;
    EXPECT_FALSE(ICPResult() < ICPResult() || ICPResult() > ICPResult()); // infinite RMSEs tie
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
    for (const auto& [type, text] : texts) {
        r.resultType = type;
        EXPECT_EQ(r.ToString(true), std::string(text) + (type == 0 ? " (RMSE: 0.062mm)" : ""));
        const std::string full = r.ToString(false);
        EXPECT_EQ(full, std::string(text) + " / start (Overlap Ratio: 75.0p, RMSE: 0.250mm, Errors/Pair: 1.5, "
                                            "#inliers=300) stop (Overlap Ratio: 50.0p, RMSE: 0.062mm, Errors/Pair: "
                                            "0.5, Small/Big: 0.88, #inliers=321, #iters: 7) ");
        EXPECT_EQ(r.ToWString(false), std::wstring(full.begin(), full.end()));
    }
    EXPECT_THAT(ICPResult().ToString(false), testing::HasSubstr("(Overlap Ratio: -100.0p, RMSE: infmm, Errors/Pair: "
                                                                "inf, Small/Big: -1.00, #inliers=-1, #iters: -1) "));
}

} // namespace
