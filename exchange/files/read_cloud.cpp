#include "exchange/files/read_cloud.h"

#include "VoAlgorithms/verdict/sameplace.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/read_model.h"
#include "exchange/files/read_obj_points.h"
#include "exchange/files/read_ply.h"
#include "exchange/files/read_xyz.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <optional>
#include <utility>

namespace voalgo {

namespace {

bool IsOneOf(const std::string& ending, std::initializer_list<const char*> known)
{
    return std::find(known.begin(), known.end(), ending) != known.end();
}

/// The vertices, in mm; floats in millimetres are kept exactly.
prereg::Scan ScanOf(const prereg::TriangleMesh& mesh, double mmPerUnit)
{
    const auto isFloat = [](double v) { return std::isnan(v) || double{static_cast<float>(v)} == v; };
    const bool keepsFloats =
        mmPerUnit == 1.0 && std::all_of(mesh.vertices.begin(), mesh.vertices.end(),
                                        [&](const auto& v) { return std::all_of(v.begin(), v.end(), isFloat); });
    std::vector<double> packed;
    packed.reserve(3 * mesh.vertices.size());
    for (const auto& vertex : mesh.vertices)
        for (const double v : vertex) packed.push_back(v * mmPerUnit);
    prereg::Scan scan;
    if (!keepsFloats)
        scan = prereg::Scan::From(packed.data(), mesh.vertices.size());
    else
        for (const auto& [x, y, z] : mesh.vertices)
            scan.points.emplace_back(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
    return scan;
}

/// For each vertex, the sum of its triangles' normals, each as long as twice the area of its triangle.
void AddNormalsOfTriangles(prereg::Scan& scan, const prereg::TriangleMesh& mesh)
{
    scan.normals.assign(scan.points.size(), {});
    for (const auto& [a, b, c] : mesh.triangles) {
        const auto normal = (scan.points[b] - scan.points[a]).Cross(scan.points[c] - scan.points[a]);
        for (const auto corner : {a, b, c}) scan.normals[corner] += normal;
    }
}

/// Keeps each place once, with the mean direction of its normals: formats without shared vertices, and those that split
/// a vertex whose normals differ, repeat places.
void Merge(prereg::Scan& scan)
{
    const std::vector<std::size_t> first = prereg::FirstAtSamePlace(scan.points);
    for (std::size_t i = 0; i < first.size(); ++i)
        if (first[i] != i) scan.normals[first[i]] += scan.normals[i];
    std::size_t kept = 0;
    for (std::size_t i = 0; i < first.size(); ++i) {
        if (first[i] != i) continue;
        const float length = scan.normals[i].Norm();
        scan.points[kept] = scan.points[i];
        scan.normals[kept++] = length > 0.0F ? scan.normals[i] / length : kdtree::Vector<3>();
    }
    scan.points.resize(kept);
    scan.normals.resize(kept);
}

prereg::Scan CloudOf(Model model, bool facetNormals, double mmPerUnit)
{
    prereg::Scan scan = ScanOf(model.mesh, mmPerUnit);
    scan.normals = std::move(model.normals);
    if (model.mesh.triangles.empty()) return scan;
    if (scan.normals.empty() || facetNormals) AddNormalsOfTriangles(scan, model.mesh);
    Merge(scan);
    return scan;
}

prereg::Scan ReadPly(const std::string& path, double mmPerUnit)
{
    std::ifstream file(path, std::ios::binary);
    PlyReader reader(file, path);
    return reader.HasFaces() ? CloudOf(reader.Surface(), false, mmPerUnit) : reader.Points(mmPerUnit);
}

prereg::Scan ReadObj(const std::string& path, double mmPerUnit)
{
    std::optional<prereg::Scan> points = ReadObjPoints(path, mmPerUnit);
    return points ? std::move(*points) : CloudOf(ReadModel(path), false, mmPerUnit);
}

} // namespace

prereg::Scan ReadCloud(const std::string& path, double mmPerUnit)
{
    RequireFile(path);
    const std::string ending = Ending(path);
    prereg::Scan cloud;
    if (ending == ".ply")
        cloud = ReadPly(path, mmPerUnit);
    else if (ending == ".obj")
        cloud = ReadObj(path, mmPerUnit);
    else if (ending == ".stl")
        cloud = CloudOf(ReadModel(path), true, mmPerUnit);
    else if (IsOneOf(ending, {".xyz", ".xyzn", ".txt", ".asc", ".csv"}))
        cloud = ReadXyz(path, mmPerUnit);
    else
        throw InputError(path +
                         ": unknown file type; expected .ply, .obj, .stl, or text (.xyz, .xyzn, .txt, .asc, .csv)");
    if (cloud.points.empty()) throw InputError(path + ": contains no points");
    return cloud;
}

} // namespace voalgo
