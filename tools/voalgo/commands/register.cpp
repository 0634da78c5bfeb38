#include "VoAlgorithms/verdict/registerscans.h"
#include "commands/commands.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "input/cloud_options.h"
#include "input/pose_file.h"
#include "input/scan_or_model.h"
#include "input/settings_options.h"
#include "output/result_options.h"
#include "platform/clock.h"
#include "terminal/console.h"

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
    ResultOptions results;
    bool quiet = false;
};

int Run(const Arguments& a)
{
    const VoAlgo::CStopwatch watch;
    Console console(a.quiet, a.results.json);
    const LogToConsole log(console);
    a.results.RequireWritable({a.fix, a.flt, a.settings.config, a.start});
    prereg::RegistrationOptions options = a.settings.Options();
    if (!a.start.empty()) options.start = ReadPose(a.start, a.clouds.Unit());
    options.progress = console.Progress();
    VoAlgo::CProgressPart(options.progress, ShareOfReading).Begin("reading", 1);
    const auto [fix, flt] = LoadScansOrModels(a.clouds, a.fix, a.flt, console);
    const double readingSeconds = watch.Seconds();
    const prereg::Registration registration = RegisterScans(fix, flt, options);
    console.ClearProgress();
    if (IsFaultOfScans(registration.refusal.code)) throw InputError(registration.Reason());
    return a.results.Write({fix,
                            flt,
                            registration,
                            a.settings.preset,
                            a.clouds.Unit(),
                            readingSeconds,
                            {ChecksumOf(a.fix), ChecksumOf(a.flt)}});
}

constexpr const char* Help = R"(Examples:
  voalgo register front.ply side.ply --out result
  voalgo register front.ply side.ply --report report.html   # opens in any browser, offline
  voalgo register front.xyz side.xyz --unit m --viewpoint 0,0,0 --json
  voalgo register part.stl scan.ply                         # a CAD model is sampled as densely as the scan
  voalgo register front.ply side.ply --start pose.txt       # refines a nearly right pose
  voalgo register front.ply side.ply --config config.json   # { "uiNumPolygons": 200, "icpConfig": { "dMaxRMSE": 0.3 } }
Scans are PLY, OBJ, STL, or text with x y z [nx ny nz] per line. Settings are derived from the spacing and the roughness
of the points unless a configuration states them. --out writes result.json, pose.txt (four rows of four numbers, maps
FLT into FIX, in the files' unit), registered.ply (both scans), registered.png and case.bson (see voalgo case).
Exit codes: 0 success, 2 no registration found, 3 bad input or unwritable output, 64 wrong usage.)";

} // namespace

void AddRegister(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("register", "Find the pose that aligns one scan with another");
    auto a = std::make_shared<Arguments>();
    command->add_option("FIX", a->fix, "The scan that stays in place")->required();
    command->add_option("FLT", a->flt, "The scan that is moved")->required();
    a->clouds.AddTo(*command);
    a->settings.AddTo(*command);
    command->add_option("--start", a->start,
                        "File with a 4x4 pose that maps FLT into FIX, to refine instead of searching");
    a->results.AddTo(*command);
    command->add_flag("--quiet", a->quiet, "Print no notes and no progress bar");
    command->footer(Help);
    command->callback([a, &exitCode] { exitCode = Run(*a); });
}

} // namespace voalgo
