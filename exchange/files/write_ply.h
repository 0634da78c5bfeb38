#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace voalgo {

using Colour = std::array<std::uint8_t, 3>;

/// A cloud with one colour.
struct ColouredCloud {
    const prereg::Scan* cloud; ///< borrowed
    Colour colour;
};

/// How coordinates are written.
struct PlyForm {
    double mmPerUnit = 1.0; ///< of the file
    double tolerance = 0.0; ///< coordinates are doubles where floats are farther off, mm; 0: or differ at all
};

/// Writes binary little-endian PLY, with normals when every point has one, as a StagedFile; throws OutputError.
void WritePly(const std::string& path, const prereg::Scan& cloud, const PlyForm& form = {});
/// The same for several clouds in one file, with the colour of each.
void WritePly(const std::string& path, const std::vector<ColouredCloud>& clouds, const PlyForm& form = {});

} // namespace voalgo
