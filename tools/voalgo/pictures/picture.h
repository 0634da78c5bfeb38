#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <optional>
#include <string>

namespace voalgo {

/// The colours of both clouds wherever they are shown; told apart by colour-blind people too.
inline constexpr unsigned char FixColour[3] = {230, 159, 0};
inline constexpr unsigned char FltColour[3] = {0, 114, 178};

/// Writes a PNG of both clouds from two sides: as they lie, and below that with flt in its place, when there is one.
/// `spacing`: of the clouds' points, mm.
void WritePicture(const std::string& path, const prereg::Scan& fix, const prereg::Scan& flt,
                  const std::optional<prereg::Scan>& moved, double spacing);

} // namespace voalgo
