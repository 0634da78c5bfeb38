#include "output_directory.h"

#include "case_file.h"
#include "files.h"
#include "picture.h"
#include "pose_file.h"
#include "write_ply.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace voalgo {

namespace {

Cloud Moved(const Cloud& cloud, const VoAlgo::CTrafo& pose)
{
    Cloud moved = cloud;
    for (auto& p : moved.points) p = pose * p;
    for (auto& n : moved.normals) n = pose.Rotate(n);
    return moved;
}

Cloud InFileUnit(Cloud cloud, double mmPerUnit)
{
    for (auto& p : cloud.points) p /= static_cast<float>(mmPerUnit);
    return cloud;
}

void WriteClouds(const std::string& path, const Cloud& fix, const Cloud& moved, double mmPerUnit)
{
    const Cloud a = InFileUnit(fix, mmPerUnit), b = InFileUnit(moved, mmPerUnit);
    WritePly(path,
             {{&a, {FixColour[0], FixColour[1], FixColour[2]}}, {&b, {FltColour[0], FltColour[1], FltColour[2]}}});
}

} // namespace

void WriteOutput(const std::string& directory, const Report& report)
{
    WriteText(InDirectory(directory, "result.json"), ToJson(report).dump(2) + "\n");
    const Registration& registration = report.registration;
    WriteText(InDirectory(directory, "case.bson"),
              CaseBytes(*registration.fix, *registration.flt, report.settings.config,
                        {registration.results.begin(), registration.results.end()}, {report.preset, report.unit}));
    std::optional<Cloud> moved;
    if (registration.reason.empty()) {
        const VoAlgo::CTrafo& best = registration.results.front().trafo;
        moved = Moved(report.flt.cloud, best);
        WriteText(InDirectory(directory, "pose.txt"), PoseText(InUnit(best, report.mmPerUnit)));
        WriteClouds(InDirectory(directory, "registered.ply"), report.fix.cloud, *moved, report.mmPerUnit);
    }
    WritePicture(InDirectory(directory, moved ? "registered.png" : "unregistered.png"), report.fix.cloud,
                 report.flt.cloud, moved, std::max(report.fix.spacing, report.flt.spacing));
}

void PrepareOutput(const std::string& directory)
{
    MakeDirectory(directory);
    for (const char* name :
         {"result.json", "pose.txt", "registered.ply", "registered.png", "unregistered.png", "case.bson"})
        std::remove(InDirectory(directory, name).c_str());
}

} // namespace voalgo
