// The verification of one pose:
// 1. refine it on one of eight samples; a pose that is hopeless then goes no further;
// 2. refine it on all samples and weigh the evidence, test by test;
// 3. grade it as the search grades, with more samples: its limits hold for the final pose, too.
#include "verdict/detail_posejudge.h"

#include <algorithm>

namespace prereg::detail {
namespace {

constexpr unsigned CoarseStride = 8;
constexpr unsigned CoarseIterations = 5;
constexpr double Hopeless = 0.2; // below the limit of the agreement

} // namespace

PoseJudge::PoseJudge(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const std::optional<View>& fixView,
                     const std::optional<View>& fltView, const RegistrationSettings& settings)
    : fix_(fix), flt_(flt), limits_(settings.verification), pair_(fix, flt, fixView, fltView, settings.resolution)
{
}

JudgedTrafo PoseJudge::Judge(const CFPFHPreRegistration::VerifiedTrafo& found) const
{
    JudgedTrafo judged(found);
    judged.tests.push_back(AgreementTest(found));
    if (judged.tests.back().outcome == EOutcome::Failed) {
        judged.objection = Refusal(ERefusal::TooFewProposalsAgree);
        return judged;
    }
    const Evidence evidence = refine(judged.trafo);
    judged.ellipsoid = flt_.GetEllipsoid().Transformed(judged.trafo);
    judged.explained = evidence.overlap * evidence.agreement;
    if (weigh(evidence, judged)) grade(judged);
    return judged;
}

double PoseJudge::EstimateExplained(const VoAlgo::CTrafo& pose) const
{
    const Evidence evidence = pair_.Measure(pose, CoarseStride);
    return evidence.overlap * evidence.agreement;
}

std::uint32_t PoseJudge::MinClusterSize() const
{
    return pair_.KnowsEmptySpace() ? 1 : limits_.minClusterSize;
}

AcceptanceTest PoseJudge::AgreementTest(const CFPFHPreRegistration::VerifiedTrafo& found) const
{
    return Compared(ETest::AgreeingProposals, EStage::Search, found.clusterSize, MinClusterSize());
}

Evidence PoseJudge::refine(VoAlgo::CTrafo& pose) const
{
    const unsigned iterations = limits_.icp.uiMaxNumIterations;
    pose = pair_.Refine(pose, 3.0, std::min(CoarseIterations, iterations), CoarseStride);
    const Evidence evidence = pair_.Measure(pose, CoarseStride);
    if (evidence.agreement < limits_.minAgreement - Hopeless) return evidence;
    pose = pair_.Refine(pose, 1.5, iterations, 1);
    return pair_.Measure(pose, 1);
}

bool PoseJudge::weigh(const Evidence& evidence, JudgedTrafo& judged) const
{
    struct Criterion {
        ETest test;
        double value;
        double limit;
        ERefusal otherwise;
    };
    const Criterion criteria[] = {
        {ETest::SurfaceOverlap, evidence.overlap, limits_.minOverlap, ERefusal::SharedSurfaceTooSmall},
        {ETest::SurfaceAgreement, evidence.agreement, limits_.minAgreement, ERefusal::SurfacesDisagree},
        {ETest::Misfit, evidence.misfit, limits_.maxMisfit, ERefusal::MisfitTooLarge},
        {ETest::SeenEmpty, evidence.seenEmpty, limits_.maxSeenEmpty, ERefusal::SeenEmpty},
        {ETest::Stability, evidence.stability, limits_.minStability, ERefusal::NotStable},
        {ETest::BeyondFlatFaces, evidence.beyondFaces, limits_.minBeyondFaces, ERefusal::FewFlatFaces},
    };
    for (const Criterion& c : criteria) {
        if (c.test == ETest::SeenEmpty && !pair_.KnowsEmptySpace()) continue;
        judged.tests.push_back(Compared(c.test, EStage::Verification, c.value, c.limit));
        if (judged.tests.back().outcome == EOutcome::Failed && !judged.objection)
            judged.objection = Refusal(c.otherwise);
    }
    return !judged.objection;
}

void PoseJudge::grade(JudgedTrafo& judged) const
{
    const VoAlgo::CTrafo pose = judged.trafo;
    ConfigurationICP icp = limits_.icp;
    icp.uiMaxNumIterations = 0; // the pose is final
    const ICPResult graded = fix_.ComputeICPRegistration(icp, flt_, pose);
    const std::vector<AcceptanceTest> tests = TestsOf(graded, icp, EStage::Grading);
    judged.tests.insert(judged.tests.end(), tests.begin(), tests.end());
    if (graded.resultType != 0) judged.objection = Refusal(RefusalOf(graded.resultType));
    if (graded.resultType != 0 && graded.resultType <= 5) return; // without figures of this pose
    const std::int32_t iterations = judged.iStop_Iterations;      // of the search's refinement
    static_cast<ICPResult&>(judged) = graded;
    judged.trafo = pose;
    judged.iStop_Iterations = iterations;
}

} // namespace prereg::detail
