#include "output/output_directory.h"

#include "exchange/files/files.h"
#include "exchange/files/write_ply.h"
#include "input/case_file.h"
#include "input/pose_file.h"
#include "pictures/picture.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace voalgo {

namespace {

constexpr double LargestError = 1e-4; // of a written point, times the spacing

/// In the local frame of fix.
prereg::Scan Moved(const prereg::Scan& cloud, const VoAlgo::CTrafo& pose)
{
    prereg::Scan moved = cloud;
    for (auto& p : moved.points) p = pose * p;
    for (auto& n : moved.normals) n = pose.Rotate(n);
    return moved;
}

/// Removes files of an earlier run that this one did not write.
void RemoveStale(const std::string& directory, const std::vector<std::string>& written)
{
    for (const char* name : {"pose.txt", "registered.ply", "registered.png", "unregistered.png"})
        if (const std::string path = InDirectory(directory, name);
            std::find(written.begin(), written.end(), path) == written.end())
            std::remove(path.c_str());
}

} // namespace

std::vector<std::string> WriteOutput(const std::string& directory, const Outcome& outcome)
{
    const prereg::Registration& registration = outcome.registration;
    std::vector<std::string> files;
    const auto path = [&](const char* name) { return files.emplace_back(InDirectory(directory, name)); };
    MakeDirectory(directory);
    WriteText(path("result.json"), JsonText(ToJson(outcome)) + "\n");
    std::optional<prereg::Scan> moved;
    if (registration) {
        const VoAlgo::CTrafo& best = registration.Best().trafo;
        moved = Moved(outcome.flt.scan, best);
        moved->origin = outcome.fix.scan.origin;
        WriteText(path("pose.txt"), PoseText(InUnit(registration.Pose(), outcome.mmPerUnit)));
        const double finest = std::min(outcome.fix.spacing, outcome.flt.spacing);
        WritePly(path("registered.ply"), {{&outcome.fix.scan, FixColour}, {&*moved, FltColour}},
                 {outcome.mmPerUnit, LargestError * finest});
    }
    WritePicture(path(moved ? "registered.png" : "unregistered.png"), outcome.fix.scan, outcome.flt.scan, moved,
                 std::max(outcome.fix.spacing, outcome.flt.spacing));
    WriteText(path("case.bson"),
              CaseBytes(*registration.fix, *registration.flt, registration.settings.config,
                        {registration.results.begin(), registration.results.end()},
                        {outcome.preset, outcome.unit, registration.fixOrigin, registration.fltOrigin}));
    RemoveStale(directory, files);
    return files;
}

} // namespace voalgo
