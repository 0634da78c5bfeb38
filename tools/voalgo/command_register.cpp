#include "check_cloud.h"
#include "cloud_options.h"
#include "commands.h"
#include "errors.h"
#include "files.h"
#include "output_directory.h"
#include "pose_file.h"
#include "report.h"
#include "report_page.h"
#include "settings_options.h"
#include "stopwatch.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace voalgo {

namespace {

struct Arguments {
    std::string fix;
    std::string flt;
    CloudOptions clouds;
    SettingsOptions settings;
    std::string start;
    std::string directory;
    std::string report; ///< file
    bool json = false;
    bool quiet = false;
};

int Run(const Arguments& a)
{
    const Stopwatch watch;
    Times times;
    Console console(a.quiet  ? Console::Mode::Quiet
                    : a.json ? Console::Mode::WithoutProgress
                             : Console::Mode::Talkative);
    const LogToConsole log(console);
    const double mmPerUnit = a.clouds.MmPerUnit();
    console.Progress("reading", 0.0);
    const PreparedCloud fix = a.clouds.Load(a.fix, console), flt = a.clouds.Load(a.flt, console);
    for (const PreparedCloud* cloud : {&fix, &flt}) RequireShape(*cloud);
    RequireSameUnit(fix, flt);
    times.reading = watch.Seconds();
    const Settings settings = a.settings.For(fix.cloud, flt.cloud);
    times.settings = watch.Seconds() - times.reading;
    for (const PreparedCloud* cloud : {&fix, &flt}) RequirePoints(*cloud, settings.config.icpConfig.uiNumSamples);
    std::optional<VoAlgo::CTrafo> start;
    if (!a.start.empty()) start = ReadPose(a.start, mmPerUnit);
    if (!a.directory.empty()) PrepareOutput(a.directory);
    if (!a.report.empty()) WriteText(a.report, ""); // before the search, not after it, is the time to fail

    const Registration registration =
        start ? Refine(fix.cloud, flt.cloud, settings, *start)
              : Register(fix.cloud, flt.cloud, settings,
                         [&console](const char* stage, double share) { console.Progress(stage, share); });
    console.ClearProgress();
    const Report report{fix,           flt,       settings,          registration,
                        a.clouds.unit, mmPerUnit, a.settings.preset, start.has_value()};
    Print(report, a.json);
    if (!a.directory.empty()) WriteOutput(a.directory, report);
    if (!a.report.empty()) WriteText(a.report, ReportPage(report, times));
    return registration.reason.empty() ? Done : NothingFound;
}

constexpr const char* Help = R"(Examples:
  voalgo register front.ply side.ply --out result
  voalgo register front.ply side.ply --report report.html   # a page to look at; opens in any browser, offline
  voalgo register front.xyz side.xyz --unit m --viewpoint 0,0,0 --json
  voalgo register front.ply side.ply --start pose.txt       # refines a pose that is nearly right
  voalgo register front.ply side.ply --config config.json   # { "uiNumPolygons": 200, "icpConfig": { "dMaxRMSE": 0.3 } }
Scans are PLY, OBJ, STL, or text with x y z [nx ny nz] a line. Settings come from the spacing of the points unless a
configuration states them. DIR receives result.json, pose.txt (four rows of four numbers, maps FLT into FIX, in the
files' unit), registered.ply (both scans), registered.png and case.bson (see voalgo case).
Exit codes: 0 done, 2 no registration found, 3 bad input, 64 wrong usage.)";

} // namespace

void AddRegister(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("register", "Find the pose that brings one scan onto another");
    auto a = std::make_shared<Arguments>();
    command->add_option("FIX", a->fix, "The scan that stays")->required();
    command->add_option("FLT", a->flt, "The scan that is moved")->required();
    a->clouds.AddTo(*command);
    a->settings.AddTo(*command);
    command->add_option("--start", a->start, "File with a 4x4 pose that maps FLT into FIX: refine it, do not search");
    command->add_option("--out", a->directory, "Directory for the results; default: only print them");
    command->add_option("--report", a->report,
                        "File for a page (HTML) that shows the outcome: both scans in 3D, distances, tests, causes");
    command->add_flag("--json", a->json, "Print the results as JSON");
    command->add_flag("--quiet", a->quiet, "No notes and no progress bar");
    command->footer(Help);
    command->callback([a, &exitCode] { exitCode = Run(*a); });
}

} // namespace voalgo
