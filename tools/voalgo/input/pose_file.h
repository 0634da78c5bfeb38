#pragma once

#include "exchange/report/outcome.h"

#include <string>

namespace voalgo {

/// Four lines of four numbers.
std::string PoseText(const PoseMatrix& pose);
/// Reads 16 numbers, row by row, separated by blanks, commas or line ends; what follows a # is skipped. Throws
/// InputError with the file's name when they are no rigid pose.
VoAlgo::CTrafo ReadPose(const std::string& path, double mmPerUnit);

} // namespace voalgo
