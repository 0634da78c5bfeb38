// Pre-registration without a starting pose:
// 1. Cluster the features of 'flt' (unless polygons are confined to a diameter).
// 2. Seed a random polygon of feature points in 'flt' and match it into 'fix': a proposal (CFPFHPolygon).
// 3. Refine and verify every distinct proposal once by ICP.
// 4. Group the accepted poses by mean shift (K. Fukunaga, L. Hostetler, IEEE Trans. Information Theory 21 (1975)
//    32-40): first by where they put the centre of 'flt', then by orientation. The best of each group is a result.
// 5. Stop once the best result's group reaches the quorum.
// Matching features by FPFH: R. B. Rusu, N. Blodow, M. Beetz, ICRA 2009.
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"

#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/clustering/cmeanshiftclusterer3d.h"
#include "VoAlgorithms/prereg/eicpresulttype.h"
#include "platform/channels.h"
#include "platform/log.h"
#include "platform/randomseed.h"
#include "platform/simd.h"
#include "platform/tasks.h"
#include "prereg/cfpfhpolygon.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <unordered_set>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;
using VoAlgo::CTrafo;

// The local area estimate looks this many position tolerances around a point.
constexpr double AreaRadiusScaling = 2.0;

const CFPFHPointSet& OrEmpty(const std::shared_ptr<const CFPFHPointSet>& set)
{
    static const CFPFHPointSet empty;
    return set ? *set : empty;
}

/// A shared pointer that does not own.
std::shared_ptr<const CFPFHPointSet> Refer(const CFPFHPointSet& set)
{
    return {&set, [](const CFPFHPointSet*) {}};
}

std::array<float, 4> UnitQuaternion(const CTrafo& trafo)
{
    const VoAlgo::Quaternion q = trafo.GetQuaternion();
    return {static_cast<float>(q.w), static_cast<float>(q.x), static_cast<float>(q.y), static_cast<float>(q.z)};
}

/// Squared angle between two rotations, rad². Means of quaternions are not of unit length, so both are normalised.
float SquaredRotationAngle(std::size_t /*d*/, const float* a, const float* b)
{
    const float dot = a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
    const float normSqA = a[0] * a[0] + a[1] * a[1] + a[2] * a[2] + a[3] * a[3];
    const float normSqB = b[0] * b[0] + b[1] * b[1] + b[2] * b[2] + b[3] * b[3];
    const float angle = 2.0F * std::acos(std::min(1.0F, std::fabs(dot) / std::sqrt(normSqA * normSqB)));
    return angle * angle;
}

} // namespace

CFPFHPreRegistration::CFPFHPreRegistration() : CFPFHPreRegistration(CFPFHPointSet(), CFPFHPointSet(), {}, true) {}

CFPFHPreRegistration::CFPFHPreRegistration(const CFPFHPointSet& fix, const CFPFHPointSet& flt,
                                           const ConfigurationFPFH& config, bool copy)
    : CFPFHPreRegistration(copy ? std::make_shared<const CFPFHPointSet>(fix) : Refer(fix),
                           copy ? std::make_shared<const CFPFHPointSet>(flt) : Refer(flt), config)
{
}

CFPFHPreRegistration::CFPFHPreRegistration(std::shared_ptr<const CFPFHPointSet> fix,
                                           std::shared_ptr<const CFPFHPointSet> flt, const ConfigurationFPFH& config)
    : fix_(std::move(fix)), flt_(std::move(flt)), config_(config), engine_(VoAlgo::RandomSeed)
{
}

const CFPFHPointSet& CFPFHPreRegistration::GetFixPointSet() const
{
    return OrEmpty(fix_);
}
const CFPFHPointSet& CFPFHPreRegistration::GetFltPointSet() const
{
    return OrEmpty(flt_);
}

bool CFPFHPreRegistration::isTooLean() const
{
    return !fix_ || fix_->IsTooLean(config_) || !flt_ || flt_->IsTooLean(config_);
}

