#include "input/scan_or_model.h"

#include "exchange/files/input_error.h"
#include "exchange/files/read_mesh.h"

#include <algorithm>
#include <optional>

namespace voalgo {

namespace {

using prereg::PreparedScan;
using Model = std::optional<prereg::TriangleMesh>;

PreparedScan Sampled(const prereg::TriangleMesh& mesh, double spacing, const std::string& path, Console& console)
{
    prereg::SampledMesh sampled = SampleMesh(mesh, spacing);
    if (sampled.scan.points.empty()) throw InputError(path + ": the faces of the mesh have no area");
    console.Note(path + ": " + Describe(sampled));
    sampled.scan.name = path;
    return PrepareScan(std::move(sampled.scan));
}

} // namespace

std::pair<PreparedScan, PreparedScan> LoadScansOrModels(const CloudOptions& options, const std::string& fix,
                                                        const std::string& flt, Console& console)
{
    const Model fixModel = ReadMesh(fix, options.Unit().mm), fltModel = ReadMesh(flt, options.Unit().mm);
    if (fixModel && fltModel) {
        const double spacing = std::min(DefaultSpacing(*fixModel), DefaultSpacing(*fltModel));
        PreparedScan first = Sampled(*fixModel, spacing, fix, console);
        return {std::move(first), Sampled(*fltModel, spacing, flt, console)};
    }
    if (fixModel) {
        PreparedScan second = options.Load(flt, console);
        PreparedScan first = Sampled(*fixModel, second.spacing, fix, console);
        return {std::move(first), std::move(second)};
    }
    if (!fltModel) return options.LoadPair(fix, flt, console);
    PreparedScan first = options.Load(fix, console);
    PreparedScan second = Sampled(*fltModel, first.spacing, flt, console);
    return {std::move(first), std::move(second)};
}

} // namespace voalgo
