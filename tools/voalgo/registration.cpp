#include "registration.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "thin.h"
#include "verification.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace voalgo {
namespace {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The driver's search in steps: until enough proposals agree on one pose that passes the verification.
class Search {
public:
    Search(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt, const Settings& settings,
           const Progress& progress)
        : settings_(settings), progress_(progress), fix_(std::move(fix)), flt_(std::move(flt)),
          driver_(fix_, flt_, settings.config)
    {
        // With vertices from clusters every step would cluster anew: one step does it all.
        if (settings.config.dMaxPolygonDiameter < 0.0) batchSize_ = std::max(1U, settings.config.uiNumPolygons);
        driver_.GetMatchingConfig().uiNumPolygons = batchSize_;
    }

    void Run(Registration& registration)
    {
        const std::uint32_t quorum = settings_.config.uiTrafoClusteringQuorum;
        const bool isLean = fix_->IsTooLean(settings_.config) || flt_->IsTooLean(settings_.config);
        const std::uint32_t numPolygons = isLean ? 0 : settings_.config.uiNumPolygons;
        std::uint32_t done = 0;
        while (done < numPolygons) {
            progress_("search", static_cast<double>(done) / numPolygons);
            driver_.Compute();
            done += batchSize_;
            if (quorum == 0 || driver_.GetBestClusterSize() < quorum) continue;
            driver_.GetMatchingConfig().uiTrafoClusteringQuorum = 0; // what comes first may not be right: search on
            if (driver_.GetBestClusterSize() < Agreement && done < ManyPolygons) continue;
            registration.results = TakeConfirmed(quorum);
            if (IsEnough(registration.results, done)) break;
        }
        if (done >= numPolygons) registration.results = TakeConfirmed(settings_.verification.minClusterSize);
        for (CFPFHPreRegistration::VerifiedTrafo& result : registration.results)
            result.fStop_OverlapArea = driver_.EstimateOverlapArea(result.trafo);
        registration.reason = Reason(registration.results);
        driver_.GetMatchingConfig().uiNumPolygons = settings_.config.uiNumPolygons;
        registration.statistics = driver_.GetStatistics();
        progress_("search", 1.0);
    }

private:
    using VerifiedTrafo = CFPFHPreRegistration::VerifiedTrafo;

    static constexpr std::uint32_t ManyPolygons = 500;
    // An object that looks alike when turned has shown its other poses, too, once so many proposals agree on one.
    static constexpr std::uint32_t Agreement = 8;

    /// What two scans share by chance is small: such a result must stay the best of many polygons.
    static bool IsEnough(const std::vector<VerifiedTrafo>& results, std::uint32_t polygons)
    {
        constexpr float SmallOverlap = 0.4F;
        return !results.empty() && (results[0].fStop_OverlapRatio >= SmallOverlap || polygons >= ManyPolygons);
    }

    /// The results that at least so many proposals led to and that pass the verification; first what explains most of
    /// the scan.
    std::vector<VerifiedTrafo> TakeConfirmed(std::uint32_t minClusterSize)
    {
        std::vector<VerifiedTrafo> confirmed;
        for (VerifiedTrafo& result : driver_.GetVerifiedTrafos()) {
            if (result.clusterSize < minClusterSize) {
                if (lastObjection_.empty()) lastObjection_ = "too few proposals agree on the pose";
                continue;
            }
            if (std::find(refused_.begin(), refused_.end(), result.trafo) != refused_.end()) continue;
            const VoAlgo::CTrafo found = result.trafo;
            const std::string objection = Verify(*fix_, *flt_, settings_.verification, result);
            if (objection.empty()) {
                const auto isSame = [&](const VerifiedTrafo& other) { return IsSamePose(other.trafo, result.trafo); };
                if (std::none_of(confirmed.begin(), confirmed.end(), isSame)) confirmed.push_back(result);
                continue;
            }
            refused_.push_back(found);
            lastObjection_ = objection;
        }
        std::stable_sort(confirmed.begin(), confirmed.end(), [](const VerifiedTrafo& a, const VerifiedTrafo& b) {
            return ExplainedShare(a) > ExplainedShare(b);
        });
        return confirmed;
    }

    static float ExplainedShare(const prereg::ICPResult& result)
    {
        return result.fStop_SmallBigRatio * result.fStop_OverlapRatio;
    }

