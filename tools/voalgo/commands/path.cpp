#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/solvers/ctspsolver.h"
#include "commands/commands.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/output_error.h"
#include "exchange/files/staged_directory.h"
#include "exchange/report/outcome.h"
#include "input/between.h"
#include "input/cloud_options.h"
#include "output/distinct_files.h"
#include "pictures/picture.h"
#include "platform/format.h"
#include "simulation/frame.h"
#include "terminal/exit_code.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <utility>

namespace voalgo {

namespace {

constexpr double ShareOfChoosing = 0.3; // of the time

struct Arguments {
    std::string file;
    CloudOptions clouds;
    unsigned points = 0;
    unsigned rounds = 0;
    bool isClosed = false;
    std::string directory;
    bool json = false;
    bool quiet = false;
};

/// Points to measure, in the order in which to go to them.
struct Path {
    prereg::Scan points;
    bool isClosed;
    double length, lowerBound, gap; // mm
};

/// Points of a scan that lie far apart: each is the one farthest from all before it, the first one farthest from the
/// middle; equal ones by index. Any point of the scan is near one of them.
std::vector<std::size_t> FarthestPoints(const prereg::Scan& scan, unsigned count, Console& console)
{
    std::vector<float> distanceSq;
    for (const auto& p : scan.points) distanceSq.push_back(p.NormSq());
    VoAlgo::CProgressPart progress(console.Progress(), ShareOfChoosing);
    progress.Begin("choosing points", count);
    std::vector<std::size_t> chosen;
    while (chosen.size() < count) {
        chosen.push_back(
            static_cast<std::size_t>(std::max_element(distanceSq.begin(), distanceSq.end()) - distanceSq.begin()));
        const auto last = scan.points[chosen.back()];
        const bool isFirst = chosen.size() == 1;
        for (std::size_t i = 0; i < distanceSq.size(); ++i) {
            const float d = (scan.points[i] - last).NormSq();
            distanceSq[i] = isFirst ? d : std::min(distanceSq[i], d);
        }
        distanceSq[chosen.back()] = -1.0F; // its square may have underflowed for others, too
        progress.Advance();
    }
    return chosen;
}

Path FindPath(const prereg::Scan& scan, const Arguments& a, Console& console)
{
    Path path{{}, a.isClosed, 0.0, 0.0, 0.0};
    prereg::Scan chosen;
    for (const std::size_t i : FarthestPoints(scan, a.points, console)) {
        chosen.points.push_back(scan.points[i]);
        chosen.normals.push_back(scan.normals[i]);
    }
    VoAlgo::CTSPSolver solver(chosen.points);
    solver.SetClosed(a.isClosed);
    const unsigned rounds = a.rounds > 0 ? a.rounds : std::max(1000U, a.points);
    solver.SetRounds(rounds);
    VoAlgo::CProgressPart progress(console.Progress());
    progress.Begin("shortening the path", rounds);
    solver.SetCallback([&, done = 0U](unsigned round, double) mutable {
        return progress.Advance(round - std::exchange(done, round));
    });
    path.points.origin = scan.origin;
    for (const unsigned i : solver.Solve()) {
        path.points.points.push_back(chosen.points[i]);
        path.points.normals.push_back(chosen.normals[i]);
    }
    path.length = solver.GetLength();
    path.lowerBound = solver.GetLowerBound();
    path.gap = solver.GetGap();
    console.ClearProgress();
    return path;
}

/// In the coordinates of the file.
std::array<double, 3> InFile(const Path& path, std::size_t i, const LengthUnit& unit)
{
    std::array<double, 3> place = ToDouble(path.points.points[i]);
    for (std::size_t k = 0; k < 3; ++k) place[k] = (place[k] + path.points.origin[k]) / unit.mm;
    return place;
}

std::string PathText(const Path& path, const LengthUnit& unit)
{
    std::string text;
    for (std::size_t i = 0; i < path.points.points.size(); ++i) {
        const auto [x, y, z] = InFile(path, i, unit);
        const auto [nx, ny, nz] = ToDouble(path.points.normals[i]);
        text += VoAlgo::Format("%.9g %.9g %.9g %.6g %.6g %.6g\n", x, y, z, nx, ny, nz);
    }
    return text;
}

nlohmann::ordered_json ToJson(const Path& path, const std::string& file, const LengthUnit& unit)
{
    nlohmann::ordered_json json = {{"file", file},
                                   {"unit", unit.name},
                                   {"closed", path.isClosed},
                                   {"length", path.length / unit.mm},
                                   {"lowerBound", path.lowerBound / unit.mm},
                                   {"gap", path.gap},
                                   {"points", nlohmann::json::array()},
                                   {"normals", nlohmann::json::array()}};
    for (std::size_t i = 0; i < path.points.points.size(); ++i) {
        json["points"].push_back(InFile(path, i, unit));
        json["normals"].push_back(ToDouble(path.points.normals[i]));
    }
    return json;
}

/// Beads along the path, on the surface where it is near.
prereg::Scan Beads(const Path& path, const prereg::Scan& scan, double spacing)
{
    const auto step = static_cast<float>(0.5 * spacing);
    const kdtree::TKdTree<3, 48> tree(scan.points.data(), scan.points.size());
    prereg::Scan beads;
    const auto& points = path.points.points;
    for (std::size_t i = 0; i + (path.isClosed ? 0 : 1) < points.size(); ++i) {
        const auto from = points[i], way = points[(i + 1) % points.size()] - from;
        const float steps = std::max(1.0F, std::ceil(std::min(way.Norm() / step, 2000.0F)));
        for (float k = 0; k <= steps; ++k) {
            const auto place = from + way * (k / steps);
            const int near = tree.Nearest(&place.x, 64.0F * step * step);
            const auto at = static_cast<std::size_t>(std::max(near, 0));
            const auto normal = near < 0 ? kdtree::Vector<3>() : scan.normals[at];
            beads.points.push_back((near < 0 ? place : scan.points[at]) + normal * (2.0F * step));
            beads.normals.emplace_back();
        }
    }
    return beads;
}

std::vector<std::string> Write(const Path& path, const prereg::PreparedScan& prepared, const Arguments& a)
{
    if (a.directory.empty()) return {};
    StagedDirectory out(a.directory, {"path.json", "path.txt", "path.png"});
    const auto text = [&](const char* name, const std::string& content) {
        out.Add(name, [&](const std::string& file) { WriteText(file, content); });
    };
    text("path.json", JsonText(ToJson(path, a.file, a.clouds.Unit())) + "\n");
    text("path.txt", PathText(path, a.clouds.Unit()));
    const prereg::Scan beads = Beads(path, prepared.scan, prepared.spacing);
    out.Add("path.png", [&](const std::string& file) {
        WritePicture(file, VoAlgo::Format("path through %zu points", path.points.points.size()),
                     {{&prepared.scan, FixColour}, {&beads, FltColour}}, prepared.spacing);
    });
    out.Keep();
    return out.Paths();
}

void Print(const Path& path, const Arguments& a, const std::vector<std::string>& files)
{
    const LengthUnit unit = a.clouds.Unit();
    if (a.json) {
        std::printf("%s\n", JsonText(ToJson(path, a.file, unit)).c_str());
        return;
    }
    std::printf("%s path through %zu points: %.6g %s\n", path.isClosed ? "closed" : "open", path.points.points.size(),
                path.length / unit.mm, unit.name.c_str());
    std::printf("no path is shorter than %.6g %s: the gap is %.2f %%\n", path.lowerBound / unit.mm, unit.name.c_str(),
                100.0 * path.gap);
    for (const std::string& file : files) std::printf("wrote %s\n", file.c_str());
}

void Run(const Arguments& a)
{
    Console console(a.quiet, a.json);
    const LogToConsole log(console);
    if (!a.directory.empty()) {
        const std::vector<std::string> names = {"path.json", "path.txt", "path.png"};
        std::vector<std::string> outputs = {a.directory};
        for (const std::string& name : names) outputs.push_back(InDirectory(a.directory, name));
        RequireDistinct({a.file}, outputs);
        (void)StagedDirectory(a.directory, names); // better to fail now than after the work
    }
    const prereg::PreparedScan prepared = a.clouds.Load(a.file, console);
    if (prepared.scan.points.size() < a.points)
        throw InputError(VoAlgo::Format("%s: has %zu points, fewer than the %u to choose", a.file.c_str(),
                                        prepared.scan.points.size(), a.points));
    const Path path = FindPath(prepared.scan, a, console);
    try {
        Print(path, a, Write(path, prepared, a));
    } catch (const OutputError&) {
        Print(path, a, {});
        throw;
    }
}

} // namespace

void AddPath(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("path", "Choose points on a scan and a short path through them");
    auto a = std::make_shared<Arguments>();
    command->add_option("SCAN", a->file, "The scan")->required();
    a->clouds.AddTo(*command);
    command->add_option("--points", a->points, "How many points to choose, as far apart as possible")
        ->required()
        ->check(Between(1, 100000));
    command->add_flag("--closed", a->isClosed, "Return to the first point");
    command
        ->add_option("--rounds", a->rounds,
                     "Attempts to shorten the path. Default: 1000, or as many as there are points if that is more")
        ->check(Between(1, 1000000000));
    command->add_option("--out", a->directory, "Directory for path.txt (x y z nx ny nz), path.json and path.png");
    command->add_flag("--json", a->json, "Print the path as JSON");
    command->add_flag("--quiet", a->quiet, "Print no notes and no progress bar");
    command->footer("The path goes straight from point to point; what lies in between is not considered.\n"
                    "Example: voalgo path part.ply --points 100 --out inspection");
    command->callback([a, &exitCode] {
        Run(*a);
        exitCode = Done;
    });
}

} // namespace voalgo