bool CFPFHPreRegistration::Compute()
{
    constexpr const char* Function = "prereg::CFPFHPreRegistration::Compute";
    if (!fix_ || fix_->IsTooLean(config_)) {
        VOALGO_LOG(channels::Features(), Warn, Function, L"too few features in point set 'fix'");
        return false;
    }
    if (!flt_ || flt_->IsTooLean(config_)) {
        VOALGO_LOG(channels::Features(), Warn, Function, L"too few features in point set 'flt'");
        return false;
    }
    if (config_.dMaxPolygonDiameter < 0.0) clusters_ = CFPFHClusterAnalysis(*flt_, config_);

    bool hasClustered = false;
    for (std::uint32_t i = 0; i < config_.uiNumPolygons; ++i) {
        const CFPFHPolygon polygon(engine_, *flt_, clusters_, config_, -1.0);
        if (!polygon.IsSeeded()) {
            VOALGO_LOG(channels::Features(), Warn, Function,
                       L"seeding of polygon in 'flt' failed (probably too sparse)");
            continue;
        }
        const CTrafo proposal = CFPFHPolygon::ComputePreRegistration(polygon, *fix_, *flt_, config_);
        if (!proposal) continue;
        proposals_.push_back(proposal);
        const std::uint32_t quorum = config_.uiTrafoClusteringQuorum;
        if (quorum == 0 || proposals_.size() < quorum) continue;
        clusterTransformations();
        hasClustered = true;
        if (results_.empty() || results_.front().clusterSize < quorum) continue;
        VOALGO_LOG(channels::Features(), Trace, Function,
                   L"aborting search: top cluster size (%u) reached quorum (%u) after looking at %u polygons",
                   results_.front().clusterSize, quorum, i + 1);
        break;
    }
    if (!hasClustered) clusterTransformations();
    return !results_.empty();
}

void CFPFHPreRegistration::SetNumThreads(unsigned threads)
{
    threads_ = VoAlgo::tasks::NumThreads(threads);
}

/// Refines each distinct proposal that is new. A refinement draws from an engine of its own, so that the outcome does
/// not depend on the thread or the order.
void CFPFHPreRegistration::verifyProposals()
{
    std::vector<CTrafo> pending;
    std::unordered_set<CTrafo, TrafoHash, TrafoEqual> seen;
    for (std::size_t i = numExamined_; i < proposals_.size(); ++i)
        if (!verified_.contains(proposals_[i]) && seen.insert(proposals_[i]).second) pending.push_back(proposals_[i]);
    std::vector<ICPResult> outcomes(pending.size());
    VoAlgo::tasks::ForRanges(pending.size(), threads_, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) outcomes[i] = refine(pending[i], nullptr);
    });
    for (std::size_t i = 0; i < pending.size(); ++i) verified_.emplace(pending[i], outcomes[i]);
}

/// ICP, followed by the driver's own test of the overlap area.
ICPResult CFPFHPreRegistration::refine(const CTrafo& start, const CTrafo* reference) const
{
    ICPResult result = fix_->ComputeICPRegistration(config_.icpConfig, *flt_, start, reference);
    if (result.resultType != 0 || !(config_.icpConfig.dMinOverlapArea > 0.0)) return result;
    result.fStop_OverlapArea = EstimateOverlapArea(result.trafo);
    if (static_cast<double>(result.fStop_OverlapArea) < config_.icpConfig.dMinOverlapArea)
        result.resultType = static_cast<std::int32_t>(EICPResultType::OverlapTooSmall);
    return result;
}

/// The figures of a pose as it stands.
ICPResult CFPFHPreRegistration::evaluate(const CTrafo& pose) const
{
    ConfigurationICP asItStands = config_.icpConfig;
    asItStands.uiMaxNumIterations = 0;
    asItStands.dMinSmallBigRatio = 0.0; // no test before the overlap is measured
    return fix_->ComputeICPRegistration(asItStands, *flt_, pose);
}

float CFPFHPreRegistration::EstimateOverlapArea(const CTrafo& pose) const
{
    const double tolerance = config_.icpConfig.dPositionTolerance;
    return GetFixPointSet().EstimateOverlapArea(GetFltPointSet(), pose, static_cast<float>(tolerance),
                                                static_cast<float>(AreaRadiusScaling * tolerance),
                                                std::numeric_limits<float>::max());
}

/// Areas are costly and take no part in the order: only results that are handed out get one. A result restored from a
/// document has lost its type (−1); it was accepted where it was found.
void CFPFHPreRegistration::fillOverlapArea(ICPResult& result) const
{
    const bool isAccepted = result.resultType == 0 || result.resultType == -1;
    if (isAccepted && result.fStop_OverlapArea < 0.0F) result.fStop_OverlapArea = EstimateOverlapArea(result.trafo);
}

void CFPFHPreRegistration::pushResult(const ICPResult& result, std::size_t clusterSize)
{
    results_.emplace_back(result, static_cast<std::uint32_t>(clusterSize));
    std::push_heap(results_.begin(), results_.end(), std::greater<>());
}

void CFPFHPreRegistration::clusterTransformations()
{
    verifyProposals();
    for (; numExamined_ < proposals_.size(); ++numExamined_) {
        const ICPResult& outcome = verified_.at(proposals_[numExamined_]);
        if (outcome.resultType == 0) accepted_.push_back(outcome);
    }
    if (accepted_.empty()) return;
    results_.clear();
    if (accepted_.size() == 1) return pushResult(accepted_.front(), 1);

    bool failed = false;
    const std::vector<Group> clusters = groupByPosition(failed);
    if (failed) {
        VOALGO_LOG(channels::Features(), Warn, "prereg::CFPFHPreRegistration::clusterTransformations",
                   L"(position) clustering failed!");
        for (const ICPResult& accepted : accepted_) pushResult(accepted, 1);
        return;
    }
    for (std::size_t k = 0; k < clusters.size(); ++k) {
        for (const Group& group : splitByOrientation(k, clusters[k])) {
            std::size_t best = group.front();
            for (const std::size_t member : group)
                if (accepted_[member] < accepted_[best]) best = member;
            pushResult(accepted_[best], group.size());
        }
    }
}

