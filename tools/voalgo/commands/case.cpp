#include "VoAlgorithms/runtime/csharedmemorypipe.h"
#include "VoAlgorithms/verdict/registerscans.h"
#include "VoAlgorithms/verdict/scanfault.h"
#include "commands/commands.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "input/case_file.h"
#include "input/cloud_options.h"
#include "input/settings_options.h"
#include "output/distinct_files.h"
#include "output/indented_json.h"
#include "output/result_options.h"
#include "platform/clock.h"
#include "terminal/console.h"
#include "terminal/exit_code.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
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
    ResultOptions results;
    std::string pipe;
    bool quiet = false;
};

void Pack(const Arguments& a)
{
    Console console(a.quiet);
    const LogToConsole log(console);
    RequireDistinct({a.fix, a.flt, a.settings.config}, {a.file});
    RequireWritable(a.file);
    const prereg::RegistrationOptions options = a.settings.Options();
    const auto [fix, flt] = a.clouds.LoadPair(a.fix, a.flt, console);
    if (const prereg::Refusal fault = FindFault(fix, flt)) throw InputError(fault.text);
    const prereg::RegistrationSettings settings = SettingsFor(fix.scan, flt.scan, options);
    for (const prereg::PreparedScan* scan : {&fix, &flt})
        if (const prereg::Refusal fault = FindTooFewPoints(*scan, settings.config.icpConfig.uiNumSamples))
            throw InputError(fault.text);
    WriteText(a.file, CaseBytes(*ComputePointSet(fix.scan, settings, a.settings.threads),
                                *ComputePointSet(flt.scan, settings, a.settings.threads), settings, {},
                                {a.settings.preset, a.clouds.unit, fix.scan.origin, flt.scan.origin, ChecksumOf(a.fix),
                                 ChecksumOf(a.flt)}));
}

void Show(const Arguments& a)
{
    constexpr unsigned LongestBinary = 32, Depth = 3;
    std::puts(Indented(ParseDocument(ReadText(a.file), a.file).to_json(LongestBinary), Depth).c_str());
}

/// The settings of a case; the limits of its configuration hold for the verification, too.
prereg::RegistrationSettings SettingsOf(const Case& stored, const prereg::PreparedScan& fix,
                                        const prereg::PreparedScan& flt, const std::string& file)
{
    try {
        const prereg::EPreset preset = prereg::PresetOf(stored.notes.preset).value();
        auto derived = stored.notes.resolution > 0.0
                           ? DeriveSettings(stored.notes.resolution, stored.notes.roughness, preset)
                           : DeriveSettings(fix.scan, flt.scan, preset);
        if (stored.notes.minOverlap > 0.0) derived.verification.minOverlap = stored.notes.minOverlap;
        return Adjusted(derived, [&](auto& config) { config = stored.registration.GetMatchingConfig(); });
    } catch (const std::invalid_argument& error) {
        throw InputError(file + ": " + error.what());
    }
}

int RunCase(const Arguments& a)
{
    const VoAlgo::CStopwatch watch;
    Console console(a.quiet, a.results.json);
    const LogToConsole log(console);
    a.results.RequireWritable({a.file});
    VoAlgo::CProgressPart(console.Progress(), ShareOfReading).Begin("reading", 1);
    const Case stored = ParseCase(ReadText(a.file), a.file);
    const auto prepared = [&](const prereg::CFPFHPointSet& set, const char* name, const auto& origin) {
        return prereg::PreparedFrom({&set, [](const auto*) {}}, a.file + ": " + name, origin);
    };
    const prereg::PreparedScan fix =
        prepared(stored.registration.GetFixPointSet(), "FixPointSet", stored.notes.fixOrigin);
    const prereg::PreparedScan flt =
        prepared(stored.registration.GetFltPointSet(), "FltPointSet", stored.notes.fltOrigin);
    const double readingSeconds = watch.Seconds();
    const VoAlgo::CStopwatch settingsWatch;
    const prereg::RegistrationSettings settings = SettingsOf(stored, fix, flt, a.file);
    const double settingsSeconds = settingsWatch.Seconds();

    prereg::RegistrationOptions options;
    options.progress = console.Progress();
    prereg::Registration registration = RegisterPointSets(fix.pointSet, flt.pointSet, settings, options);
    registration.fixOrigin = fix.scan.origin;
    registration.fltOrigin = flt.scan.origin;
    registration.seconds.settings = settingsSeconds;
    console.ClearProgress();
    return a.results.Write({fix,
                            flt,
                            registration,
                            stored.notes.preset,
                            UnitOf(stored.notes.unit).value(),
                            readingSeconds,
                            {stored.notes.fixChecksum, stored.notes.fltChecksum}});
}

