#include "VoAlgorithms/verdict/acceptancetest.h"

#include "VoAlgorithms/prereg/eicpresulttype.h"
#include "prereg/icplimits.h"

#include <cmath>

namespace prereg {
namespace {

// In the order of ETest.
constexpr TestInfo Infos[] = {
    {"agreeing_proposals", "Agreeing proposals", "minClusterSize", "", false},
    {"surface_overlap", "Overlap of the surfaces", "minOverlap", "", false},
    {"surface_agreement", "Agreement where both scans have surface", "minAgreement", "", false},
    {"misfit", "Median distance of the surfaces", "maxMisfit", "mm", true},
    {"seen_empty", "Points in space seen to be empty", "maxSeenEmpty", "", true},
    {"stability", "Geometric stability", "minStability", "", false},
    {"beyond_flat_faces", "Overlap beyond three flat faces", "minBeyondFaces", "", false},
    {"pairs_at_start", "Pairs at the start", "", "", false},
    {"inliers_at_start", "Inliers at the start", "", "", false},
    {"mismatches_iterating", "Mismatched normals during the iteration", "", "", true},
    {"pairs_iterating", "Pairs during the iteration", "", "", false},
    {"inliers_iterating", "Inliers during the iteration", "", "", false},
    {"small_big_ratio", "Small/big ratio", "dMinSmallBigRatio", "", false},
    {"rmse", "RMSE of the inliers", "dMaxRMSE", "mm", true},
    {"overlap_ratio", "Overlap ratio", "dMinOverlapRatio", "", false},
    {"mismatch_ratio", "Mismatched normals per match", "dMaxErrorRatio", "", true},
    {"movement_from_start", "Rotation and movement from the start", "dMaxRotationDistance, dMaxMovement", "", true},
    {"overlap_area", "Overlap area", "dMinOverlapArea", "mm2", false},
    {"runner_up", "Support of the runner-up, relative to this pose", "", "", true},
};

/// A test without a figure to compare.
AcceptanceTest Decided(ETest test, EStage stage, bool passed)
{
    AcceptanceTest result;
    result.test = test;
    result.stage = stage;
    result.outcome = passed ? EOutcome::Passed : EOutcome::Failed;
    return result;
}

AcceptanceTest WithoutValue(AcceptanceTest test)
{
    test.value = std::numeric_limits<double>::quiet_NaN();
    test.outcome = EOutcome::NotRun;
    return test;
}

/// The test that ended a refinement while iterating, for types 3 to 5; the refinement reports no figure for it.
AcceptanceTest FailedIterating(EICPResultType type, EStage stage)
{
    using enum EICPResultType;
    return Decided(type == TooManyMismatchesIterating ? ETest::MismatchesIterating
                   : type == OverlapTooSmallIterating ? ETest::PairsIterating
                                                      : ETest::InliersIterating,
                   stage, false);
}

} // namespace

const TestInfo& InfoOf(ETest test)
{
    return Infos[static_cast<std::size_t>(test)];
}

const char* NameOf(EStage stage)
{
    constexpr const char* Names[] = {"search", "verification", "grading", "all results"};
    return Names[static_cast<std::size_t>(stage)];
}

const char* NameOf(EOutcome outcome)
{
    constexpr const char* Names[] = {"not run", "passed", "failed"};
    return Names[static_cast<std::size_t>(outcome)];
}

AcceptanceTest Compared(ETest test, EStage stage, double value, double limit)
{
    const bool failed = InfoOf(test).isAtMost ? value > limit : limit > value;
    AcceptanceTest result = Decided(test, stage, !failed);
    result.value = value;
    result.limit = limit;
    return result;
}

std::vector<AcceptanceTest> TestsOf(const ICPResult& r, const ConfigurationICP& config, EStage stage)
{
    const auto type = static_cast<EICPResultType>(r.resultType);
    const bool isIterated = r.resultType == 0 || type >= EICPResultType::TooFarAway;
    const bool isGraded = isIterated && r.fStop_OverlapRatio >= 0.0F;
    const bool isAreaTooSmall = type == EICPResultType::OverlapTooSmall && r.fStop_OverlapArea >= 0.0F;

    std::vector<AcceptanceTest> tests;
    const auto compare = [&](ETest test, double value, double limit, bool isReached) {
        const AcceptanceTest compared = Compared(test, stage, value, limit);
        tests.push_back(isReached ? compared : WithoutValue(compared));
    };
    compare(ETest::PairsAtStart, std::round(static_cast<double>(r.fStart_OverlapRatio) * config.uiNumSamples),
            static_cast<double>(MinPairs(config.uiNumSamples)), r.resultType >= 0);
    compare(ETest::InliersAtStart, r.iStart_NumberOfInliers, MinInliers, r.iStart_NumberOfInliers >= 0);
    if (type >= EICPResultType::TooManyMismatchesIterating && type <= EICPResultType::TooFewInliersIterating)
        tests.push_back(FailedIterating(type, stage));
    if (config.dMinSmallBigRatio > 0.0)
        compare(ETest::SmallBigRatio, static_cast<double>(r.fStop_SmallBigRatio), config.dMinSmallBigRatio, isIterated);
    compare(ETest::Rmse, static_cast<double>(r.fStop_RMSE), config.dMaxRMSE, isGraded);
    if (config.dMinOverlapRatio > 0.0)
        compare(ETest::OverlapRatio, static_cast<double>(r.fStop_OverlapRatio), config.dMinOverlapRatio, isGraded);
    if (config.dMaxErrorRatio > 0.0)
        compare(ETest::MismatchRatio, static_cast<double>(r.fStop_MismatchesPerMatchRatio), config.dMaxErrorRatio,
                isGraded);
    if (config.dMaxRotationDistance > 0.0 || config.dMaxMovement > 0.0) { // how far it moved is not reported
        const bool isTooFar = type == EICPResultType::TooFarAway;
        const bool isReached = isTooFar || r.resultType == 0 || isAreaTooSmall;
        const AcceptanceTest decided = Decided(ETest::MovementFromStart, stage, !isTooFar);
        tests.push_back(isReached ? decided : WithoutValue(decided));
    }
    if (config.dMinOverlapArea > 0.0) tests.push_back(AreaTest(r, config, stage));
    return tests;
}

AcceptanceTest AreaTest(const ICPResult& r, const ConfigurationICP& config, EStage stage)
{
    const AcceptanceTest test =
        Compared(ETest::OverlapArea, stage, static_cast<double>(r.fStop_OverlapArea), config.dMinOverlapArea);
    return r.fStop_OverlapArea >= 0.0F ? test : WithoutValue(test);
}

} // namespace prereg
