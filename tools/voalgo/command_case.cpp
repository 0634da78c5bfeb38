#include "VoAlgorithms/runtime/csharedmemorypipe.h"
#include "case_file.h"
#include "case_json.h"
#include "check_cloud.h"
#include "cloud_options.h"
#include "commands.h"
#include "config_fields.h"
#include "errors.h"
#include "files.h"
#include "output_directory.h"
#include "report_page.h"
#include "sampling.h"
#include "settings_options.h"
#include "stopwatch.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace voalgo {

namespace {

using prereg::CFPFHPreRegistration;

struct Arguments {
    std::string file; ///< of the case
    std::string fix;
    std::string flt;
    CloudOptions clouds;
    SettingsOptions settings;
    std::string directory;
    std::string report; ///< file
    std::string pipe;
    bool json = false;
    bool quiet = false;
};

void Pack(const Arguments& a)
{
    Console console(a.quiet ? Console::Mode::Quiet : Console::Mode::Talkative);
    const LogToConsole log(console);
    const PreparedCloud fix = a.clouds.Load(a.fix, console), flt = a.clouds.Load(a.flt, console);
    for (const PreparedCloud* cloud : {&fix, &flt}) RequireShape(*cloud);
    RequireSameUnit(fix, flt);
    const Settings settings = a.settings.For(fix.cloud, flt.cloud);
    for (const PreparedCloud* cloud : {&fix, &flt}) RequirePoints(*cloud, settings.config.icpConfig.uiNumSamples);
    WriteText(a.file, CaseBytes(*ComputeFeatures(fix.cloud, settings), *ComputeFeatures(flt.cloud, settings),
                                settings.config, {}, {a.settings.preset, a.clouds.unit}));
}

void Show(const Arguments& a)
{
    constexpr unsigned LongestBinary = 32, Depth = 3;
    std::puts(Indented(ParseDocument(ReadText(a.file), a.file).to_json(LongestBinary), Depth).c_str());
}

/// A point set of a case as the cloud that it was made of.
PreparedCloud CloudOf(const prereg::CFPFHPointSet& set, const std::string& name)
{
    PreparedCloud prepared;
    prepared.name = name;
    prepared.cloud = {set.GetPoints(), set.GetNormals()};
    prepared.read = prepared.cloud.points.size();
    std::tie(prepared.low, prepared.high) = set.GetAABB();
    prepared.spacing = MeanSpacing(prepared.cloud);
    return prepared;
}

int RunCase(const Arguments& a)
{
    const Stopwatch watch;
    Times times;
    Console console(a.quiet  ? Console::Mode::Quiet
                    : a.json ? Console::Mode::WithoutProgress
                             : Console::Mode::Talkative);
    const LogToConsole log(console);
    console.Progress("reading", 0.0);
    const Case stored = ParseCase(ReadText(a.file), a.file);
    const auto& fixSet = stored.registration.GetFixPointSet();
    const auto& fltSet = stored.registration.GetFltPointSet();
    const PreparedCloud fix = CloudOf(fixSet, a.file + ": FixPointSet"),
                        flt = CloudOf(fltSet, a.file + ": FltPointSet");
    const prereg::ConfigurationFPFH& config = stored.registration.GetMatchingConfig();
    RequireRanges(config, a.file);
    times.reading = watch.Seconds();
    const Settings settings = SettingsWith(config, stored.notes.preset, fix.cloud, flt.cloud);
    times.settings = watch.Seconds() - times.reading;
    if (!a.directory.empty()) PrepareOutput(a.directory);
    if (!a.report.empty()) WriteText(a.report, ""); // before the search, not after it, is the time to fail

    const Registration registration =
        Register({&fixSet, [](const auto*) {}}, {&fltSet, [](const auto*) {}}, settings,
                 [&console](const char* stage, double share) { console.Progress(stage, share); });
    console.ClearProgress();
    CloudOptions clouds;
    clouds.unit = stored.notes.unit;
    const Report report{fix, flt, settings, registration, clouds.unit, clouds.MmPerUnit(), stored.notes.preset};
    Print(report, a.json);
    if (!a.directory.empty()) WriteOutput(a.directory, report);
    if (!a.report.empty()) WriteText(a.report, ReportPage(report, times));
    return registration.reason.empty() ? Done : NothingFound;
}

std::wstring PipeName(const Arguments& a)
{
    return a.pipe.empty() ? CFPFHPreRegistration::CasePipe : std::filesystem::path(a.pipe).wstring();
}

/// Sends the file as it is: what the library does not know of goes along.
void Send(const Arguments& a)
{
    Console console(Console::Mode::Talkative);
    const LogToConsole log(console);
    const std::string bytes = ReadText(a.file);
    (void)ParseCase(bytes, a.file);
    try {
        VoAlgo::CSharedMemoryPipe::Open(PipeName(a), CFPFHPreRegistration::CasePipeBlock).Send(bytes);
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("nobody waits for a case: ") + error.what());
    }
}