    /// Whether clustering would put two poses together.
    [[nodiscard]] bool IsSamePose(const VoAlgo::CTrafo& a, const VoAlgo::CTrafo& b) const
    {
        const auto [low, high] = flt_->GetAABB();
        const kdtree::Vector<3> centre = (low + high) * 0.5F;
        const double angle = settings_.config.dOrientationClusteringBandwidth;
        return static_cast<double>((a * centre - b * centre).Norm()) <= settings_.config.dTrafoClusteringBandwidth &&
               (angle <= 0.0 || static_cast<double>(a.GetRotationDistance(b)) <= angle);
    }

    /// Whether a quite different pose fits about as well as the best result. It need not be one to hand out itself.
    [[nodiscard]] bool HasRival(const VerifiedTrafo& best) const
    {
        constexpr float AlikeShare = 0.9F;
        const auto isRival = [&](const VerifiedTrafo& other) {
            return ExplainedShare(other) > AlikeShare * ExplainedShare(best) && !IsSamePose(other.trafo, best.trafo);
        };
        std::vector<VerifiedTrafo> found = driver_.GetVerifiedTrafos();
        return std::any_of(found.begin(), found.end(), [&](VerifiedTrafo& other) {
            return isRival(other) && VerifyFit(*fix_, *flt_, settings_.verification, other).empty() && isRival(other);
        });
    }

    [[nodiscard]] std::string Reason(const std::vector<VerifiedTrafo>& results) const
    {
        if (fix_->IsTooLean(settings_.config)) return "too few features in FIX";
        if (flt_->IsTooLean(settings_.config)) return "too few features in FLT";
        if (!results.empty())
            return HasRival(results[0]) ? "ambiguous: different poses fit about equally well" : std::string();
        if (lastObjection_.empty()) return "no proposed pose passed the acceptance tests";
        return "no accepted pose was confirmed; the last objection: " + lastObjection_;
    }

    const Settings& settings_;
    const Progress& progress_;
    std::shared_ptr<const CFPFHPointSet> fix_;
    std::shared_ptr<const CFPFHPointSet> flt_;
    CFPFHPreRegistration driver_;
    std::uint32_t batchSize_ = 50;        // polygons a step
    std::vector<VoAlgo::CTrafo> refused_; // by the verification
    std::string lastObjection_;
};

} // namespace

std::shared_ptr<const CFPFHPointSet> ComputeFeatures(const Cloud& cloud, const Settings& settings)
{
    const unsigned threads =
        settings.threads != 0 ? settings.threads : std::max(1U, std::thread::hardware_concurrency());
    const Cloud thinned = settings.workingSpacing > 0.0 ? Thin(cloud, settings.workingSpacing) : cloud;
    prereg::CFPFHDataSource source(settings.config.dFeatureRadius, settings.config.uiMinCurvatureQuality, threads,
                                   false);
    source.Update(thinned.points, thinned.normals);
    return std::make_shared<const CFPFHPointSet>(cloud.points, cloud.normals, source.GetFeaturePoints(),
                                                 source.GetFeatureNormals(), source.GetFeatures());
}

Registration Register(const Cloud& fix, const Cloud& flt, const Settings& settings, const Progress& progress)
{
    const auto report = [&progress](const char* stage, double share) {
        if (progress) progress(stage, share);
    };
    Registration registration;
    double start = Now();
    report("features", 0.0);
    const auto fixSet = ComputeFeatures(fix, settings);
    report("features", 0.5);
    const auto fltSet = ComputeFeatures(flt, settings);
    registration.featureSeconds = Now() - start;

    start = Now();
    const Progress reporting = report;
    Search search(fixSet, fltSet, settings, reporting);
    search.Run(registration);
    registration.searchSeconds = Now() - start;
    return registration;
}

Registration Refine(const Cloud& fix, const Cloud& flt, const Settings& settings, const VoAlgo::CTrafo& start)
{
    Registration registration;
    const auto fixSet = ComputeFeatures(fix, settings);
    const auto fltSet = ComputeFeatures(flt, settings);
    CFPFHPreRegistration driver(fixSet, fltSet, settings.config);
    CFPFHPreRegistration::VerifiedTrafo result(driver.InjectTrafo(start), 1);
    registration.statistics = driver.GetStatistics();
    if (result.resultType != 0) {
        const bool isLean = fixSet->IsTooLean(settings.config) || fltSet->IsTooLean(settings.config);
        registration.reason = isLean ? "too few features" : result.ToString(true);
        return registration;
    }
    registration.reason = Verify(*fixSet, *fltSet, settings.verification, result);
    result.fStop_OverlapArea = driver.EstimateOverlapArea(result.trafo);
    if (registration.reason.empty()) registration.results.push_back(result);
    return registration;
}

} // namespace voalgo
