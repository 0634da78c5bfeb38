// From two scans to a pose, or to the reason why there is none:
//   1. prepare both scans (drop unusable points, estimate missing normals); refuse scans that cannot determine a pose;
//   2. derive the settings from size, spacing and roughness, and let the host adjust them;
//   3. thin both scans to the resolution of the search, compute features, and find out from where each was taken;
//   4. search for poses and verify them (detail_search.cpp), or refine the one that was given;
//   5. refine what is handed out once more on the scans as they were given.
#include "VoAlgorithms/verdict/registerscans.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/verdict/localframes.h"
#include "VoAlgorithms/verdict/sampling.h"
#include "VoAlgorithms/verdict/scanfault.h"
#include "VoAlgorithms/verdict/viewdirection.h"
#include "VoAlgorithms/verdict/voxeldown.h"
#include "platform/clock.h"
#include "platform/tasks.h"
#include "verdict/detail_evidence.h"
#include "verdict/detail_search.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace prereg {
namespace {

using PointSetPtr = std::shared_ptr<const CFPFHPointSet>;

constexpr double ShareOfFeatures = 0.3; // of the time that a registration takes

PreparedScan PrepareNamed(const Scan& scan, const char* role)
{
    Scan named = scan;
    if (named.name.empty()) named.name = role;
    return PrepareScan(std::move(named));
}

/// Thins a scan that is clearly denser than the resolution of the search.
bool NeedsThinning(double spacing, const RegistrationSettings& settings)
{
    constexpr double ClearlyDenser = 0.8;
    return settings.resolution > 0.0 && spacing < ClearlyDenser * settings.resolution;
}

Scan Thinned(const Scan& scan, const RegistrationSettings& settings)
{
    constexpr double EdgePerSpacing = 1.25; // means of cubes lie about so much closer than the cubes' edge
    return VoxelDown(scan, EdgePerSpacing * settings.resolution);
}

/// The point set of a scan with this spacing.
PointSetPtr PointSetWith(double spacing, const Scan& scan, const RegistrationSettings& settings, unsigned threads)
{
    const bool isThinned = NeedsThinning(spacing, settings);
    const Scan thinned = isThinned ? Thinned(scan, settings) : Scan();
    const Scan& worked = isThinned ? thinned : scan;
    CFPFHDataSource source(settings.config.dFeatureRadius, settings.config.uiMinCurvatureQuality, threads, false);
    if (settings.workingSpacing > 0.0) {
        const Scan coarse = VoxelDown(worked, settings.workingSpacing);
        source.Update(coarse.points, coarse.normals);
    } else {
        source.Update(worked.points, worked.normals);
    }
    return std::make_shared<const CFPFHPointSet>(worked.points, worked.normals, source.GetFeaturePoints(),
                                                 source.GetFeatureNormals(), source.GetFeatures());
}

/// From where a scan was taken: as its host states, or else as its points and normals tell.
std::optional<detail::View> ViewOf(const CPointSet& scan, const std::optional<kdtree::Vector<3>>& viewpoint = {})
{
    const std::vector<kdtree::Vector<3>>& points = scan.GetPoints();
    if (viewpoint && !points.empty()) {
        kdtree::Vector<3> towards;
        for (const kdtree::Vector<3>& p : points) towards += (*viewpoint - p) / static_cast<float>(points.size());
        if (towards.Norm() > 0.0F) return detail::View{towards / towards.Norm(), viewpoint};
    }
    const std::optional<ViewDirection> inferred = InferViewDirection(points, scan.GetNormals());
    if (!inferred) return std::nullopt;
    return detail::View{inferred->direction};
}

detail::SearchScan SearchScanOf(const PreparedScan& scan, const RegistrationSettings& settings, unsigned threads)
{
    PointSetPtr set = scan.pointSet ? scan.pointSet : PointSetWith(scan.spacing, scan.scan, settings, threads);
    const std::optional<detail::View> view = ViewOf(*set, scan.scan.LocalViewpoint());
    return {std::move(set), view};
}

Registration Register(const detail::SearchInput& input, const RegistrationSettings& settings,
                      const RegistrationOptions& options)
{
    const VoAlgo::CStopwatch watch;
    Registration registration;
    registration.settings = settings;
    registration.isRefinement = options.start.has_value();
    if (registration.isRefinement)
        detail::RefinePose(input, options, registration);
    else
        detail::SearchPoses(input, options, registration);
    registration.fix = input.fix.set;
    registration.flt = input.flt.set;
    registration.seconds.search = watch.Seconds();
    return registration;
}

/// A scan with a tree.
class FullScan : public CPointSet {
public:
    explicit FullScan(const Scan& scan) : CPointSet(scan.points, scan.normals) {}
};

/// Refines the poses that passed on the scans as they were given.
void RefineOnFullScans(const Scan& fix, const Scan& flt, Registration& registration)
{
    constexpr std::size_t Samples = 20000;
    const unsigned iterations = std::min(3U, registration.settings.verification.icp.uiMaxNumIterations);
    if (registration.results.empty() || iterations == 0) return;
    const FullScan fullFix(fix);
    const FullScan fullFlt(flt);
    const detail::ScanPair pair(fullFix, fullFlt, {}, {}, registration.settings.resolution, Samples);
    for (JudgedTrafo& result : registration.results) {
        result.trafo = pair.Refine(result.trafo, 1.0, iterations, 1);
        result.ellipsoid = registration.flt->GetEllipsoid().Transformed(result.trafo);
    }
}

Registration Refused(Registration registration, Refusal refusal)
{
    registration.refusal = std::move(refusal);
    return registration;
}

} // namespace

