#include "acceptance.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace voalgo {

namespace {

using Outcome = AcceptanceTest::Outcome;

constexpr double Unknown = std::numeric_limits<double>::quiet_NaN();

AcceptanceTest Compared(std::string name, std::string setting, std::string unit, double value, double limit,
                        bool isAtMost)
{
    const bool failed = isAtMost ? value > limit : limit > value;
    return {std::move(name),
            std::move(setting),
            std::move(unit),
            value,
            limit,
            isAtMost,
            failed ? Outcome::Failed : Outcome::Passed,
            {}};
}

AcceptanceTest NotReached(AcceptanceTest test)
{
    test.value = Unknown;
    test.outcome = Outcome::NotRun;
    return test;
}

/// Types 3 to 5 end the run during the iteration, and no figure says how far it was off.
AcceptanceTest Iteration(const prereg::ICPResult& r)
{
    AcceptanceTest test;
    test.value = test.limit = Unknown;
    test.name = "Pairs and inliers during the iteration";
    test.outcome = r.resultType >= 3 && r.resultType <= 5  ? Outcome::Failed
                   : r.resultType < 3 && r.resultType != 0 ? Outcome::NotRun
                                                           : Outcome::Passed;
    if (test.outcome == Outcome::Failed)
        test.name = r.resultType == 3   ? "Mismatched normals during the iteration"
                    : r.resultType == 4 ? "Pairs during the iteration"
                                        : "Inliers during the iteration";
    return test;
}

} // namespace

AcceptanceTest AtMost(std::string name, std::string setting, std::string unit, double value, double limit)
{
    return Compared(std::move(name), std::move(setting), std::move(unit), value, limit, true);
}

AcceptanceTest AtLeast(std::string name, std::string setting, std::string unit, double value, double limit)
{
    return Compared(std::move(name), std::move(setting), std::move(unit), value, limit, false);
}

std::vector<AcceptanceTest> TestsOf(const prereg::ICPResult& r, const prereg::ConfigurationICP& config,
                                    const std::string& stage, double minSmallBigRatio)
{
    constexpr double MinInliers = 5.0;
    const double minPairs = std::max(5.0, std::trunc(config.uiNumSamples * 0.01));
    const double pairs = std::round(static_cast<double>(r.fStart_OverlapRatio) * config.uiNumSamples);
    const bool isIterated = r.resultType == 0 || r.resultType >= 6;
    const bool isGraded = isIterated && r.fStop_OverlapRatio >= 0.0F;
    const bool isAreaTooSmall = r.resultType == 8 && r.fStop_OverlapArea >= 0.0F; // all others were passed

    std::vector<AcceptanceTest> tests;
    const auto add = [&](const AcceptanceTest& test, bool isReached) {
        tests.push_back(isReached ? test : NotReached(test));
        tests.back().stage = stage;
    };
    add(AtLeast("Pairs at the start", "", "", pairs, minPairs), r.resultType >= 0);
    add(AtLeast("Inliers at the start", "", "", r.iStart_NumberOfInliers, MinInliers), r.iStart_NumberOfInliers >= 0);
    add(Iteration(r), true);
    if (tests.back().outcome != Outcome::Failed) tests.pop_back(); // worth a row only when it went wrong
    if (config.dMinSmallBigRatio > 0.0) {
        const bool isRaised = minSmallBigRatio > config.dMinSmallBigRatio;
        add(AtLeast("Small/big ratio", isRaised ? "dMinSmallBigRatio, raised" : "dMinSmallBigRatio", "",
                    static_cast<double>(r.fStop_SmallBigRatio), std::max(minSmallBigRatio, config.dMinSmallBigRatio)),
            isIterated);
    }
    add(AtMost("RMSE of the inliers", "dMaxRMSE", "mm", static_cast<double>(r.fStop_RMSE), config.dMaxRMSE), isGraded);
    if (config.dMinOverlapRatio > 0.0)
        add(AtLeast("Overlap ratio", "dMinOverlapRatio", "", static_cast<double>(r.fStop_OverlapRatio),
                    config.dMinOverlapRatio),
            isGraded);
    if (config.dMaxErrorRatio > 0.0)
        add(AtMost("Mismatched normals per match", "dMaxErrorRatio", "",
                   static_cast<double>(r.fStop_MismatchesPerMatchRatio), config.dMaxErrorRatio),
            isGraded);
    if (config.dMaxRotationDistance > 0.0 || config.dMaxMovement > 0.0) {
        AcceptanceTest test; // the refinement does not say how far it went
        test.name = "Turn and movement from the start";
        test.setting = "dMaxRotationDistance, dMaxMovement";
        test.value = test.limit = Unknown;
        test.outcome = r.resultType == 6 ? Outcome::Failed : Outcome::Passed;
        add(test, r.resultType == 6 || r.resultType == 0 || isAreaTooSmall);
    }
    if (config.dMinOverlapArea > 0.0) tests.push_back(AreaTest(r, config, stage));
    return tests;
}

AcceptanceTest AreaTest(const prereg::ICPResult& r, const prereg::ConfigurationICP& config, const std::string& stage)
{
    const AcceptanceTest test = AtLeast("Overlap area", "dMinOverlapArea", "mm2",
                                        static_cast<double>(r.fStop_OverlapArea), config.dMinOverlapArea);
    AcceptanceTest reached = r.fStop_OverlapArea >= 0.0F ? test : NotReached(test);
    reached.stage = stage;
    return reached;
}

std::string CauseText(std::int32_t resultType)
{
    if (resultType == 5) return "too few inliers during iteration"; // has no text of its own
    prereg::ICPResult result;
    result.resultType = resultType;
    const std::string text = result.ToString(true);
    return text.substr(0, text.find(" ("));
}

} // namespace voalgo
