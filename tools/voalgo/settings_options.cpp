#include "settings_options.h"

#include "config_json.h"

#include <CLI/CLI.hpp>

namespace voalgo {

namespace {

Preset PresetOf(const std::string& name)
{
    if (name == "dense") return Preset::Dense;
    if (name == "scan") return Preset::Scan;
    return name == "thorough" ? Preset::Thorough : Preset::Automatic;
}

void Apply(const prereg::ConfigurationFPFH& stated, Settings& settings)
{
    settings.verification.Follow(settings.config, stated);
    settings.config = stated;
}

} // namespace

void SettingsOptions::AddTo(CLI::App& command)
{
    command.add_option("--preset", preset, "Kind of settings")
        ->check(CLI::IsMember({"auto", "dense", "scan", "thorough"}))
        ->capture_default_str();
    command.add_option(
        "--config", config,
        "JSON file with settings that override the others, also as limits of the verification; lengths in mm");
    command.add_option("--threads", threads, "Threads of the feature computation, 0: all; results do not depend on it")
        ->capture_default_str();
}

Settings SettingsOptions::For(const Cloud& fix, const Cloud& flt) const
{
    Settings settings = DeriveSettings(fix, flt, PresetOf(preset));
    settings.threads = threads;
    if (config.empty()) return settings;
    prereg::ConfigurationFPFH stated = settings.config;
    ApplyConfigFile(stated, config);
    Apply(stated, settings);
    return settings;
}

Settings SettingsWith(const prereg::ConfigurationFPFH& stated, const std::string& preset, const Cloud& fix,
                      const Cloud& flt)
{
    Settings settings = DeriveSettings(fix, flt, PresetOf(preset));
    Apply(stated, settings);
    return settings;
}

} // namespace voalgo
