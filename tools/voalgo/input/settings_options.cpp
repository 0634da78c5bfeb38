#include "input/settings_options.h"

#include "exchange/report/config_json.h"
#include "input/between.h"

#include <CLI/CLI.hpp>

namespace voalgo {

void SettingsOptions::AddTo(CLI::App& command)
{
    command
        .add_option("--preset", preset,
                    "Kind of settings: scan (as auto) for ordinary scans, dense for fine detail with little noise, "
                    "thorough for small overlaps or much clutter")
        ->check(CLI::IsMember(prereg::PresetNames()))
        ->capture_default_str();
    command.add_option("--config", config,
                       "JSON file with settings that replace the derived ones; its limits hold for the verification, "
                       "too; lengths in mm, or in the unit that its \"unit\" names");
    command
        .add_option("--threads", threads,
                    "Threads of features and refinements; 0: all cores. Results do not depend on it")
        ->check(Between(0, 1024))
        ->capture_default_str();
}

prereg::RegistrationOptions SettingsOptions::Options() const
{
    prereg::RegistrationOptions options;
    options.preset = prereg::PresetOf(preset).value();
    options.threads = threads;
    if (!config.empty()) options.adjust = ReadConfigFile(config);
    return options;
}

prereg::RegistrationSettings SettingsFor(const prereg::Scan& fix, const prereg::Scan& flt,
                                         const prereg::RegistrationOptions& options)
{
    return Adjusted(DeriveSettings(fix, flt, options.preset), options.adjust);
}

} // namespace voalgo
