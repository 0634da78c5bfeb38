#pragma once

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "cloud.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace voalgo {

enum class Preset { Automatic, Dense, Scan, Thorough };

/// All that steers a registration. Lengths in millimetres.
struct Settings {
    prereg::ConfigurationFPFH config;
    double workingSpacing = 0.0; ///< features are computed on clouds thinned to this spacing; 0: not thinned
    double featureSpacing = 0.0; ///< feature points lie at least about this far apart; 0: all
    unsigned threads = 0;        ///< of the feature computation; 0: as many as the hardware has
};

/// Mean distance of a point to its nearest neighbour, mm, from a sample of the cloud; 0 for less than two points.
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
