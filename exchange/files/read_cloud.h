#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <string>

namespace voalgo {

/// Reads a cloud; the ending of the file's name says how: .ply, .obj and .stl, or text (.xyz, .xyzn, .txt, .asc, .csv).
/// Points are in mm and keep the file's order, digits and faults; normals are empty when the file has none. A mesh
/// gives its vertices, each place once, with the mean of the normals there, or of the adjacent triangles' normals,
/// weighted by area. Throws InputError with the file's name and the reason.
prereg::Scan ReadCloud(const std::string& path, double mmPerUnit = 1.0);

} // namespace voalgo