Registration RegisterScans(const Scan& fix, const Scan& flt, const RegistrationOptions& options)
{
    return RegisterScans(PrepareNamed(fix, "fix"), PrepareNamed(flt, "flt"), options);
}

Registration RegisterScans(const PreparedScan& fix, const PreparedScan& flt, const RegistrationOptions& options)
{
    Registration registration;
    if (Refusal fault = FindFault(fix, flt)) return Refused(registration, std::move(fault));
    const VoAlgo::CStopwatch watch;
    const RegistrationSettings settings = Adjusted(DeriveSettings(fix, flt, options.preset), options.adjust);
    registration.settings = settings;
    registration.seconds.settings = watch.Seconds();
    for (const PreparedScan* scan : {&fix, &flt})
        if (Refusal fault = FindTooFewPoints(*scan, settings.config.icpConfig.uiNumSamples))
            return Refused(registration, std::move(fault));

    const VoAlgo::CStopwatch featureWatch;
    VoAlgo::CProgressPart progress(options.progress, ShareOfFeatures);
    if (!progress.Begin("features", 1)) return Refused(registration, Refusal(ERefusal::Cancelled));
    const unsigned threads = VoAlgo::tasks::NumThreads(options.threads);
    const std::array<const PreparedScan*, 2> scans = {&fix, &flt};
    std::array<detail::SearchScan, 2> inputs;
    VoAlgo::tasks::ForRanges(scans.size(), threads, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) inputs[i] = SearchScanOf(*scans[i], settings, threads);
    });
    if (!progress.Finish()) return Refused(registration, Refusal(ERefusal::Cancelled));
    const detail::SearchInput input{inputs[0], inputs[1]};
    const double featureSeconds = featureWatch.Seconds();

    const double settingsSeconds = registration.seconds.settings;
    RegistrationOptions local = options;
    if (options.start) local.start = LocalPose(*options.start, fix.scan.origin, flt.scan.origin);
    registration = Register(input, settings, local);
    registration.fixOrigin = fix.scan.origin;
    registration.fltOrigin = flt.scan.origin;
    const VoAlgo::CStopwatch refinementWatch;
    if (NeedsThinning(fix.spacing, settings) || NeedsThinning(flt.spacing, settings))
        RefineOnFullScans(fix.scan, flt.scan, registration);
    registration.seconds.search += refinementWatch.Seconds();
    registration.seconds.settings = settingsSeconds;
    registration.seconds.features = featureSeconds;
    return registration;
}

PointSetPtr ComputePointSet(const Scan& scan, const RegistrationSettings& settings, unsigned threads)
{
    return PointSetWith(MeasureSampling(scan).spacing, scan, settings, VoAlgo::tasks::NumThreads(threads));
}

Registration RegisterPointSets(PointSetPtr fix, PointSetPtr flt, const RegistrationSettings& settings,
                               const RegistrationOptions& options)
{
    const auto fixView = ViewOf(*fix);
    const auto fltView = ViewOf(*flt);
    return Register({{std::move(fix), fixView}, {std::move(flt), fltView}}, settings, options);
}

} // namespace prereg
