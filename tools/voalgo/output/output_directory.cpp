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

prereg::Scan Moved(const prereg::Scan& cloud, const VoAlgo::CTrafo& pose)
{
    prereg::Scan moved = cloud;
    for (auto& p : moved.points) p = pose * p;
    for (auto& n : moved.normals) n = pose.Rotate(n);
    return moved;
}

prereg::Scan InFileUnit(prereg::Scan cloud, double mmPerUnit)
{
    for (auto& p : cloud.points) p /= static_cast<float>(mmPerUnit);
    return cloud;
}

void WriteClouds(const std::string& path, const prereg::Scan& fix, const prereg::Scan& moved, double mmPerUnit)
{
    const prereg::Scan a = InFileUnit(fix, mmPerUnit), b = InFileUnit(moved, mmPerUnit);
    WritePly(path, {{&a, FixColour}, {&b, FltColour}});
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
        WriteText(path("pose.txt"), PoseText(InUnit(best, outcome.mmPerUnit)));
        WriteClouds(path("registered.ply"), outcome.fix.scan, *moved, outcome.mmPerUnit);
    }
    WritePicture(path(moved ? "registered.png" : "unregistered.png"), outcome.fix.scan, outcome.flt.scan, moved,
                 std::max(outcome.fix.spacing, outcome.flt.spacing));
    WriteText(path("case.bson"),
              CaseBytes(*registration.fix, *registration.flt, registration.settings.config,
                        {registration.results.begin(), registration.results.end()}, {outcome.preset, outcome.unit}));
    RemoveStale(directory, files);
    return files;
}

} // namespace voalgo