std::wstring PipeName(const Arguments& a)
{
    return a.pipe.empty() ? CFPFHPreRegistration::CasePipe : std::filesystem::path(a.pipe).wstring();
}

/// Sends the file byte for byte, including anything that the library does not know.
void Send(const Arguments& a)
{
    Console console(false);
    const LogToConsole log(console);
    const std::string bytes = ReadText(a.file);
    (void)ParseCase(bytes, a.file);
    VoAlgo::CSharedMemoryPipe pipe;
    try {
        pipe = VoAlgo::CSharedMemoryPipe::Open(PipeName(a), CFPFHPreRegistration::CasePipeBlock);
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("no process is waiting for a case: ") + error.what());
    }
    try {
        pipe.Deliver(bytes.data(), bytes.size());
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("the case was not received: ") + error.what());
    }
}

/// The sender is done when the file is written.
void Receive(const Arguments& a)
{
    Console console(a.quiet);
    const LogToConsole log(console);
    VoAlgo::CSharedMemoryPipe pipe;
    try {
        pipe = VoAlgo::CSharedMemoryPipe::Create(PipeName(a), CFPFHPreRegistration::CasePipeBlock);
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("cannot wait for a case under this name: ") + error.what());
    }
    console.Note("waiting for a case");
    pipe.Accept([&](const std::vector<unsigned char>& message) {
        const std::string bytes(message.begin(), message.end());
        (void)ParseCase(bytes, "received data");
        WriteText(a.file, bytes);
    });
}

constexpr const char* Help =
    R"(A case is one file with everything that a registration used and found: both scans with their features, the settings
and the results. Running it repeats the registration on any machine, bit for bit.
Examples:
  voalgo case pack front.ply side.ply --out case.bson
  voalgo case show case.bson
  voalgo case run case.bson --out result
  voalgo case run case.bson --report report.html     # opens in any browser, offline
  voalgo case receive --out case.bson                # waits; then, in another window:
  voalgo case send case.bson)";

} // namespace

void AddCase(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("case", "Store a registration in one file, repeat it, pass it on");
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
        added->add_option("--pipe", a->pipe, "Name of the pipe, the same on both sides. Default: PreRegistrationFPFH");
    };
    const auto isQuiet = [&](CLI::App* added) { added->add_flag("--quiet", a->quiet, "Print no notes"); };

    CLI::App* pack = add("pack", "Make a case from two scans", withDone(Pack));
    pack->add_option("FIX", a->fix, "The scan that stays in place")->required();
    pack->add_option("FLT", a->flt, "The scan that is moved")->required();
    pack->add_option("--out", a->file, "File for the case")->required();
    a->clouds.AddTo(*pack);
    a->settings.AddTo(*pack);
    isQuiet(pack);

    takesFile(add("show", "Print a case as JSON; long binary values are shown by their size", withDone(Show)));

    CLI::App* run = add("run", "Register the scans of a case", RunCase);
    takesFile(run);
    a->results.AddTo(*run);
    isQuiet(run);

    CLI::App* send = add("send", "Send a case to a process that is waiting for one", withDone(Send));
    takesFile(send);
    takesPipe(send);

    CLI::App* receive = add("receive", "Wait for a case from another process and store it", withDone(Receive));
    receive->add_option("--out", a->file, "File for the case")->required();
    takesPipe(receive);
    isQuiet(receive);
}

} // namespace voalgo
