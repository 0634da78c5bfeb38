#include "input/cloud_options.h"

#include "VoAlgorithms/verdict/scanfault.h"
#include "exchange/files/input_error.h"
#include "exchange/files/read_cloud.h"
#include "input/between.h"

#include <CLI/CLI.hpp>

#include <future>

namespace voalgo {

namespace {

void Report(const prereg::PreparedScan& prepared, Console& console)
{
    const prereg::Remarks remarks = Describe(prepared);
    const std::string about = prepared.scan.name + ": ";
    for (const std::string& note : remarks.notes) console.Note(about + note);
    for (const std::string& warning : remarks.warnings) console.Warn(about + warning);
}

} // namespace

void CloudOptions::AddTo(CLI::App& command)
{
    command.add_option("--unit", unit, "Unit of the files' coordinates, and of all lengths in JSON")
        ->check(CLI::IsMember(UnitNames()))
        ->capture_default_str();
    command
        .add_option("--viewpoint", viewpoint,
                    "Where the scanner stood, x,y,z in the files' unit; estimated normals "
                    "point towards it. Default: outwards")
        ->expected(3)
        ->delimiter(',')
        ->check(Between(-LongestLength, LongestLength));
}

LengthUnit CloudOptions::Unit() const
{
    return UnitOf(unit).value();
}

prereg::PreparedScan CloudOptions::Load(const std::string& path) const
{
    const double scale = Unit().mm;
    prereg::Scan scan = ReadCloud(path, scale);
    scan.name = path;
    if (!viewpoint.empty()) scan.viewpoint = {viewpoint[0] * scale, viewpoint[1] * scale, viewpoint[2] * scale};
    prereg::PreparedScan prepared = prereg::PrepareScan(std::move(scan));
    if (prepared.scan.points.empty()) throw InputError(path + ": " + FindFault(prepared).text);
    return prepared;
}

prereg::PreparedScan CloudOptions::Load(const std::string& path, Console& console) const
{
    prereg::PreparedScan prepared = Load(path);
    Report(prepared, console);
    return prepared;
}

std::pair<prereg::PreparedScan, prereg::PreparedScan>
CloudOptions::LoadPair(const std::string& fix, const std::string& flt, Console& console) const
{
    std::future<prereg::PreparedScan> other = std::async(std::launch::async, [&] { return Load(flt); });
    prereg::PreparedScan first = Load(fix, console); // its error comes first
    std::pair<prereg::PreparedScan, prereg::PreparedScan> both(std::move(first), other.get());
    Report(both.second, console);
    return both;
}

} // namespace voalgo
