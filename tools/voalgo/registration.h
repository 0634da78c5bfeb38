#pragma once

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "cloud.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace voalgo {

enum class Preset { Automatic, Dense, Scan, Thorough };

/// The last word on a result: refined once more with many samples, from fix's side and from flt's, it must pass
/// stricter limits than the search's, from both sides, and both must end in the same pose.
struct Verification {
    prereg::ConfigurationICP icp;     ///< limits and settings of both refinements
    double strictness = 0.0;          ///< small/big limit rises by this for every multiple of the roughness in the RMSE
    double roughness = 0.0;           ///< of the scans, mm
    double maxTurn = 0.0;             ///< largest turn between the poses of both sides, rad
    std::uint32_t minClusterSize = 0; ///< fewest proposals that must have led to the pose
};

/// All that steers a registration. Lengths in millimetres.
struct Settings {
    prereg::ConfigurationFPFH config;
    Verification verification;
    double workingSpacing = 0.0; ///< features are computed on clouds thinned to this spacing; 0: not thinned
    unsigned threads = 0;        ///< of the feature computation; 0: as many as the hardware has
};

/// How finely and how smoothly a cloud samples its surface, from a sample of its points.
struct Sampling {
    double spacing = 0.0; ///< mean distance of a point to its nearest neighbour, mm; 0 for less than two points
    double roughness =
        0.0; ///< root mean square distance of neighbours to each other's tangent planes, mm, outliers cut
};
Sampling MeasureSampling(const Cloud& cloud);
/// The spacing alone.
double MeanSpacing(const Cloud& cloud);

/// Settings scaled from the measured spacing of both clouds.
Settings DeriveSettings(const Cloud& fix, const Cloud& flt, Preset preset);

/// The point set that the registration makes of a cloud.
std::shared_ptr<const prereg::CFPFHPointSet> ComputeFeatures(const Cloud& cloud, const Settings& settings);

/// A result that was handed out, best first.
struct Registration {
    std::vector<prereg::CFPFHPreRegistration::VerifiedTrafo> results;
    prereg::CFPFHPreRegistration::Statistics statistics;
    std::string reason; ///< why there is no result; empty when there is one
    double featureSeconds = 0.0;
    double searchSeconds = 0.0;
};

/// Called with the name of the stage and the share done, 0 to 1.
using Progress = std::function<void(const char*, double)>;

/// Registers flt with fix without a starting pose.
Registration Register(const Cloud& fix, const Cloud& flt, const Settings& settings, const Progress& progress);
/// Refines and verifies one given pose (maps flt into fix).
Registration Refine(const Cloud& fix, const Cloud& flt, const Settings& settings, const VoAlgo::CTrafo& start);

} // namespace voalgo
