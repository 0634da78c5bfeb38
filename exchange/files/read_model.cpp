#include "exchange/files/read_model.h"

#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/ply_header.h"
#include "platform/format.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace voalgo {

namespace {

kdtree::Vector<3> Convert(const aiVector3D& v)
{
    return {v.x, v.y, v.z};
}

/// Splits a polygon into a fan of triangles; points and lines give none.
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

void AppendAll(Model& model, const aiScene& scene)
{
    for (unsigned i = 0; i < scene.mNumMeshes; ++i) Append(model, *scene.mMeshes[i]);
}

void RequireVerticesOfTriangles(const Mesh& mesh, const std::string& path)
{
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
        for (const std::uint32_t corner : mesh.triangles[t])
            if (corner >= mesh.vertices.size())
                throw InputError(path + VoAlgo::Format(": a face refers to a vertex that does not exist: triangle %zu "
                                                       "has vertex %u of %zu, counted from 0",
                                                       t, corner, mesh.vertices.size()));
}

/// Reads a PLY file. The reader library mistakes bytes that look like line ends, right after the header of a binary
/// file, for part of the header and shifts all data. Such a first byte is therefore changed by one and restored in the
/// coordinate that was read.
const aiScene* ReadPly(Assimp::Importer& importer, const std::string& path, Model& model)
{
    const PlyHeader header = ReadPlyHeader(path);
    std::string bytes = ReadText(path);
    const char first = header.isBinary && header.dataOffset < bytes.size() ? bytes[header.dataOffset] : '\0';
    const bool isLineEnd = first == '\n' || first == '\r';
    if (isLineEnd) bytes[header.dataOffset] = static_cast<char>(first == '\n' ? first + 1 : first - 1);
    const aiScene* scene = importer.ReadFileFromMemory(bytes.data(), bytes.size(), 0, "ply");
    if (scene == nullptr) return nullptr;
    AppendAll(model, *scene);
    if (isLineEnd && header.beginsWithSingleX && !model.mesh.vertices.empty()) {
        float& x = model.mesh.vertices[0].x;
        x = std::bit_cast<float>((std::bit_cast<std::uint32_t>(x) & ~0xFFU) | static_cast<unsigned char>(first));
    }
    return scene;
}

} // namespace

Model ReadModel(const std::string& path)
{
    RequireFile(path);
    Assimp::Importer importer;
    Model model;
    const aiScene* scene = nullptr;
    if (Ending(path) == ".ply") {
        scene = ReadPly(importer, path, model);
    } else {
        scene = importer.ReadFile(path, 0); // no post-processing, which would merge, drop or reorder points
        if (scene != nullptr) AppendAll(model, *scene);
    }
    if (scene == nullptr)
        throw InputError(path + ": cannot be read as a cloud or mesh (" + importer.GetErrorString() + ")");
    RequireVerticesOfTriangles(model.mesh, path);
    if (model.normals.size() != model.mesh.vertices.size()) model.normals.clear();
    return model;
}

} // namespace voalgo