/// Groups of accepted poses by where they put the centre of 'flt'. Poses without a cluster follow as groups of one:
/// their searches for a mode did not end, because of a tiny bandwidth or of the rounding far from the origin.
std::vector<CFPFHPreRegistration::Group> CFPFHPreRegistration::groupByPosition(bool& failed) const
{
    constexpr const char* Function = "prereg::CFPFHPreRegistration::clusterTransformations";
    const auto [low, high] = flt_->GetAABB();
    const Vec3 centre = (low + high) * 0.5F;
    std::vector<std::array<float, 3>> centres;
    for (const ICPResult& accepted : accepted_) {
        const Vec3 p = accepted.trafo * centre;
        centres.push_back({p.x, p.y, p.z});
    }
    std::vector<Group> groups;
    const auto bandwidth = static_cast<float>(config_.dTrafoClusteringBandwidth);
    failed = !(bandwidth > 0.0F);
    if (failed) return groups;
    VoAlgo::CMeanShiftClusterer3D clusterer(centres, bandwidth);
    failed = !clusterer.Run();
    if (failed) return groups;

    VOALGO_LOG(channels::Features(), Trace, Function, L"clustering: found %u position-clusters among %zi trafos",
               clusterer.GetNumClusters(), accepted_.size());
    groups.resize(clusterer.GetNumClusters());
    for (unsigned k = 0; k < groups.size(); ++k) {
        VOALGO_LOG(channels::Features(), Trace, Function, L"  #%u: cluster size %u", k, clusterer.GetClusterSize(k));
        for (auto member = clusterer.GetClusterIterator(k); member; ++member) groups[k].push_back(member.GetIndex());
    }
    std::erase_if(groups, [](const Group& group) { return group.empty(); });
    for (unsigned i = 0; i < accepted_.size(); ++i)
        if (clusterer.GetCluster(i) == VoAlgo::CMeanShiftClusterer3D::None) groups.push_back({i});
    return groups;
}

/// Each quaternion gets the sign that brings it nearer to the first one, so that their means make sense.
std::vector<CFPFHPreRegistration::Group> CFPFHPreRegistration::splitByOrientation(std::size_t cluster,
                                                                                  const Group& members) const
{
    constexpr const char* Function = "prereg::CFPFHPreRegistration::clusterTransformations";
    const auto bandwidth = static_cast<float>(config_.dOrientationClusteringBandwidth);
    if (members.size() == 1 || !(bandwidth > 0.0F)) return {members};
    std::vector<float> quaternions;
    const std::array<float, 4> first = UnitQuaternion(accepted_[members.front()].trafo);
    for (const std::size_t member : members) {
        const std::array<float, 4> q = UnitQuaternion(accepted_[member].trafo);
        const float dot = q[0] * first[0] + q[1] * first[1] + q[2] * first[2] + q[3] * first[3];
        for (const float component : q) quaternions.push_back(dot < 0.0F ? -component : component);
    }
    VoAlgo::CMeanShiftClusterer clusterer(quaternions.data(), members.size(), 4, bandwidth);
    if (!clusterer.Run(SquaredRotationAngle)) {
        VOALGO_LOG(channels::Features(), Warn, Function, L"(rotation) clustering failed!");
        return {members};
    }
    VOALGO_LOG(channels::Features(), Trace, Function, L"cluster #%u (size %u) consists of %u orientation clusters:",
               static_cast<unsigned>(cluster), static_cast<unsigned>(members.size()), clusterer.GetNumClusters());
    std::vector<Group> groups(clusterer.GetNumClusters());
    for (unsigned k = 0; k < groups.size(); ++k)
        VOALGO_LOG(channels::Features(), Trace, Function, L"  orientation cluster #%u: (size %u)", k,
                   clusterer.GetClusterSize(k));
    for (std::size_t i = 0; i < members.size(); ++i)
        groups[clusterer.GetCluster(static_cast<unsigned>(i))].push_back(members[i]);
    std::erase_if(groups, [](const Group& group) { return group.empty(); });
    return groups;
}

ICPResult CFPFHPreRegistration::PeekBestResult()
{
    if (results_.empty()) return {};
    fillOverlapArea(results_.front());
    return results_.front();
}

