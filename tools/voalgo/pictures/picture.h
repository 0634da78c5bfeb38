#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/write_ply.h"

#include <optional>
#include <string>
#include <vector>

namespace voalgo {

/// The colours of both clouds wherever they are shown; colour-blind people can tell them apart.
inline constexpr Colour FixColour = {230, 159, 0};
inline constexpr Colour FltColour = {0, 114, 178};

/// Writes a PNG of both clouds, seen from two sides: as loaded and, below that, with flt moved if a pose was found.
/// `spacing`: mean distance of neighbouring points, mm.
void WritePicture(const std::string& path, const prereg::Scan& fix, const prereg::Scan& flt,
                  const std::optional<prereg::Scan>& moved, double spacing);

/// Writes a PNG of any clouds below a caption, seen from two sides.
void WritePicture(const std::string& path, const std::string& caption, const std::vector<ColouredCloud>& clouds,
                  double spacing);

} // namespace voalgo
