#include "read_model.h"

#include "errors.h"
#include "files.h"
#include "ply_header.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <cmath>
#include <limits>

namespace voalgo {

namespace {

kdtree::Vector<3> Convert(const aiVector3D& v)
{
    return {v.x, v.y, v.z};
}

/// Polygons are cut into a fan of triangles; points and lines give none.
void AppendFace(Mesh& mesh, const aiFace& face, std::uint32_t firstVertex)
{
    for (unsigned k = 2; k < face.mNumIndices; ++k)
        mesh.triangles.push_back(
            {firstVertex + face.mIndices[0], firstVertex + face.mIndices[k - 1], firstVertex + face.mIndices[k]});
}

void Append(Model& model, const aiMesh& part)
{
    const auto firstVertex = static_cast<std::uint32_t>(model.mesh.vertices.size());
    for (unsigned i = 0; i < part.mNumVertices; ++i) {
        model.mesh.vertices.push_back(Convert(part.mVertices[i]));
        if (part.HasNormals()) model.normals.push_back(Convert(part.mNormals[i]));
    }
    for (unsigned i = 0; i < part.mNumFaces; ++i) AppendFace(model.mesh, part.mFaces[i], firstVertex);
}

void RequireVerticesOfTriangles(const Mesh& mesh, const std::string& path)
{
    for (const auto& triangle : mesh.triangles)
        for (const std::uint32_t corner : triangle)
            if (corner >= mesh.vertices.size()) throw InputError(path + ": a face names a vertex that is not there");
}

} // namespace

Model ReadModel(const std::string& path)
{
    RequireFile(path);
    if (Ending(path) == ".ply") RequireSoundPlyHeader(path);
    Assimp::Importer importer;
    // No post-processing: it would merge, drop or reorder points.
    const aiScene* scene = importer.ReadFile(path, 0);
    if (scene == nullptr)
        throw InputError(path + ": not readable as a cloud or mesh (" + importer.GetErrorString() + ")");
    Model model;
    for (unsigned i = 0; i < scene->mNumMeshes; ++i) Append(model, *scene->mMeshes[i]);
    RequireVerticesOfTriangles(model.mesh, path);
    if (model.normals.size() != model.mesh.vertices.size()) model.normals.clear();
    return model;
}

} // namespace voalgo