ICPResult CFPFHPreRegistration::GetNextResult()
{
    if (results_.empty()) return {};
    std::pop_heap(results_.begin(), results_.end(), std::greater<>());
    ICPResult best = results_.back();
    results_.pop_back();
    fillOverlapArea(best);
    return best;
}

std::vector<ICPResult> CFPFHPreRegistration::GetAllResults() const
{
    for (VerifiedTrafo& result : results_) fillOverlapArea(result);
    const std::vector<VerifiedTrafo> all = GetVerifiedTrafos();
    return {all.begin(), all.end()};
}

std::vector<CFPFHPreRegistration::VerifiedTrafo> CFPFHPreRegistration::GetVerifiedTrafos() const
{
    std::vector<VerifiedTrafo> heap = results_;
    std::vector<VerifiedTrafo> all;
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), std::greater<>());
        all.push_back(heap.back());
        heap.pop_back();
    }
    return all;
}

ICPResult CFPFHPreRegistration::InjectTrafo(const CTrafo& trafo, const CTrafo* reference)
{
    constexpr const char* Function = "prereg::CFPFHPreRegistration::InjectTrafo";
    if (isTooLean()) return {};
    const bool isTraced = channels::Features().IsLogLevelEnabled(Logging::ELogLevel::Trace);
    const ICPResult before = isTraced ? evaluate(trafo) : ICPResult();
    ICPResult result = refine(trafo, reference);
    if (result.resultType != 0) {
        VOALGO_LOG(channels::Features(), Warn, Function, L"InjectTrafo: refinement failed (%ls)",
                   result.ToWString(true).c_str());
        return result;
    }
    fillOverlapArea(result);
    VOALGO_LOG(channels::Features(), Trace, Function,
               L"InjectTrafo: overlap ratio of refined trafo: %.1fp (before: %.1fp), RMSE: %.3fmm (before: %.3fmm)",
               static_cast<double>(result.fStop_OverlapRatio) * 100.0,
               static_cast<double>(before.fStop_OverlapRatio) * 100.0, static_cast<double>(result.fStop_RMSE),
               static_cast<double>(before.fStart_RMSE));
    pushResult(result, 1);
    proposals_.push_back(trafo);
    if (!verified_.insert_or_assign(trafo, result).second) { // earlier proposals of this pose share the new outcome
        numExamined_ = 0;
        accepted_.clear();
    }
    return result;
}

void CFPFHPreRegistration::InjectICPResult(const ICPResult& result)
{
    pushResult(result, 1);
}

CFPFHPreRegistration::Statistics CFPFHPreRegistration::GetStatistics() const
{
    Statistics statistics;
    statistics.uiNumPolygons = config_.uiNumPolygons;
    statistics.uiNumProposals = static_cast<std::uint32_t>(verified_.size());
    std::array<std::uint32_t, 10> counts{}; // by result type
    for (const auto& [proposal, outcome] : verified_) {
        if (outcome.resultType == 0)
            ++statistics.uiNumSuccessful;
        else
            ++statistics.uiNumFailed;
        if (outcome.resultType > 0) ++counts[static_cast<std::size_t>(outcome.resultType)];
    }
    for (std::uint32_t type = 1; type < counts.size(); ++type)
        if (counts[type] != 0) statistics.failures.emplace_back(type, counts[type]);
    std::stable_sort(statistics.failures.begin(), statistics.failures.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return statistics;
}

std::string CFPFHPreRegistration::Statistics::ToString() const
{
    char text[160];
    std::snprintf(text, sizeof(text), "%u polys, %u proposed trafos (%u successful, %u failed)", uiNumPolygons,
                  uiNumProposals, uiNumSuccessful, uiNumFailed);
    std::string result = text;
    if (failures.empty()) return result;
    result += " failure causes:";
    for (const auto& [type, count] : failures) {
        if (count == 0) break;
        result += std::string(" ") + LabelOf(static_cast<EICPResultType>(type)) + ":" + std::to_string(count) + "x";
    }
    return result;
}

std::wstring CFPFHPreRegistration::Statistics::ToWString() const
{
    const std::string text = ToString();
    return {text.begin(), text.end()};
}

/// CRC-32C over the quaternion, then the translation; −0 counts as 0, as in the comparison of keys.
std::size_t CFPFHPreRegistration::TrafoHash::operator()(const CTrafo& trafo) const
{
    const VoAlgo::Quaternion q = trafo.GetQuaternion();
    const Vec3& t = trafo.GetTranslation();
    std::uint32_t crc = 0;
    for (const double component : {q.w, q.x, q.y, q.z})
        crc = VoAlgo::simd::Crc32c(crc, std::bit_cast<std::uint64_t>(component + 0.0));
    for (const float component : {t.x, t.y, t.z})
        crc = VoAlgo::simd::Crc32c(crc, std::bit_cast<std::uint32_t>(component + 0.0F));
    return crc;
}

} // namespace prereg
