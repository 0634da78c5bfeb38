#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/runtime/aprogressmeter.h"
#include "VoAlgorithms/verdict/preparedscan.h"
#include "VoAlgorithms/verdict/registration.h"
#include "VoAlgorithms/verdict/registrationsettings.h"
#include "VoAlgorithms/verdict/scan.h"

#include <functional>
#include <memory>
#include <optional>

namespace prereg {

/// What a host may choose; by default everything follows from the scans.
struct RegistrationOptions {
    EPreset preset = EPreset::Automatic; ///< kind of settings to derive
    /// Changes the settings derived from the scans, e.g. [](auto& c) { c.icpConfig.dMaxRMSE = 0.2; }.
    std::function<void(ConfigurationFPFH&)> adjust = {};
    /// Threads of features and refinements; 0: as many as the machine has. Results do not depend on it.
    unsigned threads = 0;
    /// A pose to refine and verify instead of searching; maps the coordinates of flt into those of fix.
    std::optional<VoAlgo::CbMatrix4Rd> start = {};
    /// Shows the stages "features" and "search" on the caller's thread; asked between steps whether to go on. Borrowed.
    VoAlgo::AProgressMeter* progress = nullptr;
};

/// Registers two scans of one object that overlap somewhere, without a starting pose, and says whether the answer can
/// be trusted: settings are derived from the scans, poses searched, candidates refined and judged by the evidence of
/// both scans, and rivals considered. Bad scans are a refusal, not an exception. The same input gives the same bits,
/// whatever the number of threads. Throws std::invalid_argument when points and normals differ in number or adjusted
/// settings have no meaning.
[[nodiscard]] VOALGO_API Registration RegisterScans(const Scan& fix, const Scan& flt,
                                                    const RegistrationOptions& options = {});
/// The same for scans that are prepared already.
[[nodiscard]] VOALGO_API Registration RegisterScans(const PreparedScan& fix, const PreparedScan& flt,
                                                    const RegistrationOptions& options = {});

/// Makes the point set, with features, that a registration uses.
[[nodiscard]] VOALGO_API std::shared_ptr<const CFPFHPointSet>
ComputePointSet(const Scan& scan, const RegistrationSettings& settings, unsigned threads = 0);
/// Registers two point sets with given settings; preset and adjust of the options are ignored.
[[nodiscard]] VOALGO_API Registration RegisterPointSets(std::shared_ptr<const CFPFHPointSet> fix,
                                                        std::shared_ptr<const CFPFHPointSet> flt,
                                                        const RegistrationSettings& settings,
                                                        const RegistrationOptions& options = {});

} // namespace prereg
