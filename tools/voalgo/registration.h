#pragma once

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "cloud.h"
#include "verification.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace voalgo {

enum class Preset { Automatic, Dense, Scan, Thorough };

/// All that steers a registration. Lengths in millimetres.
struct Settings {
    prereg::ConfigurationFPFH config;
    Verification verification;
    double workingSpacing = 0.0; ///< features are computed on clouds thinned to this spacing; 0: not thinned
    unsigned threads = 0;        ///< of the feature computation; 0: as many as the hardware has
};

/// Settings scaled from the measured spacing of both clouds.
Settings DeriveSettings(const Cloud& fix, const Cloud& flt, Preset preset);

/// The point set that the registration makes of a cloud.
std::shared_ptr<const prereg::CFPFHPointSet> ComputeFeatures(const Cloud& cloud, const Settings& settings);

struct Registration {
    /// The results that passed the verification; first the one that explains most of flt (small/big ratio × overlap).
    std::vector<JudgedTrafo> results;
    /// Those that the search accepted but the verification did not; first the one that came nearest to being a result.
    std::vector<JudgedTrafo> refused;
    prereg::CFPFHPreRegistration::Statistics statistics;
    std::string reason; ///< why no result is to be trusted, also when there are several; empty: the first one is
    std::shared_ptr<const prereg::CFPFHPointSet> fix; ///< what was registered
    std::shared_ptr<const prereg::CFPFHPointSet> flt;
    double featureSeconds = 0.0;
    double searchSeconds = 0.0;
};

/// Called with the name of the stage and the share done, 0 to 1.
using Progress = std::function<void(const char*, double)>;

/// How much of flt a result explains: small/big ratio × overlap.
float ExplainedShare(const prereg::ICPResult& result);
/// A second result that explains more than this share of what the first does makes the answer ambiguous.
inline constexpr float AlikeShare = 0.9F;

/// Registers flt with fix without a starting pose.
Registration Register(const Cloud& fix, const Cloud& flt, const Settings& settings, const Progress& progress);
/// The same with the point sets of both clouds at hand.
Registration Register(std::shared_ptr<const prereg::CFPFHPointSet> fix,
                      std::shared_ptr<const prereg::CFPFHPointSet> flt, const Settings& settings,
                      const Progress& progress);
/// Refines and verifies one given pose (maps flt into fix).
Registration Refine(const Cloud& fix, const Cloud& flt, const Settings& settings, const VoAlgo::CTrafo& start);
/// The same with the point sets of both clouds at hand.
Registration Refine(std::shared_ptr<const prereg::CFPFHPointSet> fix, std::shared_ptr<const prereg::CFPFHPointSet> flt,
                    const Settings& settings, const VoAlgo::CTrafo& start);

} // namespace voalgo
