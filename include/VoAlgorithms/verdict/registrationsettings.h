#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/verdict/preparedscan.h"
#include "VoAlgorithms/verdict/scan.h"
#include "VoAlgorithms/verdict/verification.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace prereg {

/// How settings are derived from the scans.
enum class EPreset {
    Automatic, ///< as Scan
    Dense,     ///< fine detail, little noise
    Scan,      ///< ordinary scans
    Thorough,  ///< small overlaps, much clutter; takes longer
};
/// "auto", "dense", "scan", "thorough".
[[nodiscard]] VOALGO_API const std::vector<std::string>& PresetNames();
/// The preset of that name, if there is one.
[[nodiscard]] VOALGO_API std::optional<EPreset> PresetOf(const std::string& name);

/// Everything that controls a registration. Lengths in millimetres.
struct RegistrationSettings {
    ConfigurationFPFH config;    ///< of the search
    Verification verification;   ///< of what the search found
    double resolution = 0.0;     ///< spacing that denser scans are thinned to before the search, mm; 0: not thinned
    double workingSpacing = 0.0; ///< features are computed on scans thinned to this spacing, mm; 0: not thinned
};

/// The settings that follow from two scans with normals. Lengths are multiples of the resolution: the spacing of the
/// coarser scan, or a larger length where a large object or noise makes finer detail useless.
[[nodiscard]] VOALGO_API RegistrationSettings DeriveSettings(const Scan& fix, const Scan& flt,
                                                             EPreset preset = EPreset::Automatic);
/// The same for prepared scans, which are not measured again.
[[nodiscard]] VOALGO_API RegistrationSettings DeriveSettings(const PreparedScan& fix, const PreparedScan& flt,
                                                             EPreset preset = EPreset::Automatic);
/// The same for a known resolution and roughness, mm.
[[nodiscard]] VOALGO_API RegistrationSettings DeriveSettings(double resolution, double roughness, EPreset preset);
/// Settings changed by `adjust`; limits of the search that it changes hold for the verification, too. Throws
/// std::invalid_argument, naming the setting, when a value makes no sense.
[[nodiscard]] VOALGO_API RegistrationSettings Adjusted(RegistrationSettings settings,
                                                       const std::function<void(ConfigurationFPFH&)>& adjust);

} // namespace prereg
