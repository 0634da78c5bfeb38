// The search for a pose that may be trusted, in steps:
//   1. the driver tries a batch of polygons, large and small ones in turn, and clusters the poses that its refinements
//      accept;
//   2. the clusters' best poses, those that explain most first, are refined and judged by the evidence, a few a batch;
//   3. the search ends when a pose has passed and so many proposals agree on it that a symmetric object would have
//      shown its other poses, or when it is the best of many polygons;
//   4. symmetries that either scan may have are tried on the best pose;
//   5. the best pose is handed out unless a clearly different one explains nearly as much of the scans (a rival).
#include "verdict/detail_search.h"

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "verdict/detail_posejudge.h"
#include "verdict/detail_symmetry.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace prereg::detail {
namespace {

using VerifiedTrafo = CFPFHPreRegistration::VerifiedTrafo;

constexpr std::uint32_t BatchSize = 50; // polygons of a step
constexpr std::uint32_t ManyPolygons = 500;
// Large polygons determine the pose better; small ones fit into a small overlap.
constexpr double SmallPolygon = 0.5;
constexpr std::size_t JudgedPerBatch = 2;
constexpr std::size_t JudgedAtTheEnd = 12;
// By the time this many proposals agree on one pose, a symmetric object has shown its other poses, too.
constexpr std::uint32_t Agreement = 8;
// A clearly different pose that explains more than this share of what the best one explains makes the answer ambiguous.
constexpr double AlikeShare = 0.9;
// A pose that a symmetry suggests explains at least this share of what the best one does before it is refined.
constexpr double WorthRefining = 0.3;

/// How much of flt a pose of the search explains: small/big ratio × overlap.
float FoundShare(const ICPResult& result)
{
    return result.fStop_SmallBigRatio * result.fStop_OverlapRatio;
}

void SortByExplained(std::vector<JudgedTrafo>& results)
{
    std::stable_sort(results.begin(), results.end(),
                     [](const JudgedTrafo& a, const JudgedTrafo& b) { return a.explained > b.explained; });
}

/// Tests the overlap area again if it has a limit: the verification has moved the pose that the driver tested.
void JudgeArea(JudgedTrafo& judged, const CFPFHPreRegistration& driver)
{
    const ConfigurationICP& icp = driver.GetMatchingConfig().icpConfig;
    if (judged.objection || !(icp.dMinOverlapArea > 0.0)) return;
    judged.fStop_OverlapArea = driver.EstimateOverlapArea(judged.trafo);
    judged.tests.push_back(AreaTest(judged, icp, EStage::Grading));
    if (judged.tests.back().outcome == EOutcome::Failed) judged.objection = Refusal(ERefusal::OverlapTooSmall);
}

/// Whether only the shape of its own overlap speaks against a pose.
bool IsRefusedForStabilityAlone(const JudgedTrafo& judged)
{
    return judged.objection.code == ERefusal::NotStable;
}

class CPoseSearch {
public:
    CPoseSearch(const SearchInput& input, const RegistrationOptions& options, const RegistrationSettings& settings)
        : settings_(settings), options_(options), fix_(*input.fix.set), flt_(*input.flt.set),
          driver_(input.fix.set, input.flt.set, settings.config),
          judge_(fix_, flt_, input.fix.view, input.flt.view, settings)
    {
        driver_.SetNumThreads(options.threads);
        driver_.GetMatchingConfig().uiNumPolygons = BatchSize;
        driver_.GetMatchingConfig().uiTrafoClusteringQuorum = 0; // the first pose may be wrong: search on
    }

    void Run(Registration& registration)
    {
        const std::uint32_t numPolygons = tooFewFeatures() ? 0 : settings_.config.uiNumPolygons;
        std::uint32_t done = 0;
        VoAlgo::CProgressPart progress(options_.progress);
        bool isCancelled = !progress.Begin("search", numPolygons, BatchSize);
        while (!isCancelled && done < numPolygons && !isEnough(done)) {
            searchBatch(done / BatchSize);
            done += BatchSize;
            judgeBest(JudgedPerBatch);
            isCancelled = !progress.Advance(BatchSize);
        }
        if (accepted_.empty() && !isCancelled) judgeBest(JudgedAtTheEnd);
        if (!isCancelled) judgeRivals();
        SortByExplained(accepted_);
        for (JudgedTrafo& result : accepted_) result.fStop_OverlapArea = driver_.EstimateOverlapArea(result.trafo);
        registration.refusal = isCancelled ? Refusal(ERefusal::Cancelled) : decide();
        registration.results = std::move(accepted_);
        registration.refused = refusedPoses(!registration.results.empty());
        driver_.GetMatchingConfig().uiNumPolygons = settings_.config.uiNumPolygons; // what the statistics repeat
        registration.statistics = driver_.GetStatistics();
        if (!isCancelled) progress.Finish();
    }

private:
    [[nodiscard]] Refusal tooFewFeatures() const
    {
        if (fix_.IsTooLean(settings_.config)) return Refusal(ERefusal::TooFewFeaturesInFix);
        if (flt_.IsTooLean(settings_.config)) return Refusal(ERefusal::TooFewFeaturesInFlt);
        return {};
    }