void Receive(const Arguments& a)
{
    Console console(a.quiet ? Console::Mode::Quiet : Console::Mode::Talkative);
    const LogToConsole log(console);
    auto pipe = VoAlgo::CSharedMemoryPipe::Create(PipeName(a), CFPFHPreRegistration::CasePipeBlock);
    console.Note("waiting for a case");
    const std::vector<unsigned char> message = pipe.Receive();
    const std::string bytes(message.begin(), message.end());
    (void)ParseCase(bytes, "what was sent");
    WriteText(a.file, bytes);
}

constexpr const char* Help =
    R"(A case is one file with all that a registration needs and found: both scans with their features, the settings, the
results. It repeats a registration elsewhere, to the last bit.
Examples:
  voalgo case pack front.ply side.ply --out case.bson
  voalgo case show case.bson
  voalgo case run case.bson --out result
  voalgo case run case.bson --report report.html     # a page to look at, as of voalgo register
  voalgo case receive --out case.bson                # waits; in another window or program:
  voalgo case send case.bson)";

} // namespace

void AddCase(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("case", "Keep a registration in one file, repeat it, hand it over");
    command->require_subcommand(1);
    command->footer(Help);
    auto a = std::make_shared<Arguments>();
    const auto add = [&](const char* name, const char* what, auto run) {
        CLI::App* added = command->add_subcommand(name, what);
        added->callback([a, &exitCode, run] { exitCode = run(*a); });
        return added;
    };
    const auto withDone = [](auto run) {
        return [run](const Arguments& arguments) {
            run(arguments);
            return static_cast<int>(Done);
        };
    };
    const auto takesFile = [&](CLI::App* added) { added->add_option("FILE", a->file, "The case")->required(); };
    const auto takesPipe = [&](CLI::App* added) {
        added->add_option("--pipe", a->pipe, "Name of the pipe, the same on both sides; default: PreRegistrationFPFH");
    };
    const auto isQuiet = [&](CLI::App* added) { added->add_flag("--quiet", a->quiet, "No notes"); };

    CLI::App* pack = add("pack", "Make a case of two scans", withDone(Pack));
    pack->add_option("FIX", a->fix, "The scan that stays")->required();
    pack->add_option("FLT", a->flt, "The scan that is moved")->required();
    pack->add_option("--out", a->file, "File for the case")->required();
    a->clouds.AddTo(*pack);
    a->settings.AddTo(*pack);
    isQuiet(pack);

    takesFile(add("show", "Print a case as JSON; of longer binaries the size", withDone(Show)));

    CLI::App* run = add("run", "Register the scans of a case", RunCase);
    takesFile(run);
    run->add_option("--out", a->directory, "Directory for the results, as of voalgo register");
    run->add_option("--report", a->report, "File for a page (HTML) that shows the outcome, as of voalgo register");
    run->add_flag("--json", a->json, "Print the results as JSON");
    isQuiet(run);

    CLI::App* send = add("send", "Hand a case to the process that waits for one", withDone(Send));
    takesFile(send);
    takesPipe(send);

    CLI::App* receive = add("receive", "Wait for a case from another process", withDone(Receive));
    receive->add_option("--out", a->file, "File for the case")->required();
    takesPipe(receive);
    isQuiet(receive);
}

} // namespace voalgo
