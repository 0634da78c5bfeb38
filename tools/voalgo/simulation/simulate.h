#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/mesh.h"
#include "simulation/frame.h"

namespace voalgo {

struct SimulationSettings {
    unsigned points = 20000; ///< of the first scan, about
    double overlap = 0.6;    ///< wanted, of the object's surface before clutter is added; the smaller of the two shares
    double noise = 0.05;     ///< standard deviation of the range, mm
    double clutter = 0.0;    ///< share of each scan that is not the object
    unsigned seed = 1;
};

/// Two virtual scans of one object.
struct Simulation {
    prereg::Scan fix;
    prereg::Scan flt;
    Frame truth;             ///< ToWorld maps flt coordinates into fix coordinates
    double angle = 0.0;      ///< between the two views, degrees
    double spacing = 0.0;    ///< mean distance of neighbouring points without the clutter, the larger of the two, mm
    double overlapFix = 0.0; ///< measured on the finished scans, see OverlapShare; radius twice the spacing
    double overlapFlt = 0.0;
};

/// Scans the object (its middle at the origin) from two views, whose angle is searched so that the wanted overlap comes
/// out, and turns flt by a random pose. The same settings give the same scans. Throws InputError when the object
/// cannot be scanned.
Simulation Simulate(const Mesh& object, const SimulationSettings& settings);

} // namespace voalgo
