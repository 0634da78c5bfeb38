#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/verdict/erefusal.h"
#include "VoAlgorithms/verdict/registrationsettings.h"
#include "VoAlgorithms/verdict/verification.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace prereg {

/// The outcome of a registration. True when there is a pose that may be trusted. Scans are registered in local frames,
/// relative to their origins, and so are the poses (trafo) and ellipsoids of the results and both point sets; Pose and
/// PoseOf lead back to the coordinates of the scans that the host gave. Point sets that the host gave have no origin.
struct VOALGO_API Registration {
    /// Poses that passed the verification, the one that explains most of the scans first (JudgedTrafo::explained).
    std::vector<JudgedTrafo> results;
    /// Poses that the search accepted but that may not be handed out; those that were verified come first.
    std::vector<JudgedTrafo> refused;
    /// Why no pose may be trusted, even if there are results; empty when the first result may be trusted.
    Refusal refusal;
    CFPFHPreRegistration::Statistics statistics;   ///< of the search
    RegistrationSettings settings;                 ///< the settings used
    std::shared_ptr<const CFPFHPointSet> fix = {}; ///< what was registered; null when a scan was at fault
    std::shared_ptr<const CFPFHPointSet> flt = {}; ///< the same, in the frame of flt
    ///@{
    /// Coordinates of the local frame's origin, mm.
    std::array<double, 3> fixOrigin = {};
    std::array<double, 3> fltOrigin = {};
    ///@}
    bool isRefinement = false; ///< a starting pose was refined; nothing was searched

    /// How long the stages took.
    struct Seconds {
        double settings = 0.0; ///< measuring the scans to derive the settings
        double features = 0.0; ///< computing the features
        double search = 0.0;   ///< search, refinement and verification
    } seconds;                 ///< wall time

    /// Whether the first result may be trusted.
    explicit operator bool() const { return !refusal; }
    /// The pose that may be trusted, with its figures and tests. Throws std::logic_error with the reason when there is
    /// none.
    [[nodiscard]] const JudgedTrafo& Best() const;
    /// Its homogeneous matrix, which maps the coordinates of flt into those of fix, mm. Throws as Best.
    [[nodiscard]] VoAlgo::CbMatrix4Rd Pose() const;
    /// The same of any result, or refused pose, of this registration.
    [[nodiscard]] VoAlgo::CbMatrix4Rd PoseOf(const JudgedTrafo& judged) const;
    /// The refusal in words; empty when there is a pose that may be trusted.
    [[nodiscard]] const std::string& Reason() const { return refusal.text; }
};

} // namespace prereg
