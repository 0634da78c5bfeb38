#include "registration.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "thin.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace voalgo {
namespace {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;

constexpr double RadiansPerDegree = 0.0174532925199433;
// Scans without any noise still differ by where they sample; in multiples of the spacing.
constexpr double MinRoughness = 0.05;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// What a preset chooses, lengths in multiples of the spacing.
struct PresetFactors {
    double workingSpacing;
    double featureRadius;
    double polygonDiameter;
    std::uint32_t numPolygons;
    std::uint32_t numNeighbours;
};

PresetFactors FactorsOf(Preset preset)
{
    switch (preset) {
    case Preset::Dense:
        return {1.5, 8.0, 30.0, 3000, 10}; // fine detail, little noise
    case Preset::Thorough:
        return {2.0, 12.0, 40.0, 20000, 20}; // small overlaps, much clutter
    case Preset::Automatic:
    case Preset::Scan:
        break;
    }
    return {2.0, 12.0, 40.0, 3000, 10};
}

/// Why a result of the search is not handed out; empty when it is.
std::string Verify(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const Verification& verification,
                   CFPFHPreRegistration::VerifiedTrafo& result)
{
    if (result.clusterSize < verification.minClusterSize) return "too few proposals agree on the pose";
    const auto isTooLoose = [&verification](const prereg::ICPResult& r) {
        const double multiple = static_cast<double>(r.fStop_RMSE) / verification.roughness;
        return static_cast<double>(r.fStop_SmallBigRatio) <
               verification.icp.dMinSmallBigRatio + verification.strictness * (multiple - 1.0);
    };
    const prereg::ICPResult forward = fix.ComputeICPRegistration(verification.icp, flt, result.trafo);
    if (forward.resultType != 0) return forward.ToString(true);
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

/// The driver's search in steps: until enough proposals agree on one pose that passes the verification.
class Search {
public:
    Search(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt, const Settings& settings,
           const Progress& progress)
        : settings_(settings), progress_(progress), fix_(std::move(fix)), flt_(std::move(flt)),
          driver_(fix_, flt_, settings.config)
    {
        driver_.GetMatchingConfig().uiNumPolygons = BatchSize;
    }

    void Run(Registration& registration)
    {
        const std::uint32_t quorum = settings_.config.uiTrafoClusteringQuorum;
        const bool isLean = fix_->IsTooLean(settings_.config) || flt_->IsTooLean(settings_.config);
        const std::uint32_t numPolygons = isLean ? 0 : settings_.config.uiNumPolygons;
        for (std::uint32_t done = 0; done < numPolygons; done += BatchSize) {
            progress_("search", static_cast<double>(done) / numPolygons);
            driver_.Compute();
            if (quorum == 0 || driver_.GetBestClusterSize() < quorum) continue;
            registration.results = TakeConfirmed(quorum);
            if (!registration.results.empty()) break;
            driver_.GetMatchingConfig().uiTrafoClusteringQuorum = 0; // the best is not good enough: search on
        }
        if (registration.results.empty()) registration.results = TakeConfirmed(1);
        registration.reason = Reason(registration.results);
        driver_.GetMatchingConfig().uiNumPolygons = settings_.config.uiNumPolygons;
        registration.statistics = driver_.GetStatistics();
        progress_("search", 1.0);
    }

private:
    /// The results that at least so many proposals led to and that pass the verification, best first.
    std::vector<CFPFHPreRegistration::VerifiedTrafo> TakeConfirmed(std::uint32_t minClusterSize)
    {
        std::vector<CFPFHPreRegistration::VerifiedTrafo> confirmed;
        for (CFPFHPreRegistration::VerifiedTrafo& result : driver_.GetVerifiedTrafos()) {
            if (result.clusterSize < minClusterSize) continue;
            const bool isKnown = std::find(refused_.begin(), refused_.end(), result.trafo) != refused_.end();
            if (isKnown) continue;
            const VoAlgo::CTrafo found = result.trafo;
            const std::string objection = Verify(*fix_, *flt_, settings_.verification, result);
            if (objection.empty()) {
                result.fStop_OverlapArea = driver_.EstimateOverlapArea(result.trafo);
                confirmed.push_back(result);
                continue;
            }
            if (result.clusterSize >= settings_.verification.minClusterSize) refused_.push_back(found);
            if (lastObjection_.empty()) lastObjection_ = objection;
        }
        std::stable_sort(confirmed.begin(), confirmed.end());
        return confirmed;
    }

    [[nodiscard]] std::string Reason(const std::vector<CFPFHPreRegistration::VerifiedTrafo>& results) const
    {
        if (fix_->IsTooLean(settings_.config)) return "too few features in FIX";
        if (flt_->IsTooLean(settings_.config)) return "too few features in FLT";
        if (results.size() > 1 && IsAlike(results[0], results[1]))
            return "ambiguous: different poses fit about equally well";
        if (!results.empty()) return {};
        if (lastObjection_.empty()) return "no proposed pose passed the acceptance tests";
        return "no accepted pose was confirmed; the first objection: " + lastObjection_;
    }

    static bool IsAlike(const prereg::ICPResult& a, const prereg::ICPResult& b)
    {
        constexpr float Share = 0.9F;
        return b.fStop_SmallBigRatio * b.fStop_OverlapRatio > Share * a.fStop_SmallBigRatio * a.fStop_OverlapRatio;
    }

    static constexpr std::uint32_t BatchSize = 50;

    const Settings& settings_;
    const Progress& progress_;
    std::shared_ptr<const CFPFHPointSet> fix_;
    std::shared_ptr<const CFPFHPointSet> flt_;
    CFPFHPreRegistration driver_;
    std::vector<VoAlgo::CTrafo> refused_;
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

Sampling MeasureSampling(const Cloud& cloud)
{
    constexpr std::size_t Samples = 2000;
    constexpr double InlierShare = 0.9;
    Sampling sampling;
    if (cloud.points.size() < 2) return sampling;
    const kdtree::TKdTree<3, 48> tree(&cloud.points[0].x, cloud.points.size(), 4);
    std::vector<std::pair<int, float>> nearest;
    std::vector<double> errors;
    double sum = 0.0;
    const std::size_t step = std::max<std::size_t>(1, cloud.points.size() / Samples);
    for (std::size_t i = 0; i < cloud.points.size(); i += step) {
        tree.NearestK(&cloud.points[i].x, 2, INFINITY, nearest);
        if (nearest.size() < 2) continue;
        const auto neighbour = static_cast<std::size_t>(nearest[1].first);
        const kdtree::Vector<3> d = cloud.points[neighbour] - cloud.points[i];
        sum += std::sqrt(static_cast<double>(nearest[1].second));
        errors.push_back(std::max(std::fabs(d.Dot(cloud.normals[i])), std::fabs(d.Dot(cloud.normals[neighbour]))));
    }
    if (errors.empty()) return sampling;
    sampling.spacing = sum / static_cast<double>(errors.size());
    std::sort(errors.begin(), errors.end());
    errors.resize(static_cast<std::size_t>(std::ceil(InlierShare * static_cast<double>(errors.size()))));
    double squares = 0.0;
    for (const double error : errors) squares += error * error;
    sampling.roughness = std::sqrt(squares / static_cast<double>(errors.size()));
    return sampling;
}

double MeanSpacing(const Cloud& cloud)
{
    return MeasureSampling(cloud).spacing;
}

Settings DeriveSettings(const Cloud& fix, const Cloud& flt, Preset preset)
{
    const Sampling fixSampling = MeasureSampling(fix);
    const Sampling fltSampling = MeasureSampling(flt);
    const double spacing = std::max(fixSampling.spacing, fltSampling.spacing);
    const double roughness = std::max({fixSampling.roughness, fltSampling.roughness, MinRoughness * spacing});
    const PresetFactors factors = FactorsOf(preset);

    Settings s;
    s.workingSpacing = factors.workingSpacing * spacing;
    prereg::ConfigurationFPFH& config = s.config;
    config.dFeatureRadius = factors.featureRadius * spacing;
    config.uiNumPolygons = factors.numPolygons;
    config.uiNumPolygonVertices = 3;
    config.uiNumNeighbors = factors.numNeighbours;
    config.dMaxPolygonDiameter = factors.polygonDiameter * spacing;
    config.dMaxPolygonVertexError = 3.0 * spacing;
    config.dTrafoClusteringBandwidth = 5.0 * spacing;
    config.uiTrafoClusteringQuorum = 3;
    prereg::ConfigurationICP& icp = config.icpConfig;
    icp.uiMaxNumIterations = 15;
    icp.dMinQueryRadius = 2.0 * spacing;
    icp.dPositionTolerance = 2.0 * spacing;
    icp.dInitialQueryRadiusScaling = 5.0;
    icp.dNormalAngleTolerance = 30.0 * RadiansPerDegree;
    icp.dMaxErrorRatio = 0.05;
    icp.dMinOverlapRatio = 0.18;
    icp.dMaxRMSE = 3.0 * roughness;
    icp.dMinSmallBigRatio = 0.5;
    icp.dSmallBigQueryRadiusScaling = 2.0;

    Verification& verification = s.verification;
    verification.icp = icp;
    verification.icp.uiMaxNumIterations = 5;
    verification.icp.uiNumSamples = 2000;
    verification.icp.dInitialQueryRadiusScaling = 1.0;
    verification.icp.dMinOverlapRatio = 0.22;
    verification.icp.dMaxRMSE = 2.5 * roughness;
    verification.icp.dMinSmallBigRatio = 0.65;
    verification.strictness = 0.05;
    verification.roughness = roughness;
    verification.maxTurn = 1.5 * RadiansPerDegree;
    verification.minClusterSize = 2;
    return s;
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
    CFPFHPreRegistration driver(ComputeFeatures(fix, settings), ComputeFeatures(flt, settings), settings.config);
    const prereg::ICPResult result = driver.InjectTrafo(start);
    registration.results = driver.GetVerifiedTrafos();
    registration.statistics = driver.GetStatistics();
    if (registration.results.empty()) registration.reason = result.ToString(true);
    return registration;
}

} // namespace voalgo
