#pragma once

#include "VoAlgorithms/numerics/ctrafo.h"

#include <array>
#include <string>

namespace voalgo {

/// A pose as a file states it: row-major 4×4, translation in the file's unit. Its numbers, written with enough digits,
/// read back as the same floats in millimetres.
using PoseMatrix = std::array<std::array<double, 4>, 4>;

PoseMatrix InUnit(const VoAlgo::CTrafo& pose, double mmPerUnit);
/// Four lines of four numbers.
std::string PoseText(const PoseMatrix& pose);
/// Reads 16 numbers, row by row, separated by blanks, commas or line ends; what follows a # is skipped. Throws
/// InputError with the file's name when they are no rigid pose.
VoAlgo::CTrafo ReadPose(const std::string& path, double mmPerUnit);

} // namespace voalgo
