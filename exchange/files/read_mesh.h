#pragma once

#include "VoAlgorithms/verdict/samplemesh.h"

#include <optional>
#include <string>

namespace voalgo {

/// The mesh in a PLY or OBJ file with faces, or in an STL file; coordinates are multiplied by mmPerUnit. None for files
/// without faces and of other types, which are clouds. Throws InputError with the file's name and the reason, also for
/// a vertex that is not finite.
std::optional<prereg::TriangleMesh> ReadMesh(const std::string& path, double mmPerUnit);

/// The spacing (mm) at which a mesh is sampled when nothing else asks for another: a 200th of its diagonal.
double DefaultSpacing(const prereg::TriangleMesh& mesh);

/// What to tell about a sampled mesh, in one sentence.
std::string Describe(const prereg::SampledMesh& sampled);

} // namespace voalgo
