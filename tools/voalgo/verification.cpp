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

std::string VerifyFit(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                      CFPFHPreRegistration::VerifiedTrafo& result)
{
    const prereg::ICPResult forward = fix.ComputeICPRegistration(verification.icp, flt, result.trafo);
    if (forward.resultType != 0) return forward.ToString(true);
    const auto isTooLoose = [&](const prereg::ICPResult& r) {
        return verification.icp.dMinSmallBigRatio > 0.0 &&
               static_cast<double>(r.fStop_SmallBigRatio) <
                   MinSmallBigRatio(verification, r.fStop_RMSE, forward.fStop_OverlapRatio);
    };
    if (isTooLoose(forward)) return "neighbourhoods of the scans differ";

    prereg::ConfigurationICP fromTheOtherSide = verification.icp;
    fromTheOtherSide.dMinOverlapRatio = 0.0; // fix may be much the larger one
    const prereg::ICPResult backward =
        flt.ComputeICPRegistration(fromTheOtherSide, fix, forward.trafo.GetInverse(true));
    if (backward.resultType != 0) return "from the other side: " + backward.ToString(true);
    if (isTooLoose(backward)) return "from the other side: neighbourhoods of the scans differ";
    if (static_cast<double>(backward.trafo.GetInverse(true).GetRotationDistance(forward.trafo)) > verification.maxTurn)
        return "both sides end in different poses";
    static_cast<prereg::ICPResult&>(result) = forward;
    return {};
}

std::string Verify(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                   CFPFHPreRegistration::VerifiedTrafo& result)
{
    const std::string objection = VerifyFit(fix, flt, verification, result);
    if (!objection.empty()) return objection;
    const double stability =
        PoseStability(fix, flt, result.trafo, verification.icp.dMinQueryRadius, verification.icp.dNormalAngleTolerance);
    return stability < verification.minStability
               ? "the shape of the overlap does not hold the pose: it could slide or turn"
               : "";
}

} // namespace voalgo
