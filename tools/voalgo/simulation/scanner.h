#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "simulation/frame.h"
#include "simulation/mesh.h"

#include <random>

namespace voalgo {

/// A virtual scanner: one ray per cell of a grid, from a single eye point.
struct Scanner {
    double distance = 500.0;    ///< from the eye to the middle of the object, mm
    double pitch = 1.0;         ///< distance of neighbouring rays at the object, mm
    double reach = 100.0;       ///< half the width of the grid at the object, mm
    double noise = 0.0;         ///< standard deviation of the range, mm
    double correlation = 0.0;   ///< length over which the noise is alike, mm; up to the pitch: independent
    double warp = 0.0;          ///< root mean square of a smooth error of the range (calibration), mm
    double quantum = 0.0;       ///< the depth is rounded to multiples of this, mm; 0: not rounded
    double smear = 0.0;         ///< share of the rays beside a step in depth that return a depth between both sides
    double holes = 0.0;         ///< share of the surface, in patches, that returns nothing
    double maxIncidence = 75.0; ///< surfaces seen at a flatter angle than this from their normal are lost, degrees
};

/// The frame of a scanner that looks along its axis 2 at the world's origin.
Frame ScannerFrame(const Scanner& scanner, const Frame::Axis& viewDirection, double roll);

/// Scans a mesh. The normals are those of the triangles hit, turned towards the eye. `engine` determines the offset of
/// the grid and the noise.
prereg::Scan ScanMesh(const Mesh& mesh, const Scanner& scanner, const Frame& eye, std::mt19937& engine);

} // namespace voalgo
