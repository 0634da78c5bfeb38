#include "cloud_options.h"

#include "read_cloud.h"

#include <CLI/CLI.hpp>

namespace voalgo {

void CloudOptions::AddTo(CLI::App& command)
{
    command.add_option("--unit", unit, "Unit of the files' coordinates")
        ->check(CLI::IsMember({"mm", "cm", "m"}))
        ->capture_default_str();
    command
        .add_option("--viewpoint", viewpoint,
                    "Where the scanner stood, x,y,z in the files' unit: estimated normals "
                    "point towards it; default: outwards")
        ->expected(3)
        ->delimiter(',');
}

double CloudOptions::MmPerUnit() const
{
    if (unit == "m") return 1000.0;
    return unit == "cm" ? 10.0 : 1.0;
}

PreparedCloud CloudOptions::Load(const std::string& path) const
{
    std::optional<kdtree::Vector<3>> eye;
    if (!viewpoint.empty()) {
        const double scale = MmPerUnit();
        eye.emplace(static_cast<float>(viewpoint[0] * scale), static_cast<float>(viewpoint[1] * scale),
                    static_cast<float>(viewpoint[2] * scale));
    }
    return PrepareCloud(ReadCloud(path), path, MmPerUnit(), eye);
}

PreparedCloud CloudOptions::Load(const std::string& path, Console& console) const
{
    PreparedCloud prepared = Load(path);
    const Remarks remarks = Describe(prepared);
    const std::string about = path + ": ";
    for (const std::string& note : remarks.notes) console.Note(about + note);
    for (const std::string& warning : remarks.warnings) console.Warn(about + warning);
    return prepared;
}

} // namespace voalgo
