#pragma once

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "acceptance.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace voalgo {

/// The last word on a result: refined once more with many samples, from fix's side and from flt's, it must pass
/// stricter limits than the search's, from both sides, and both must end in the same pose.
struct Verification {
    prereg::ConfigurationICP icp;     ///< limits and settings of both refinements
    double strictness = 0.0;          ///< the small/big limit rises by this per roughness that the RMSE exceeds it
    double roughness = 0.0;           ///< of the scans, mm
    double maxTurn = 0.0;             ///< largest turn between the poses of both sides, rad
    double minStability = 0.0;        ///< how well the overlap's shape must hold the pose, see PoseStability
    std::uint32_t minClusterSize = 0; ///< fewest proposals that must have led to the pose

    /// Takes over what was changed from `derived` to `stated`: whoever states a limit of the search means it here too.
    void Follow(const prereg::ConfigurationFPFH& derived, const prereg::ConfigurationFPFH& stated);
};

/// A pose that was judged. `objection`: what speaks against handing it out; empty: nothing.
struct JudgedTrafo : prereg::CFPFHPreRegistration::VerifiedTrafo {
    std::string objection;
    std::vector<AcceptanceTest> tests; ///< as far as they came

    JudgedTrafo(const VerifiedTrafo& result, std::string against) : VerifiedTrafo(result), objection(std::move(against))
    {
    }
};

/// Refines a result of the search with the verification's settings and judges its fit. The answer holds the refined
/// pose and figures, seen from fix's side, unless that refinement came to no end.
JudgedTrafo VerifyFit(const prereg::CFPFHPointSet& fix, const prereg::CFPFHPointSet& flt,
                      const Verification& verification, const prereg::CFPFHPreRegistration::VerifiedTrafo& found);

/// The same, and the shape of the overlap must hold the pose: whether the result may be handed out.
JudgedTrafo Verify(const prereg::CFPFHPointSet& fix, const prereg::CFPFHPointSet& flt, const Verification& verification,
                   const prereg::CFPFHPreRegistration::VerifiedTrafo& found);

} // namespace voalgo
