#include "VoAlgorithms/verdict/verification.h"

#include "verdict/detail_stability.h"

#include <algorithm>
#include <string>

namespace prereg {
namespace {

/// The verification of one pose, step by step; each step returns whether to go on with the next one.
class PoseVerification {
public:
    PoseVerification(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                     const CFPFHPreRegistration::VerifiedTrafo& found)
        : fix_(fix), flt_(flt), verification_(verification), judged_(found)
    {
    }

    bool Fit() { return refineFromFix() && refineFromFlt() && sidesAgree(); }

    bool Stability()
    {
        const double stability = detail::PoseStability(fix_, flt_, judged_.trafo, verification_.icp.dMinQueryRadius,
                                                       verification_.icp.dNormalAngleTolerance);
        return passes(Compared(ETest::Stability, EStage::BothSides, stability, verification_.minStability),
                      ERefusal::NotStable);
    }

    JudgedTrafo Result() && { return std::move(judged_); }

private:
    bool refineFromFix()
    {
        forward_ = fix_.ComputeICPRegistration(verification_.icp, flt_, judged_.trafo);
        if (forward_.resultType == 0 || forward_.resultType > 5) static_cast<ICPResult&>(judged_) = forward_;
        return accepts(forward_, verification_.icp, EStage::FltOnFix);
    }

    bool refineFromFlt()
    {
        ConfigurationICP config = verification_.icp;
        config.dMinOverlapRatio = 0.0; // fix may be much larger than flt
        backward_ = flt_.ComputeICPRegistration(config, fix_, forward_.trafo.GetInverse(true));
        return accepts(backward_, config, EStage::FixOnFlt);
    }

    bool sidesAgree()
    {
        const float turn = backward_.trafo.GetInverse(true).GetRotationDistance(forward_.trafo);
        return passes(
            Compared(ETest::RotationBetweenSides, EStage::BothSides, static_cast<double>(turn), verification_.maxTurn),
            ERefusal::SidesDisagree);
    }

    /// Records the tests of one side's refinement.
    bool accepts(const ICPResult& result, const ConfigurationICP& config, EStage stage)
    {
        const double limit = result.resultType == 0 ? minSmallBigRatio(result) : 0.0;
        const std::vector<AcceptanceTest> tests = TestsOf(result, config, stage, limit);
        judged_.tests.insert(judged_.tests.end(), tests.begin(), tests.end());
        if (result.resultType != 0) return object(RefusalOf(result.resultType), stage);
        const bool isTooLoose =
            config.dMinSmallBigRatio > 0.0 && static_cast<double>(result.fStop_SmallBigRatio) < limit;
        return !isTooLoose || object(ERefusal::NeighbourhoodsDiffer, stage);
    }

    /// The limit rises for a looser fit and for a smaller overlap, which come about by chance more easily.
    [[nodiscard]] double minSmallBigRatio(const ICPResult& result) const
    {
        constexpr double SmallOverlap = 0.3;
        const double multiple = static_cast<double>(result.fStop_RMSE) / verification_.roughness;
        return verification_.icp.dMinSmallBigRatio + verification_.strictness * (multiple - 1.0) +
               std::max(0.0, SmallOverlap - static_cast<double>(forward_.fStop_OverlapRatio));
    }

    bool passes(const AcceptanceTest& test, ERefusal otherwise)
    {
        judged_.tests.push_back(test);
        return test.outcome == EOutcome::Passed || object(otherwise, test.stage);
    }

    bool object(ERefusal code, EStage stage)
    {
        judged_.objection = {code,
                             (stage == EStage::FixOnFlt ? "refining FIX onto FLT: " : "") + std::string(TextOf(code))};
        return false;
    }

    const CFPFHPointSet& fix_;
    const CFPFHPointSet& flt_;
    const Verification& verification_;
    JudgedTrafo judged_;
    ICPResult forward_;
    ICPResult backward_; // maps fix into flt
};

} // namespace

void Verification::Follow(const ConfigurationFPFH& derived, const ConfigurationFPFH& stated)
{
    using Icp = ConfigurationICP;
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
    PoseVerification pose(fix, flt, verification, found);
    (void)pose.Fit();
    return std::move(pose).Result();
}

JudgedTrafo Verify(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                   const CFPFHPreRegistration::VerifiedTrafo& found)
{
    PoseVerification pose(fix, flt, verification, found);
    (void)(pose.Fit() && pose.Stability());
    return std::move(pose).Result();
}

} // namespace prereg
