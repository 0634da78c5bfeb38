#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <optional>
#include <string>

namespace voalgo {

/// Reads the points of an OBJ file without faces, in mm, with their normals if all have one. Nothing for a file with
/// faces, or of a form that only ReadModel knows. Throws InputError with the file's name and the reason.
std::optional<prereg::Scan> ReadObjPoints(const std::string& path, double mmPerUnit);

} // namespace voalgo