    /// Every other batch tries small polygons, unless polygons have no limit.
    void searchBatch(std::uint32_t batch)
    {
        const double diameter = settings_.config.dMaxPolygonDiameter;
        const bool isSmall = diameter > 0.0 && batch % 2 == 1;
        driver_.GetMatchingConfig().dMaxPolygonDiameter = isSmall ? SmallPolygon * diameter : diameter;
        driver_.Compute();
    }

    [[nodiscard]] bool isEnough(std::uint32_t numPolygons) const
    {
        if (accepted_.empty() || settings_.config.uiTrafoClusteringQuorum == 0) return false;
        const auto agrees = [](const JudgedTrafo& pose) { return pose.clusterSize >= Agreement; };
        return numPolygons >= ManyPolygons || std::any_of(accepted_.begin(), accepted_.end(), agrees);
    }

    /// Judges the poses that explain most and have not been judged, at most `count`, and counts for all judged ones how
    /// many proposals agree by now.
    void judgeBest(std::size_t count)
    {
        std::vector<VerifiedTrafo> candidates = driver_.GetVerifiedTrafos();
        std::stable_sort(candidates.begin(), candidates.end(),
                         [](const auto& a, const auto& b) { return FoundShare(a) > FoundShare(b); });
        for (JudgedTrafo& pose : accepted_) pose.clusterSize = 0;
        for (const VerifiedTrafo& candidate : candidates) {
            if (JudgedTrafo* same = find(accepted_, candidate.trafo)) {
                same->clusterSize += candidate.clusterSize;
            } else if (count > 0 && candidate.clusterSize >= judge_.MinClusterSize() && !isJudged(candidate)) {
                judge(candidate);
                --count;
            }
        }
        for (JudgedTrafo& pose : accepted_) pose.clusterSize = std::max(pose.clusterSize, 1U);
    }

    void judge(const VerifiedTrafo& candidate)
    {
        judgedAsFound_.push_back(candidate.trafo);
        JudgedTrafo judged = judge_.Judge(candidate);
        JudgeArea(judged, driver_);
        std::vector<JudgedTrafo>& poses = judged.objection ? refused_ : accepted_;
        if (JudgedTrafo* same = find(poses, judged.trafo)) {
            if (judged.objection) return;
            same->clusterSize += judged.clusterSize;
        } else {
            poses.push_back(std::move(judged));
        }
    }

    [[nodiscard]] bool isJudged(const VerifiedTrafo& candidate) const
    {
        return std::find(judgedAsFound_.begin(), judgedAsFound_.end(), candidate.trafo) != judgedAsFound_.end();
    }

    /// The first of the poses that clustering would put together with `pose`; null when there is none.
    JudgedTrafo* find(std::vector<JudgedTrafo>& poses, const VoAlgo::CTrafo& pose) const
    {
        const auto found = std::find_if(poses.begin(), poses.end(),
                                        [&](const JudgedTrafo& other) { return isSamePose(other.trafo, pose); });
        return found == poses.end() ? nullptr : &*found;
    }

    /// Whether clustering would put two poses together.
    [[nodiscard]] bool isSamePose(const VoAlgo::CTrafo& a, const VoAlgo::CTrafo& b) const
    {
        const auto [low, high] = flt_.GetAABB();
        const kdtree::Vector<3> centre = (low + high) * 0.5F;
        const double angle = settings_.config.dOrientationClusteringBandwidth;
        return static_cast<double>((a * centre - b * centre).Norm()) <= settings_.config.dTrafoClusteringBandwidth &&
               (angle <= 0.0 || static_cast<double>(a.GetRotationDistance(b)) <= angle);
    }

    /// Judges what the search found to explain about as much as the best accepted pose, however often it was found.
    void judgeRivals()
    {
        if (accepted_.empty()) return;
        SortByExplained(accepted_);
        for (const VerifiedTrafo& other : driver_.GetVerifiedTrafos())
            if (static_cast<double>(FoundShare(other)) > AlikeShare * static_cast<double>(FoundShare(accepted_[0])) &&
                other.clusterSize >= judge_.MinClusterSize() && find(accepted_, other.trafo) == nullptr &&
                !isJudged(other))
                judge(other);
        judgeSymmetricPoses(accepted_[0]);
    }

