#include "verification.h"

#include "stability.h"

#include <algorithm>

namespace voalgo {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;

namespace {

/// Smallest small/big ratio for a result with this RMSE and overlap: a looser fit and a smaller overlap, which chance
/// more easily brings about, must agree better with the surroundings.
double MinSmallBigRatio(const Verification& verification, float rmse, float overlap)
{
    constexpr double SmallOverlap = 0.3;
    const double multiple = static_cast<double>(rmse) / verification.roughness;
    return verification.icp.dMinSmallBigRatio + verification.strictness * (multiple - 1.0) +
           std::max(0.0, SmallOverlap - static_cast<double>(overlap));
}

void Append(std::vector<AcceptanceTest>& tests, const std::vector<AcceptanceTest>& more)
{
    tests.insert(tests.end(), more.begin(), more.end());
}

/// Adds a test of both sides together; whether it passed.
bool AppendPassed(std::vector<AcceptanceTest>& tests, AcceptanceTest test)
{
    test.stage = "both sides";
    tests.push_back(std::move(test));
    return tests.back().outcome == AcceptanceTest::Outcome::Passed;
}

} // namespace

void Verification::Follow(const prereg::ConfigurationFPFH& derived, const prereg::ConfigurationFPFH& stated)
{
    using Icp = prereg::ConfigurationICP;
    for (double Icp::*field : {&Icp::dMinQueryRadius, &Icp::dPositionTolerance, &Icp::dNormalAngleTolerance,
                               &Icp::dMaxErrorRatio, &Icp::dMinOverlapRatio, &Icp::dMaxRMSE, &Icp::dMinSmallBigRatio,
                               &Icp::dSmallBigQueryRadiusScaling, &Icp::dInlierScaling})
        if (stated.icpConfig.*field != derived.icpConfig.*field) icp.*field = stated.icpConfig.*field;
    icp.uiMaxNumIterations = std::min(icp.uiMaxNumIterations, stated.icpConfig.uiMaxNumIterations);
    if (stated.uiTrafoClusteringQuorum == 1) minClusterSize = 1;
}

JudgedTrafo VerifyFit(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                      const CFPFHPreRegistration::VerifiedTrafo& found)
{
    JudgedTrafo judged(found, {});
    const auto object = [&judged](const std::string& objection) {
        judged.objection = objection;
        return judged;
    };

    const prereg::ICPResult forward = fix.ComputeICPRegistration(verification.icp, flt, found.trafo);
    if (forward.resultType == 0 || forward.resultType > 5) static_cast<prereg::ICPResult&>(judged) = forward;
    const auto minSmallBigRatio = [&](const prereg::ICPResult& r) {
        return MinSmallBigRatio(verification, r.fStop_RMSE, forward.fStop_OverlapRatio);
    };
    const auto isTooLoose = [&](const prereg::ICPResult& r) {
        return verification.icp.dMinSmallBigRatio > 0.0 &&
               static_cast<double>(r.fStop_SmallBigRatio) < minSmallBigRatio(r);
    };
    Append(judged.tests,
           TestsOf(forward, verification.icp, "FLT on FIX", forward.resultType == 0 ? minSmallBigRatio(forward) : 0.0));
    if (forward.resultType != 0) return object(CauseText(forward.resultType));
    if (isTooLoose(forward)) return object("neighbourhoods of the scans differ");

    prereg::ConfigurationICP fromTheOtherSide = verification.icp;
    fromTheOtherSide.dMinOverlapRatio = 0.0; // fix may be much the larger one
    const prereg::ICPResult backward =
        flt.ComputeICPRegistration(fromTheOtherSide, fix, forward.trafo.GetInverse(true));
    Append(judged.tests, TestsOf(backward, fromTheOtherSide, "FIX on FLT",
                                 backward.resultType == 0 ? minSmallBigRatio(backward) : 0.0));
    if (backward.resultType != 0) return object("from the other side: " + CauseText(backward.resultType));
    if (isTooLoose(backward)) return object("from the other side: neighbourhoods of the scans differ");

    const float turn = backward.trafo.GetInverse(true).GetRotationDistance(forward.trafo);
    if (!AppendPassed(judged.tests, AtMost("Turn between both sides' poses", "maxTurn", "rad",
                                           static_cast<double>(turn), verification.maxTurn)))
        return object("both sides end in different poses");
    return judged;
}

JudgedTrafo Verify(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                   const CFPFHPreRegistration::VerifiedTrafo& found)
{
    JudgedTrafo judged = VerifyFit(fix, flt, verification, found);
    if (!judged.objection.empty()) return judged;
    const double stability =
        PoseStability(fix, flt, judged.trafo, verification.icp.dMinQueryRadius, verification.icp.dNormalAngleTolerance);
    if (!AppendPassed(judged.tests,
                      AtLeast("Hold of the shape", "minStability", "", stability, verification.minStability)))
        judged.objection = "the shape of the overlap does not hold the pose: it could slide or turn";
    return judged;
}

} // namespace voalgo
