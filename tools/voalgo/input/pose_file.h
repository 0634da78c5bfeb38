#pragma once

#include "exchange/report/outcome.h"

#include <string>

namespace voalgo {

/// The pose as four lines of four numbers.
std::string PoseText(const PoseMatrix& pose);
/// Reads a pose from 16 numbers, row by row, separated by blanks, commas, semicolons or line ends;
/// everything after a # is skipped. Throws InputError with the file's name when they are not a rigid pose.
VoAlgo::CbMatrix4Rd ReadPose(const std::string& path, const LengthUnit& unit);

} // namespace voalgo