    /// Judges what a symmetry of either scan makes of the best pose: the search may have met one of the equals only.
    void judgeSymmetricPoses(const JudgedTrafo best) // NOLINT(performance-unnecessary-value-param): of accepted_
    {
        std::vector<VoAlgo::CTrafo> poses;
        for (const VoAlgo::CTrafo& symmetry : LikelySymmetries(flt_)) poses.push_back(best.trafo * symmetry);
        for (const VoAlgo::CTrafo& symmetry : LikelySymmetries(fix_)) poses.push_back(symmetry * best.trafo);
        for (const VoAlgo::CTrafo& pose : poses) {
            if (find(accepted_, pose) != nullptr || find(refused_, pose) != nullptr) continue;
            if (judge_.EstimateExplained(pose) < WorthRefining * best.explained) continue;
            VerifiedTrafo candidate = best;
            candidate.trafo = pose;
            JudgedTrafo judged = judge_.Judge(candidate);
            if (judged.objection && !IsRefusedForStabilityAlone(judged)) continue;
            if (find(accepted_, judged.trafo) == nullptr && find(refused_, judged.trafo) == nullptr)
                (judged.objection ? refused_ : accepted_).push_back(std::move(judged));
        }
    }

    /// The clearly different pose that explains most, whether or not its shape alone would determine it; null when
    /// there is none.
    [[nodiscard]] const JudgedTrafo* runnerUp() const
    {
        const JudgedTrafo* best = nullptr;
        const auto consider = [&](const JudgedTrafo& other) {
            if (best == nullptr || other.explained > best->explained) best = &other;
        };
        for (std::size_t i = 1; i < accepted_.size(); ++i) consider(accepted_[i]);
        for (const JudgedTrafo& other : refused_)
            if (IsRefusedForStabilityAlone(other) && !isSamePose(other.trafo, accepted_[0].trafo)) consider(other);
        return best;
    }

    /// The poses that the verification refused and, when none passed it, those that too few proposals led to.
    [[nodiscard]] std::vector<JudgedTrafo> refusedPoses(bool isFound) const
    {
        std::vector<JudgedTrafo> refused = refused_;
        SortByExplained(refused);
        if (isFound) return refused;
        for (const VerifiedTrafo& result : driver_.GetVerifiedTrafos())
            if (result.clusterSize < judge_.MinClusterSize()) refused.push_back(judge_.Judge(result));
        return refused;
    }

    [[nodiscard]] Refusal decide()
    {
        if (Refusal lean = tooFewFeatures()) return lean;
        if (!accepted_.empty()) {
            const JudgedTrafo* second = runnerUp();
            const double share = second != nullptr ? second->explained / accepted_[0].explained : 0.0;
            accepted_[0].tests.push_back(Compared(ETest::RunnerUp, EStage::AllResults, share, AlikeShare));
            const bool isAmbiguous = accepted_[0].tests.back().outcome == EOutcome::Failed;
            return isAmbiguous ? Refusal(ERefusal::Ambiguous) : Refusal();
        }
        const std::vector<JudgedTrafo> refused = refusedPoses(false);
        if (refused.empty()) return Refusal(ERefusal::NoPoseAccepted);
        return {refused[0].objection.code,
                "no accepted pose passed the verification; the best one: " + refused[0].objection.text};
    }

    const RegistrationSettings& settings_;
    const RegistrationOptions& options_;
    const CFPFHPointSet& fix_;
    const CFPFHPointSet& flt_;
    CFPFHPreRegistration driver_;
    PoseJudge judge_;
    std::vector<VoAlgo::CTrafo> judgedAsFound_; // poses that were judged, as the search found them
    std::vector<JudgedTrafo> accepted_;         // refined and judged, each pose once
    std::vector<JudgedTrafo> refused_;          // the same
};

} // namespace

void SearchPoses(const SearchInput& input, const RegistrationOptions& options, Registration& registration)
{
    CPoseSearch(input, options, registration.settings).Run(registration);
}

void RefinePose(const SearchInput& input, const RegistrationOptions& options, Registration& registration)
{
    const RegistrationSettings& settings = registration.settings;
    CFPFHPreRegistration driver(input.fix.set, input.flt.set, settings.config);
    const VerifiedTrafo found(driver.InjectTrafo(*options.start), 1);
    registration.statistics = driver.GetStatistics();
    JudgedTrafo judged(found);
    if (found.resultType == 0) {
        RegistrationSettings forOne = settings;
        forOne.verification.minClusterSize = 1;
        forOne.verification.minBeyondFaces = 0.0; // the given pose says which corner it is
        judged = PoseJudge(*input.fix.set, *input.flt.set, input.fix.view, input.flt.view, forOne).Judge(found);
        JudgeArea(judged, driver);
    } else {
        judged.objection = input.fix.set->IsTooLean(settings.config)   ? Refusal(ERefusal::TooFewFeaturesInFix)
                           : input.flt.set->IsTooLean(settings.config) ? Refusal(ERefusal::TooFewFeaturesInFlt)
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
