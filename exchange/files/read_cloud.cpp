#include "exchange/files/read_cloud.h"

#include "VoAlgorithms/verdict/sameplace.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/read_model.h"
#include "exchange/files/read_points.h"
#include "exchange/files/read_xyz.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace voalgo {

namespace {

bool IsOneOf(const std::string& ending, std::initializer_list<const char*> known)
{
    return std::find(known.begin(), known.end(), ending) != known.end();
}

/// For each vertex, the sum of its triangles' normals, each as long as twice the area of its triangle.
std::vector<kdtree::Vector<3>> NormalsOfTriangles(const Mesh& mesh)
{
    std::vector<kdtree::Vector<3>> normals(mesh.vertices.size());
    for (const auto& [a, b, c] : mesh.triangles) {
        const auto normal = (mesh.vertices[b] - mesh.vertices[a]).Cross(mesh.vertices[c] - mesh.vertices[a]);
        for (const auto corner : {a, b, c}) normals[corner] += normal;
    }
    return normals;
}

/// The vertices, each place once: formats without shared vertices, and those that split a vertex whose normals differ,
/// repeat places.
prereg::Scan VerticesOf(const Mesh& mesh, const std::vector<kdtree::Vector<3>>& normals)
{
    const std::vector<std::size_t> first = prereg::FirstAtSamePlace(mesh.vertices);
    std::vector<kdtree::Vector<3>> sums(mesh.vertices.size());
    for (std::size_t i = 0; i < sums.size(); ++i) sums[first[i]] += normals[i];
    prereg::Scan cloud;
    for (std::size_t i = 0; i < sums.size(); ++i) {
        if (first[i] != i) continue;
        const float length = sums[i].Norm();
        cloud.points.push_back(mesh.vertices[i]);
        cloud.normals.push_back(length > 0.0F ? sums[i] / length : kdtree::Vector<3>());
    }
    return cloud;
}

prereg::Scan CloudOf(Model model, bool facetNormals)
{
    if (model.mesh.triangles.empty()) return {std::move(model.mesh.vertices), std::move(model.normals)};
    const bool given = !model.normals.empty() && !facetNormals;
    return VerticesOf(model.mesh, given ? model.normals : NormalsOfTriangles(model.mesh));
}

prereg::Scan Scaled(prereg::Scan cloud, double factor)
{
    if (factor != 1.0)
        for (auto& p : cloud.points) p *= static_cast<float>(factor);
    return cloud;
}

} // namespace

prereg::Scan ReadCloud(const std::string& path, double mmPerUnit)
{
    RequireFile(path);
    const std::string ending = Ending(path);
    prereg::Scan cloud;
    std::optional<prereg::Scan> points;
    if (ending == ".ply") points = ReadPlyPoints(path, mmPerUnit);
    if (ending == ".obj") points = ReadObjPoints(path, mmPerUnit);
    if (points)
        cloud = std::move(*points);
    else if (IsOneOf(ending, {".ply", ".obj", ".stl"}))
        cloud = Scaled(CloudOf(ReadModel(path), ending == ".stl"), mmPerUnit);
    else if (IsOneOf(ending, {".xyz", ".xyzn", ".txt", ".asc", ".csv"}))
        cloud = ReadXyz(path, mmPerUnit);
    else
        throw InputError(path +
                         ": unknown file type; expected .ply, .obj, .stl, or text (.xyz, .xyzn, .txt, .asc, .csv)");
    if (cloud.points.empty()) throw InputError(path + ": contains no points");
    return cloud;
}

} // namespace voalgo
