#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <optional>
#include <string>

namespace voalgo {

///@{
/// Reads the points of a PLY or OBJ file without faces, in mm, with their normals if all have one; floats in
/// millimetres are kept exactly. Nothing for a file with faces, or of a form that only ReadModel knows. Throws
/// InputError with the file's name and the reason.
std::optional<prereg::Scan> ReadPlyPoints(const std::string& path, double mmPerUnit);
std::optional<prereg::Scan> ReadObjPoints(const std::string& path, double mmPerUnit);
///@}

} // namespace voalgo
