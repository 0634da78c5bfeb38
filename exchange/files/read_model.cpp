#include "exchange/files/read_model.h"

#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/read_ply.h"
#include "platform/format.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <cstdint>
#include <fstream>

namespace voalgo {

namespace {

/// Splits a polygon into a fan of triangles; points and lines give none.
void AppendFace(prereg::TriangleMesh& mesh, const aiFace& face, std::uint32_t firstVertex)
{
    for (unsigned k = 2; k < face.mNumIndices; ++k)
        mesh.triangles.push_back(
            {firstVertex + face.mIndices[0], firstVertex + face.mIndices[k - 1], firstVertex + face.mIndices[k]});
}

void Append(Model& model, const aiMesh& part)
{
    const auto firstVertex = static_cast<std::uint32_t>(model.mesh.vertices.size());
    for (unsigned i = 0; i < part.mNumVertices; ++i) {
        const aiVector3D& v = part.mVertices[i];
        model.mesh.vertices.push_back({v.x, v.y, v.z});
        if (part.HasNormals()) model.normals.emplace_back(part.mNormals[i].x, part.mNormals[i].y, part.mNormals[i].z);
    }
    for (unsigned i = 0; i < part.mNumFaces; ++i) AppendFace(model.mesh, part.mFaces[i], firstVertex);
}

void RequireVerticesOfTriangles(const prereg::TriangleMesh& mesh, const std::string& path)
{
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
        for (const std::uint32_t corner : mesh.triangles[t])
            if (corner >= mesh.vertices.size())
                throw InputError(path + VoAlgo::Format(": a face refers to a vertex that does not exist: triangle %zu "
                                                       "has vertex %u of %zu, counted from 0",
                                                       t, corner, mesh.vertices.size()));
}

Model ReadPly(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return PlyReader(file, path).Surface();
}

} // namespace

Model ReadModel(const std::string& path)
{
    RequireFile(path);
    if (Ending(path) == ".ply") return ReadPly(path);
    Assimp::Importer importer;
    const aiScene* const scene = importer.ReadFile(path, 0); // no post-processing, which would merge or reorder points
    if (scene == nullptr)
        throw InputError(path + ": cannot be read as a cloud or mesh (" + importer.GetErrorString() + ")");
    Model model;
    for (unsigned i = 0; i < scene->mNumMeshes; ++i) Append(model, *scene->mMeshes[i]);
    RequireVerticesOfTriangles(model.mesh, path);
    if (model.normals.size() != model.mesh.vertices.size()) model.normals.clear();
    return model;
}

} // namespace voalgo
