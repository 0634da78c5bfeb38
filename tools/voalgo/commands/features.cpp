#include "VoAlgorithms/verdict/scanfault.h"
#include "commands/commands.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/staged_file.h"
#include "input/cloud_options.h"
#include "input/settings_options.h"
#include "output/distinct_files.h"
#include "terminal/exit_code.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace voalgo {

namespace {

struct Arguments {
    std::string file;
    std::string out;
    CloudOptions clouds;
    SettingsOptions settings;
    bool quiet = false;
};

/// The number of features for another limit of the curvature quality.
std::size_t CountFrom(const prereg::Scan& scan, prereg::RegistrationSettings settings, unsigned minQuality)
{
    settings.config.uiMinCurvatureQuality = minQuality;
    return ComputePointSet(scan, settings)->SizeFeatures();
}

void PrintHistogram(const prereg::Scan& scan, const prereg::RegistrationSettings& settings)
{
    constexpr unsigned Step = 10;
    constexpr int Width = 50;
    std::vector<std::size_t> atLeast;
    for (unsigned quality = 0; quality < 100; quality += Step) atLeast.push_back(CountFrom(scan, settings, quality));
    atLeast.push_back(0);
    std::size_t largest = 1;
    for (std::size_t i = 0; i + 1 < atLeast.size(); ++i) largest = std::max(largest, atLeast[i] - atLeast[i + 1]);
    std::printf("quality    points\n");
    for (std::size_t i = 0; i + 1 < atLeast.size(); ++i) {
        const std::size_t count = atLeast[i] - atLeast[i + 1];
        const auto length = static_cast<std::size_t>(Width * static_cast<double>(count) / static_cast<double>(largest));
        std::printf("%3zu to %3zu %7zu %s\n", i * Step, (i + 1) * Step, count, std::string(length, '#').c_str());
    }
}

void Run(const Arguments& a)
{
    Console console(a.quiet);
    const LogToConsole log(console);
    RequireDistinct({a.file, a.settings.config}, {a.out});
    if (!a.out.empty()) RequireWritable(a.out);
    const prereg::RegistrationOptions options = a.settings.Options();
    const prereg::PreparedScan prepared = a.clouds.Load(a.file, console);
    if (const prereg::Refusal fault = FindFault(prepared)) throw InputError(a.file + ": " + fault.text);
    const prereg::RegistrationSettings settings = SettingsFor(prepared.scan, prepared.scan, options);
    const auto set = ComputePointSet(prepared.scan, settings, a.settings.threads);
    std::printf("%zu feature points out of %zu points; radius %.4g mm, quality at least %u\n", set->SizeFeatures(),
                prepared.scan.points.size(), settings.config.dFeatureRadius, settings.config.uiMinCurvatureQuality);
    PrintHistogram(prepared.scan, settings);
    if (a.out.empty()) return;
    StagedFile out(a.out);
    out.WriteBy([&](const std::string& path) { set->SaveFeaturePointsXYZN(path, 0xFFFFFFFFU); });
    out.Keep();
}

} // namespace

void AddFeatures(CLI::App& tool, int& exitCode)
{
    CLI::App* command =
        tool.add_subcommand("features", "Show how many feature points a scan has and how good they are");
    auto a = std::make_shared<Arguments>();
    command->add_option("FILE", a->file, "The scan")->required();
    a->clouds.AddTo(*command);
    a->settings.AddTo(*command);
    command->add_option("--out", a->out, "Text file for the feature points: x y z nx ny nz per line, mm");
    command->add_flag("--quiet", a->quiet, "Print no notes");
    command->footer(
        "The quality of a point is 0 on a plane and 100 where the surface curves within the feature radius or less.\n"
        "Example: voalgo features front.ply --out features.xyzn");
    command->callback([a, &exitCode] {
        Run(*a);
        exitCode = Done;
    });
}

} // namespace voalgo
