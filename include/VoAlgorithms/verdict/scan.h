#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace prereg {

/// A scan as the host provides it.
struct VOALGO_API Scan {
    std::vector<kdtree::Vector<3>> points;           ///< mm
    std::vector<kdtree::Vector<3>> normals;          ///< unit length, one per point; empty: estimated from the points
    std::optional<kdtree::Vector<3>> viewpoint = {}; ///< where the scanner stood, mm; orients estimated normals
    std::string name = {};                           ///< for messages; empty: its role, "fix" or "flt"
    double meshSpacing = 0.0; ///< mm, the spacing at which the points were sampled on a mesh; 0: not sampled

    ///@{
    /// A copy of n packed triples x y z, mm, and of as many normals, or null when there are none.
    [[nodiscard]] static Scan From(const float* points, std::size_t n, const float* normals = nullptr);
    [[nodiscard]] static Scan From(const double* points, std::size_t n, const double* normals = nullptr);
    ///@}
};

} // namespace prereg
