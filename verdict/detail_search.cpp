// The search for a pose that may be trusted, in steps:
//   1. the driver tries a batch of polygons and clusters the poses that its refinements accept;
//   2. once a quorum of proposals agrees on the best pose, the clusters' poses are verified from both sides;
//   3. the search ends when a verified pose suffices: its overlap is large, or it is the best of many polygons;
//   4. the best verified pose is handed out unless a clearly different one explains nearly as much of flt (a rival).
#include "verdict/detail_search.h"

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace prereg::detail {
namespace {

using VerifiedTrafo = CFPFHPreRegistration::VerifiedTrafo;
using PointSetPtr = std::shared_ptr<const CFPFHPointSet>;

constexpr std::uint32_t BatchSize = 50; // polygons of a step
constexpr std::uint32_t ManyPolygons = 500;
// By the time this many proposals agree on one pose, a symmetric object has shown its other poses, too.
constexpr std::uint32_t Agreement = 8;
// Two scans can share a small part by chance: a pose with less overlap must stay the best of many polygons.
constexpr float SmallOverlap = 0.4F;
// A clearly different pose that explains more than this share of what the best one explains makes the answer ambiguous.
constexpr float AlikeShare = 0.9F;

/// How much of flt a pose explains: small/big ratio × overlap.
float ExplainedShare(const ICPResult& result)
{
    return result.fStop_SmallBigRatio * result.fStop_OverlapRatio;
}

void SortByExplainedShare(std::vector<JudgedTrafo>& results)
{
    std::stable_sort(results.begin(), results.end(),
                     [](const JudgedTrafo& a, const JudgedTrafo& b) { return ExplainedShare(a) > ExplainedShare(b); });
}

/// Tests the overlap area again if it has a limit: the verification has moved the pose that the driver tested.
void JudgeArea(JudgedTrafo& judged, const CFPFHPreRegistration& driver)
{
    const ConfigurationICP& icp = driver.GetMatchingConfig().icpConfig;
    if (judged.objection || !(icp.dMinOverlapArea > 0.0)) return;
    judged.fStop_OverlapArea = driver.EstimateOverlapArea(judged.trafo);
    judged.tests.push_back(AreaTest(judged, icp, EStage::BothSides));
    if (judged.tests.back().outcome == EOutcome::Failed) judged.objection = Refusal(ERefusal::OverlapTooSmall);
}

class CPoseSearch {
public:
    CPoseSearch(PointSetPtr fix, PointSetPtr flt, const RegistrationOptions& options,
                const RegistrationSettings& settings)
        : settings_(settings), options_(options), fix_(std::move(fix)), flt_(std::move(flt)),
          driver_(fix_, flt_, settings.config)
    {
        driver_.GetMatchingConfig().uiNumPolygons = BatchSize;
    }

    void Run(Registration& registration)
    {
        const std::uint32_t quorum = settings_.config.uiTrafoClusteringQuorum;
        const std::uint32_t numPolygons = tooFewFeatures() ? 0 : settings_.config.uiNumPolygons;
        std::uint32_t done = 0;
        bool isCancelled = false;
        while (done < numPolygons) {
            isCancelled = !report(static_cast<double>(done) / numPolygons);
            if (isCancelled) break;
            driver_.Compute();
            done += BatchSize;
            if (quorum == 0 || driver_.GetBestClusterSize() < quorum) continue;
            driver_.GetMatchingConfig().uiTrafoClusteringQuorum = 0; // the first pose may be wrong: search on
            if (driver_.GetBestClusterSize() < Agreement && done < ManyPolygons) continue;
            registration.results = takeConfirmed(quorum);
            if (isEnough(registration.results, done)) break;
        }
        if (done >= numPolygons && !isCancelled)
            registration.results = takeConfirmed(settings_.verification.minClusterSize);
        registration.refused = refusedPoses(!registration.results.empty());
        for (JudgedTrafo& result : registration.results)
            result.fStop_OverlapArea = driver_.EstimateOverlapArea(result.trafo);
        registration.refusal = isCancelled ? Refusal(ERefusal::Cancelled) : decide(registration.results);
        driver_.GetMatchingConfig().uiNumPolygons = settings_.config.uiNumPolygons;
        registration.statistics = driver_.GetStatistics();
        if (!isCancelled) report(1.0);
    }

private:
    bool report(double share) const { return !options_.progress || options_.progress("search", share); }

    [[nodiscard]] Refusal tooFewFeatures() const
    {
        if (fix_->IsTooLean(settings_.config)) return Refusal(ERefusal::TooFewFeaturesInFix);
        if (flt_->IsTooLean(settings_.config)) return Refusal(ERefusal::TooFewFeaturesInFlt);
        return {};
    }

    static bool isEnough(const std::vector<JudgedTrafo>& results, std::uint32_t numPolygons)
    {
        return !results.empty() && (results[0].fStop_OverlapRatio >= SmallOverlap || numPolygons >= ManyPolygons);
    }

    /// The poses that at least `minClusterSize` proposals led to and that pass the verification, best first.
    std::vector<JudgedTrafo> takeConfirmed(std::uint32_t minClusterSize)
    {
        std::vector<JudgedTrafo> confirmed;
        unsupported_.clear();
        for (const VerifiedTrafo& result : driver_.GetVerifiedTrafos()) {
            if (result.clusterSize < minClusterSize) {
                if (!lastObjection_) lastObjection_ = Refusal(ERefusal::TooFewProposalsAgree);
                unsupported_.push_back(result);
                continue;
            }
            if (std::find(refusedAsFound_.begin(), refusedAsFound_.end(), result.trafo) != refusedAsFound_.end())
                continue;
            JudgedTrafo judged = Verify(*fix_, *flt_, settings_.verification, result);
            judged.tests.insert(judged.tests.begin(), agreementTest(result, minClusterSize));
            JudgeArea(judged, driver_);
            if (judged.objection) {
                refusedAsFound_.push_back(result.trafo);
                lastObjection_ = judged.objection;
                refusedAsVerified_.push_back(std::move(judged));
                continue;
            }
            const auto isSame = [&](const JudgedTrafo& other) { return isSamePose(other.trafo, judged.trafo); };
            if (std::none_of(confirmed.begin(), confirmed.end(), isSame)) confirmed.push_back(std::move(judged));
        }
        SortByExplainedShare(confirmed);
        return confirmed;
    }

    /// Whether clustering would put two poses together.
    [[nodiscard]] bool isSamePose(const VoAlgo::CTrafo& a, const VoAlgo::CTrafo& b) const
    {
        const auto [low, high] = flt_->GetAABB();
        const kdtree::Vector<3> centre = (low + high) * 0.5F;
        const double angle = settings_.config.dOrientationClusteringBandwidth;
        return static_cast<double>((a * centre - b * centre).Norm()) <= settings_.config.dTrafoClusteringBandwidth &&
               (angle <= 0.0 || static_cast<double>(a.GetRotationDistance(b)) <= angle);
    }

    /// Before all polygons are tried, the quorum is asked for.
    [[nodiscard]] AcceptanceTest agreementTest(const VerifiedTrafo& result, std::uint32_t minClusterSize) const
    {
        AcceptanceTest test = Compared(ETest::AgreeingProposals, EStage::Search, result.clusterSize, minClusterSize);
        test.isLimitRaised = minClusterSize > settings_.verification.minClusterSize;
        return test;
    }

    /// A clearly different pose that fits about as well as the best result, whether or not it could be handed out
    /// itself.
    [[nodiscard]] std::optional<VerifiedTrafo> rivalOf(const VerifiedTrafo& best) const
    {
        const auto isRival = [&](const VerifiedTrafo& other) {
            return ExplainedShare(other) > AlikeShare * ExplainedShare(best) && !isSamePose(other.trafo, best.trafo);
        };
        for (const VerifiedTrafo& other : driver_.GetVerifiedTrafos()) {
            if (!isRival(other)) continue;
            const JudgedTrafo judged = VerifyFit(*fix_, *flt_, settings_.verification, other);
            if (!judged.objection && isRival(judged)) return judged;
        }
        return std::nullopt;
    }

    /// Adds the test of the best result against its runner-up; returns whether that is a rival.
    [[nodiscard]] bool hasRival(std::vector<JudgedTrafo>& results) const
    {
        JudgedTrafo& best = results[0];
        std::optional<VerifiedTrafo> runnerUp = rivalOf(best);
        const bool isAmbiguous = runnerUp.has_value();
        if (!runnerUp && results.size() > 1) runnerUp = results[1];
        const double share = runnerUp ? static_cast<double>(ExplainedShare(*runnerUp) / ExplainedShare(best)) : 0.0;
        AcceptanceTest test = Compared(ETest::RunnerUp, EStage::AllResults, share, static_cast<double>(AlikeShare));
        test.outcome = isAmbiguous ? EOutcome::Failed : EOutcome::Passed;
        best.tests.push_back(test);
        return isAmbiguous;
    }

    /// The poses that the verification refused and, when none passed it, those that too few proposals led to.
    [[nodiscard]] std::vector<JudgedTrafo> refusedPoses(bool isFound) const
    {
        std::vector<JudgedTrafo> refused = refusedAsVerified_;
        SortByExplainedShare(refused);
        if (isFound) return refused;
        std::vector<JudgedTrafo> unsupported;
        for (const VerifiedTrafo& result : unsupported_) {
            JudgedTrafo& judged = unsupported.emplace_back(result, Refusal(ERefusal::TooFewProposalsAgree));
            judged.tests = TestsOf(result, settings_.config.icpConfig, EStage::Search);
            judged.tests.insert(judged.tests.begin(), agreementTest(result, settings_.verification.minClusterSize));
        }
        SortByExplainedShare(unsupported);
        refused.insert(refused.end(), unsupported.begin(), unsupported.end());
        return refused;
    }

    [[nodiscard]] Refusal decide(std::vector<JudgedTrafo>& results) const
    {
        if (Refusal lean = tooFewFeatures()) return lean;
        if (!results.empty()) return hasRival(results) ? Refusal(ERefusal::Ambiguous) : Refusal();
        if (!lastObjection_) return Refusal(ERefusal::NoPoseAccepted);
        return {lastObjection_.code,
                "no accepted pose passed the verification; the last objection: " + lastObjection_.text};
    }

    const RegistrationSettings& settings_;
    const RegistrationOptions& options_;
    PointSetPtr fix_;
    PointSetPtr flt_;
    CFPFHPreRegistration driver_;
    std::vector<VoAlgo::CTrafo> refusedAsFound_; // poses that the verification refused, as the search found them
    std::vector<JudgedTrafo> refusedAsVerified_; // the same, refined and judged
    std::vector<VerifiedTrafo> unsupported_;     // poses that too few proposals led to
    Refusal lastObjection_;
};

} // namespace

void SearchPoses(const PointSetPtr& fix, const PointSetPtr& flt, const RegistrationOptions& options,
                 Registration& registration)
{
    CPoseSearch(fix, flt, options, registration.settings).Run(registration);
}

void RefinePose(const PointSetPtr& fix, const PointSetPtr& flt, const RegistrationOptions& options,
                Registration& registration)
{
    const RegistrationSettings& settings = registration.settings;
    CFPFHPreRegistration driver(fix, flt, settings.config);
    const VerifiedTrafo found(driver.InjectTrafo(*options.start), 1);
    registration.statistics = driver.GetStatistics();
    JudgedTrafo judged(found);
    if (found.resultType == 0) {
        judged = Verify(*fix, *flt, settings.verification, found);
        JudgeArea(judged, driver);
    } else {
        judged.objection = fix->IsTooLean(settings.config)   ? Refusal(ERefusal::TooFewFeaturesInFix)
                           : flt->IsTooLean(settings.config) ? Refusal(ERefusal::TooFewFeaturesInFlt)
                                                             : Refusal(RefusalOf(found.resultType));
        judged.tests = TestsOf(found, settings.config.icpConfig, EStage::Search);
        if (static_cast<EICPResultType>(found.resultType) <= EICPResultType::TooFewInliersInitially)
            judged.trafo = *options.start; // such a result has no pose
    }
    if (!judged.objection) judged.fStop_OverlapArea = driver.EstimateOverlapArea(judged.trafo);
    registration.refusal = judged.objection;
    (judged.objection ? registration.refused : registration.results).push_back(std::move(judged));
}

} // namespace prereg::detail
