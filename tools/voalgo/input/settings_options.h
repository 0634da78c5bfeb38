#pragma once

#include "VoAlgorithms/verdict/registerscans.h"

#include <string>

namespace CLI {
class App;
}

namespace voalgo {

/// Where the settings come from; options that several commands share.
struct SettingsOptions {
    std::string preset = "auto";
    std::string config; ///< file; empty: none
    unsigned threads = 0;

    void AddTo(CLI::App& command);
    /// The options of a registration. Throws InputError when the configuration file is faulty.
    [[nodiscard]] prereg::RegistrationOptions Options() const;
};

/// The settings that a registration of these scans would use.
[[nodiscard]] prereg::RegistrationSettings SettingsFor(const prereg::Scan& fix, const prereg::Scan& flt,
                                                       const prereg::RegistrationOptions& options);

} // namespace voalgo
