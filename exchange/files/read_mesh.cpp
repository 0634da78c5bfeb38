#include "exchange/files/read_mesh.h"

#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/read_model.h"
#include "exchange/files/read_ply.h"
#include "platform/finite.h"
#include "platform/format.h"

#include <fstream>

namespace voalgo {

namespace {

/// Whether an OBJ file states a face; clouds of millions of points are not parsed for that.
bool HasObjFace(const std::string& path)
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.size() > 1 && line[0] == 'f' && (line[1] == ' ' || line[1] == '\t')) return true;
    return false;
}

bool HasFaces(const std::string& path)
{
    const std::string ending = Ending(path);
    if (ending == ".ply") {
        std::ifstream file(path, std::ios::binary);
        return PlyReader(file, path).HasFaces();
    }
    return ending == ".stl" || (ending == ".obj" && HasObjFace(path));
}

} // namespace

std::optional<prereg::TriangleMesh> ReadMesh(const std::string& path, double mmPerUnit)
{
    RequireFile(path);
    if (!HasFaces(path)) return std::nullopt;
    prereg::TriangleMesh mesh = ReadModel(path).mesh;
    if (mesh.triangles.empty()) return std::nullopt;
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        if (!VoAlgo::AllFinite(mesh.vertices[i].data(), 3))
            throw InputError(path + VoAlgo::Format(": vertex %zu of the mesh is not finite (NaN, Inf)", i));
        for (double& v : mesh.vertices[i]) v *= mmPerUnit;
    }
    if (!(prereg::DiagonalOf(mesh) > 0.0)) throw InputError(path + ": the faces of the mesh have no area");
    return mesh;
}

double DefaultSpacing(const prereg::TriangleMesh& mesh)
{
    return prereg::DiagonalOf(mesh) / 200.0;
}

std::string Describe(const prereg::SampledMesh& sampled)
{
    std::string text =
        VoAlgo::Format("sampled the surface of the mesh (%zu triangles) with %zu points, spacing %.3g mm",
                       sampled.triangles, sampled.scan.points.size(), sampled.spacing);
    if (sampled.degenerate > 0) text += VoAlgo::Format("; skipped %zu triangles without an area", sampled.degenerate);
    if (sampled.turned > 0) text += VoAlgo::Format("; turned %zu triangles round", sampled.turned);
    if (!sampled.consistent)
        text += "; it has surfaces with a single side, whose normals may be wrong";
    else if (!sampled.closed)
        text += "; it is not closed, so that its normals face the side that the file says";
    return text;
}

} // namespace voalgo
