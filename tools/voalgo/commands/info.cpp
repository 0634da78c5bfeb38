#include "VoAlgorithms/verdict/scanfault.h"
#include "VoAlgorithms/version.h"
#include "commands/commands.h"
#include "exchange/report/outcome.h"
#include "input/cloud_options.h"
#include "terminal/exit_code.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace voalgo {

namespace {

struct Arguments {
    std::vector<std::string> files;
    CloudOptions clouds;
    bool json = false;
};

std::string Build()
{
    std::string text;
#if defined(__clang__)
    text = "Clang " __clang_version__;
#elif defined(__GNUC__)
    text = "GCC " __VERSION__;
#else
    text = "unknown compiler";
#endif
#if defined(__AVX2__)
    text += ", AVX2";
#endif
#if !defined(NDEBUG)
    text += ", assertions on";
#endif
    return text;
}

void Print(const prereg::PreparedScan& p)
{
    const auto extent = p.high - p.low;
    std::printf("%s\n", p.scan.name.c_str());
    std::printf("  points   %zu\n", p.scan.points.size());
    std::printf("  extent   %.4g x %.4g x %.4g mm\n", static_cast<double>(extent.x), static_cast<double>(extent.y),
                static_cast<double>(extent.z));
    std::printf("  spacing  %.4g mm\n", p.spacing);
    std::printf("  normals  %s\n", p.estimatedNormals ? "estimated" : "from the file");
    const prereg::Remarks remarks = Describe(p);
    for (const std::string& note : remarks.notes) std::printf("  note     %s\n", note.c_str());
    for (const std::string& warning : remarks.warnings) std::printf("  warning  %s\n", warning.c_str());
    if (const prereg::Refusal fault = FindFault(p)) std::printf("  fault    %s\n", fault.text.c_str());
}

void Run(const Arguments& a)
{
    nlohmann::ordered_json json = {
        {"voalgo", VOALGO_VERSION}, {"build", Build()}, {"unit", a.clouds.unit}, {"files", nlohmann::json::array()}};
    if (!a.json) std::printf("voalgo %s (%s)\n", VOALGO_VERSION, Build().c_str());
    for (const std::string& file : a.files) {
        const prereg::PreparedScan cloud = a.clouds.Load(file);
        if (!a.json) {
            Print(cloud);
            continue;
        }
        nlohmann::ordered_json entry = ToJson(cloud, a.clouds.Unit());
        entry["fault"] = FindFault(cloud).text;
        json["files"].push_back(entry);
    }
    if (a.json) std::printf("%s\n", JsonText(json).c_str());
}

} // namespace

void AddInfo(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("info", "Show the version, and the contents and faults of files");
    auto a = std::make_shared<Arguments>();
    command->add_option("FILE", a->files, "Scans to inspect");
    a->clouds.AddTo(*command);
    command->add_flag("--json", a->json, "Print JSON");
    command->footer("Example: voalgo info front.ply side.xyz --unit cm");
    command->callback([a, &exitCode] {
        Run(*a);
        exitCode = Done;
    });
}

} // namespace voalgo
