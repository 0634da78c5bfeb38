#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/acceptancetest.h"
#include "VoAlgorithms/verdict/erefusal.h"
#include "VoAlgorithms/verdict/verification.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <string>

namespace prereg {
namespace {

/// Bytes of a record that its listed fields cover; every field once.
template <class Record>
std::size_t CoveredBytes()
{
    Record record;
    std::set<const void*> seen;
    std::set<std::string> keys;
    std::size_t bytes = 0;
    VisitFields(record, [&](const FieldInfo& info, auto& field) {
        EXPECT_TRUE(seen.insert(&field).second && keys.insert(info.key).second) << info.key;
        EXPECT_STRNE(info.meaning, "") << info.key;
        bytes += sizeof(field);
    });
    return bytes;
}

// A field that somebody adds to a record but not to the list would be lost in documents, JSON and bindings.
TEST(Fields, ListEveryMemberOnce)
{
    EXPECT_EQ(CoveredBytes<ConfigurationICP>(), 2 * sizeof(std::uint32_t) + 13 * sizeof(double));
    EXPECT_EQ(sizeof(ConfigurationICP), 15 * sizeof(double)); // both counts are padded
    EXPECT_EQ(CoveredBytes<ConfigurationFPFH>(), 5 * sizeof(std::uint32_t) + 6 * sizeof(double));
    EXPECT_EQ(CoveredBytes<ICPResult>(), offsetof(ICPResult, trafo) - offsetof(ICPResult, fStart_OverlapRatio));
    EXPECT_EQ(CoveredBytes<Verification>(), 7 * sizeof(double) + sizeof(std::uint32_t));
    EXPECT_EQ(NearestKey("dmaxrmsse", {"dMinOverlapRatio", "dMaxRMSE"}), "dMaxRMSE");
}

// Programs rely on codes: they are stable, distinct and never empty.
TEST(Codes, AreStable)
{
    std::set<std::string> codes;
    const std::string expected[] = {
        "initial_overlap_too_small",   "too_few_inliers_initially", "too_many_mismatches_iterating",
        "overlap_too_small_iterating", "too_few_inliers_iterating", "too_far_away",
        "too_many_mismatches",         "overlap_too_small",         "rmse_too_large"};
    for (int type = 1; type <= 9; ++type) {
        EXPECT_EQ(CodeOf(static_cast<EICPResultType>(type)), expected[type - 1]);
        EXPECT_STREQ(CodeOf(RefusalOf(type)), CodeOf(static_cast<EICPResultType>(type)));
        EXPECT_TRUE(codes.insert(CodeOf(RefusalOf(type))).second);
    }
    for (const int range : {20, 40, 60})
        for (int code = range; std::strcmp(CodeOf(static_cast<ERefusal>(code)), "unknown") != 0; ++code) {
            EXPECT_TRUE(codes.insert(CodeOf(static_cast<ERefusal>(code))).second);
            EXPECT_STRNE(TextOf(static_cast<ERefusal>(code)), "");
        }
    EXPECT_EQ(codes.size(), 28U);
    std::set<std::string> tests;
    for (int test = 0; test <= static_cast<int>(ETest::RunnerUp); ++test)
        EXPECT_TRUE(tests.insert(InfoOf(static_cast<ETest>(test)).code).second);
    EXPECT_STREQ(InfoOf(ETest::RunnerUp).code, "runner_up"); // the table follows the enumeration
    EXPECT_STREQ(InfoOf(ETest::Rmse).setting, "dMaxRMSE");
}

/// A result as a refinement leaves it when it ends with this type; `failed`: whether the figures break the limits.
ICPResult ResultOfType(std::int32_t type)
{
    ICPResult r;
    r.resultType = type;
    r.fStart_OverlapRatio = type == 1 ? 0.004F : 0.8F;
    if (type != 1) r.iStart_NumberOfInliers = type == 2 ? 4 : 300;
    if (type >= 6 || type == 0) {
        r.fStop_RMSE = type == 9 ? 0.2F : 0.05F;
        r.fStop_SmallBigRatio = 0.9F;
        r.fStop_OverlapRatio = type == 8 ? 0.05F : 0.5F;
        r.fStop_MismatchesPerMatchRatio = type == 7 ? 0.5F : 0.0F;
    }
    return r;
}

// The rows of a report: exactly the test that decided has failed, all before it have passed, later ones were not run.
TEST(AcceptanceTests, NameTheOneThatDecided)
{
    const ETest deciding[] = {ETest::PairsAtStart,   ETest::InliersAtStart,   ETest::MismatchesIterating,
                              ETest::PairsIterating, ETest::InliersIterating, ETest::MovementFromStart,
                              ETest::MismatchRatio,  ETest::OverlapRatio,     ETest::Rmse};
    ConfigurationICP config;
    config.dMaxMovement = 1.0;
    for (std::int32_t type = 0; type <= 9; ++type) {
        SCOPED_TRACE(type);
        unsigned failed = 0;
        for (const AcceptanceTest& test : TestsOf(ResultOfType(type), config, EStage::Grading)) {
            if (test.outcome != EOutcome::Failed) continue;
            ++failed;
            EXPECT_EQ(test.test, deciding[type - 1]);
        }
        EXPECT_EQ(failed, type == 0 ? 0U : 1U);
    }
    // Early ends leave the rest unrun, without figures.
    for (const AcceptanceTest& test : TestsOf(ResultOfType(1), config, EStage::Search)) {
        const bool isUnrun = test.outcome == EOutcome::NotRun && std::isnan(test.value);
        EXPECT_NE(isUnrun, test.test == ETest::PairsAtStart) << InfoOf(test.test).name;
    }
    // Tests that are off are left out.
    config.dMinSmallBigRatio = config.dMaxErrorRatio = config.dMaxMovement = config.dMinOverlapRatio = 0.0;
    EXPECT_EQ(TestsOf(ResultOfType(0), config, EStage::Grading).size(), 3U);
}

} // namespace
} // namespace prereg
