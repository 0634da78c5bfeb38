#include "output/output_directory.h"

#include "exchange/files/files.h"
#include "exchange/files/write_ply.h"
#include "input/case_file.h"
#include "input/pose_file.h"
#include "pictures/picture.h"

#include <algorithm>
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

} // namespace

const std::vector<std::string>& OutputNames()
{
    static const std::vector<std::string> names = {"result.json",    "pose.txt",         "registered.ply",
                                                   "registered.png", "unregistered.png", "case.bson"};
    return names;
}

void WriteOutput(StagedDirectory& directory, const Outcome& outcome)
{
    const prereg::Registration& registration = outcome.registration;
    const auto text = [&](const char* name, const std::string& content) {
        directory.Add(name, [&](const std::string& path) { WriteText(path, content); });
    };
    text("result.json", JsonText(ToJson(outcome)) + "\n");
    std::optional<prereg::Scan> moved;
    if (registration) {
        const VoAlgo::CTrafo& best = registration.Best().trafo;
        moved = Moved(outcome.flt.scan, best);
        moved->origin = outcome.fix.scan.origin;
        text("pose.txt", PoseText(InUnit(registration.Pose(), outcome.unit)));
        const double finest = std::min(outcome.fix.spacing, outcome.flt.spacing);
        directory.Add("registered.ply", [&](const std::string& path) {
            WritePly(path, {{&outcome.fix.scan, FixColour}, {&*moved, FltColour}},
                     {outcome.unit.mm, LargestError * finest});
        });
    }
    directory.Add(moved ? "registered.png" : "unregistered.png", [&](const std::string& path) {
        WritePicture(path, outcome.fix.scan, outcome.flt.scan, moved,
                     std::max(outcome.fix.spacing, outcome.flt.spacing));
    });
    text("case.bson", CaseBytes(*registration.fix, *registration.flt, registration.settings,
                                {registration.results.begin(), registration.results.end()},
                                {outcome.preset, outcome.unit.name, registration.fixOrigin, registration.fltOrigin,
                                 outcome.checksums.fix, outcome.checksums.flt}));
}

} // namespace voalgo
