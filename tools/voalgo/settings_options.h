#pragma once

#include "registration.h"

#include <string>

namespace CLI {
class App;
}

namespace voalgo {

/// The settings of a preset by its name ("auto" for one that is not known) with a configuration that was stated before.
Settings SettingsWith(const prereg::ConfigurationFPFH& stated, const std::string& preset, const Cloud& fix,
                      const Cloud& flt);

/// Where the settings come from; the options that the commands with settings share.
struct SettingsOptions {
    std::string preset = "auto";
    std::string config; ///< file; empty: none
    unsigned threads = 0;

    void AddTo(CLI::App& command);
    /// Throws InputError when the configuration file is faulty.
    [[nodiscard]] Settings For(const Cloud& fix, const Cloud& flt) const;
};

} // namespace voalgo
