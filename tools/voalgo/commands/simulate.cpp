#include "simulation/simulate.h"
#include "commands/commands.h"
#include "exchange/files/files.h"
#include "exchange/files/read_model.h"
#include "exchange/files/staged_directory.h"
#include "exchange/files/write_ply.h"
#include "input/between.h"
#include "output/distinct_files.h"
#include "platform/format.h"
#include "simulation/free_form.h"
#include "terminal/console.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace voalgo {

namespace {

struct Arguments {
    SimulationSettings settings;
    std::string directory;
    std::string meshFile;
    double size = 0.0;
    double noise = -1.0;
};

Mesh Object(const Arguments& arguments)
{
    if (arguments.meshFile.empty())
        return FreeFormObject(arguments.settings.seed, arguments.size > 0.0 ? arguments.size : 100.0,
                              std::max<std::size_t>(200000, std::size_t{12} * arguments.settings.points));
    const prereg::TriangleMesh read = ReadModel(arguments.meshFile).mesh;
    Mesh mesh{{}, read.triangles};
    for (const auto& [x, y, z] : read.vertices)
        mesh.vertices.emplace_back(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
    CentreAndScale(mesh, arguments.size);
    return mesh;
}

double LargestExtent(const Mesh& mesh)
{
    float extent = 0.0F;
    for (const auto& v : mesh.vertices)
        for (unsigned i = 0; i < 3; ++i) extent = std::max(extent, 2.0F * std::abs(v[i]));
    return extent;
}

std::string PoseText(const Frame& pose)
{
    std::string text;
    for (unsigned row = 0; row < 3; ++row)
        text += VoAlgo::Format("%.9g %.9g %.9g %.9g\n", pose.axis[0][row], pose.axis[1][row], pose.axis[2][row],
                               pose.origin[row]);
    return text + "0 0 0 1\n";
}

void Run(Arguments arguments)
{
    const std::vector<std::string> names = {"fix.ply", "flt.ply", "truth.txt"};
    std::vector<std::string> outputs = {arguments.directory};
    for (const std::string& name : names) outputs.push_back(InDirectory(arguments.directory, name));
    RequireDistinct({arguments.meshFile}, outputs);
    (void)StagedDirectory(arguments.directory, names); // better to fail now than after the work
    const Mesh object = Object(arguments);
    arguments.settings.noise = arguments.noise >= 0.0 ? arguments.noise : LargestExtent(object) / 2000.0;
    const Simulation s = Simulate(object, arguments.settings);
    StagedDirectory out(arguments.directory, names);
    out.Add("fix.ply", [&](const std::string& path) { WritePly(path, s.fix); });
    out.Add("flt.ply", [&](const std::string& path) { WritePly(path, s.flt); });
    out.Add("truth.txt", [&](const std::string& path) { WriteText(path, PoseText(s.truth)); });
    out.Keep();
    std::printf("fix.ply    %zu points, %.3f of them in the overlap\n", s.fix.points.size(), s.overlapFix);
    std::printf("flt.ply    %zu points, %.3f of them in the overlap\n", s.flt.points.size(), s.overlapFlt);
    std::printf("truth.txt  maps flt into fix; views %.1f degrees apart, spacing %.3f mm, noise %.3f mm\n", s.angle,
                s.spacing, arguments.settings.noise);
    const double reached = std::min(s.overlapFix, s.overlapFlt) / (1.0 - arguments.settings.clutter);
    if (std::abs(reached - arguments.settings.overlap) > 0.05)
        Console(true).Warn(
            VoAlgo::Format("overlap %.2f without clutter instead of %.2f: no angle between the views comes closer",
                           reached, arguments.settings.overlap));
}

} // namespace

void AddSimulate(CLI::App& tool, int& exitCode)
{
    CLI::App* command = tool.add_subcommand("simulate", "Make two virtual scans of an object and their true pose");
    auto a = std::make_shared<Arguments>();
    command->add_option("--out", a->directory, "Directory for fix.ply, flt.ply (mm) and truth.txt")->required();
    command->add_option("--mesh", a->meshFile,
                        "Triangle mesh to scan (PLY, OBJ, STL; mm). Default: a free-form object");
    command->add_option("--size", a->size, "Largest extent of the object, mm. Default: 100, or that of the mesh")
        ->check(Between(1e-6, LongestLength));
    command->add_option("--points", a->settings.points, "Approximate number of points of a scan")
        ->check(Between(100, 5000000))
        ->capture_default_str();
    command
        ->add_option(
            "--overlap", a->settings.overlap,
            "Share of a scan's points that the other scan sees, too; the smaller of both shares, without clutter")
        ->check(Between(0.0, 1.0))
        ->capture_default_str();
    command->add_option("--noise", a->noise, "Standard deviation of the range, mm. Default: size / 2000")
        ->check(Between(0.0, LongestLength));
    const auto length = [&](const char* name, double& value, const char* help) {
        command->add_option(name, value, help)->check(Between(0.0, LongestLength))->capture_default_str();
    };
    length("--correlation", a->settings.correlation,
           "Length over which the noise is alike, mm; 0 or less than the spacing: independent");
    length("--warp", a->settings.warp, "Root mean square of a smooth calibration error of the range, mm");
    length("--quantum", a->settings.quantum, "Depths are multiples of this, mm; 0: not rounded");
    command->add_option("--smear", a->settings.smear, "Share of the points beside depth steps that float between")
        ->check(Between(0.0, 1.0))
        ->capture_default_str();
    command->add_option("--holes", a->settings.holes, "Share of the surface that returns nothing, in patches")
        ->check(Between(0.0, 0.9))
        ->capture_default_str();
    command
        ->add_option("--clutter", a->settings.clutter,
                     "Share of a scan's points that are stray or lie on another object")
        ->check(Between(0.0, 0.9))
        ->capture_default_str();
    command->add_option("--seed", a->settings.seed, "Seed of the object, the views and the pose")
        ->capture_default_str();
    command->footer("Example: voalgo simulate --out scans --overlap 0.4 --seed 7");
    command->callback([a, &exitCode] {
        Run(*a);
        exitCode = 0;
    });
}

} // namespace voalgo
