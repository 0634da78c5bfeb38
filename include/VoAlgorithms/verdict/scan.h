#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace prereg {

/// A scan as the host provides it. Points are stored in single precision relative to an origin in double precision, so
/// that a scan keeps its digits wherever it lies: its coordinates are origin + point.
struct VOALGO_API Scan {
    std::vector<kdtree::Vector<3>> points;  ///< mm, relative to the origin
    std::vector<kdtree::Vector<3>> normals; ///< unit length, one per point; empty: estimated from the points
    /// Where the scanner stood, mm, in the frame of the coordinates; orients estimated normals.
    std::optional<std::array<double, 3>> viewpoint = {};
    std::string name = {};             ///< for messages; empty: its role, "fix" or "flt"
    std::array<double, 3> origin = {}; ///< mm
    double meshSpacing = 0.0;          ///< mm, at which the points were sampled on a mesh; 0: not sampled

    ///@{
    /// A copy of n packed triples x y z, mm, and of as many normals, or null when there are none. Floats are kept
    /// exactly, with origin 0; for doubles the origin is the centre of their bounding box.
    [[nodiscard]] static Scan From(const float* points, std::size_t n, const float* normals = nullptr);
    [[nodiscard]] static Scan From(const double* points, std::size_t n, const double* normals = nullptr);
    ///@}

    /// Coordinates of point i, mm.
    [[nodiscard]] std::array<double, 3> At(std::size_t i) const;
    /// The viewpoint relative to the origin, as the points are.
    [[nodiscard]] std::optional<kdtree::Vector<3>> LocalViewpoint() const;
};

} // namespace prereg
