#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <string>

namespace voalgo {

/// Reads a cloud by the ending of the file's name: .ply, .obj and .stl, or text (.xyz, .xyzn, .txt, .asc, .csv). Points
/// come in the file's order and unit, faults included; normals are empty when the file has none. Of a mesh the vertices
/// are taken, each place once, with the mean of its normals (of its triangles' normals by area, when it has no others).
/// Throws InputError with the file's name and the reason.
prereg::Scan ReadCloud(const std::string& path);

} // namespace voalgo
