#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "simulation/frame.h"
#include "simulation/mesh.h"

namespace voalgo {

struct SimulationSettings {
    unsigned points = 20000;  ///< of the first scan, approximately
    double overlap = 0.6;     ///< target for the smaller of the two shares, before clutter is added
    double noise = 0.05;      ///< standard deviation of the range, mm
    double correlation = 0.0; ///< as in Scanner, like the following
    double warp = 0.0;
    double quantum = 0.0;
    double smear = 0.0;
    double holes = 0.0;
    double clutter = 0.0; ///< share of each scan's points that do not lie on the object
    unsigned seed = 1;
};

/// Two virtual scans of one object.
struct Simulation {
    prereg::Scan fix;
    prereg::Scan flt;
    Frame truth;             ///< ToWorld maps flt coordinates into fix coordinates
    double angle = 0.0;      ///< between the two views, degrees
    double spacing = 0.0;    ///< mean distance of neighbouring points without the clutter, the larger of the two, mm
    double overlapFix = 0.0; ///< of the finished scans: OverlapShare within twice the spacing
    double overlapFlt = 0.0;
};

/// Scans an object, centred at the origin, from two views and moves flt by a random pose. The angle between the views
/// is searched so that the overlap is reached. The same settings give the same scans. Throws InputError when the object
/// cannot be scanned.
Simulation Simulate(const Mesh& object, const SimulationSettings& settings);

} // namespace voalgo
