#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/mesh.h"
#include "simulation/frame.h"

#include <random>

namespace voalgo {

/// A virtual scanner: one ray per cell of a grid, from a single eye point.
struct Scanner {
    double distance = 500.0;    ///< from the eye to the middle of the object, mm
    double pitch = 1.0;         ///< distance of neighbouring rays at the object, mm
    double reach = 100.0;       ///< half the width of the grid at the object, mm
    double noise = 0.0;         ///< standard deviation of the range, mm
    double maxIncidence = 75.0; ///< surfaces seen at a flatter angle than this from their normal are lost, degrees
};

/// The frame of a scanner that looks along its axis 2 at the world's origin.
Frame ScannerFrame(const Scanner& scanner, const Frame::Axis& viewDirection, double roll);

/// Scans a mesh. The normals are those of the triangles hit, turned towards the eye. `engine` determines the offset of
/// the grid and the noise.
prereg::Scan ScanMesh(const Mesh& mesh, const Scanner& scanner, const Frame& eye, std::mt19937& engine);

} // namespace voalgo
