// From two scans to a pose, or to the reason why there is none:
//   1. prepare both scans (drop unusable points, estimate missing normals); refuse scans that cannot determine a pose;
//   2. derive the settings from spacing and roughness, and let the host adjust them;
//   3. thin both scans and compute features on them;
//   4. search for poses and verify them (detail_search.cpp), or refine the one that was given.
#include "VoAlgorithms/verdict/registerscans.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/verdict/localframes.h"
#include "VoAlgorithms/verdict/scanfault.h"
#include "VoAlgorithms/verdict/voxeldown.h"
#include "platform/clock.h"
#include "verdict/detail_search.h"

#include <algorithm>
#include <string>
#include <thread>
#include <utility>

namespace prereg {
namespace {

using PointSetPtr = std::shared_ptr<const CFPFHPointSet>;

PreparedScan PrepareNamed(const Scan& scan, const char* role)
{
    Scan named = scan;
    if (named.name.empty()) named.name = role;
    return PrepareScan(std::move(named));
}

bool Report(const RegistrationOptions& options, const char* stage, double share)
{
    return !options.progress || options.progress(stage, share);
}

PointSetPtr PointSetOf(const PreparedScan& scan, const RegistrationSettings& settings, unsigned threads)
{
    return scan.pointSet ? scan.pointSet : ComputePointSet(scan.scan, settings, threads);
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
    const RegistrationSettings settings = DeriveSettings(fix.scan, flt.scan, options.preset, options.adjust);
    registration.settings = settings;
    registration.seconds.settings = watch.Seconds();
    for (const PreparedScan* scan : {&fix, &flt})
        if (Refusal fault = FindTooFewPoints(*scan, settings.config.icpConfig.uiNumSamples))
            return Refused(registration, std::move(fault));

    const VoAlgo::CStopwatch featureWatch;
    if (!Report(options, "features", 0.0)) return Refused(registration, Refusal(ERefusal::Cancelled));
    PointSetPtr fixSet = PointSetOf(fix, settings, options.threads);
    if (!Report(options, "features", 0.5)) return Refused(registration, Refusal(ERefusal::Cancelled));
    PointSetPtr fltSet = PointSetOf(flt, settings, options.threads);
    const double featureSeconds = featureWatch.Seconds();

    const double settingsSeconds = registration.seconds.settings;
    RegistrationOptions local = options;
    if (options.start) local.start = LocalPose(*options.start, fix.scan.origin, flt.scan.origin);
    registration = RegisterPointSets(std::move(fixSet), std::move(fltSet), settings, local);
    registration.fixOrigin = fix.scan.origin;
    registration.fltOrigin = flt.scan.origin;
    registration.seconds.settings = settingsSeconds;
    registration.seconds.features = featureSeconds;
    return registration;
}

PointSetPtr ComputePointSet(const Scan& scan, const RegistrationSettings& settings, unsigned threads)
{
    const unsigned workers = threads != 0 ? threads : std::max(1U, std::thread::hardware_concurrency());
    CFPFHDataSource source(settings.config.dFeatureRadius, settings.config.uiMinCurvatureQuality, workers, false);
    if (settings.workingSpacing > 0.0) {
        const Scan thinned = VoxelDown(scan, settings.workingSpacing);
        source.Update(thinned.points, thinned.normals);
    } else {
        source.Update(scan.points, scan.normals);
    }
    return std::make_shared<const CFPFHPointSet>(scan.points, scan.normals, source.GetFeaturePoints(),
                                                 source.GetFeatureNormals(), source.GetFeatures());
}

Registration RegisterPointSets(PointSetPtr fix, PointSetPtr flt, const RegistrationSettings& settings,
                               const RegistrationOptions& options)
{
    const VoAlgo::CStopwatch watch;
    Registration registration;
    registration.settings = settings;
    registration.isRefinement = options.start.has_value();
    if (registration.isRefinement)
        detail::RefinePose(fix, flt, options, registration);
    else
        detail::SearchPoses(fix, flt, options, registration);
    registration.fix = std::move(fix);
    registration.flt = std::move(flt);
    registration.seconds.search = watch.Seconds();
    return registration;
}

} // namespace prereg
