#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/verdict/estimatenormals.h"
#include "VoAlgorithms/verdict/scan.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace prereg {

/// A scan ready to be registered, and what was found and mended while preparing it.
struct VOALGO_API PreparedScan {
    Scan scan;                       ///< points finite and distinct, normals of unit length or zero
    std::size_t read = 0;            ///< points of the original scan
    std::size_t notFinite = 0;       ///< points dropped
    std::size_t duplicates = 0;      ///< points dropped
    std::size_t scaledNormals = 0;   ///< normals whose length was not 1
    std::size_t zeroNormals = 0;     ///< points kept without a normal
    bool implausibleNormals = false; ///< the normals given cannot be normals and were ignored
    bool estimatedNormals = false;   ///< the normals were estimated from the points
    bool mixedNormals = false;       ///< the normals given faced either side; their signs were decided anew
    NormalOrientation orientation;   ///< what decided the signs of the normals, given ones included
    kdtree::Vector<3> low;           ///< corner of the bounding box, mm, relative to the scan's origin
    kdtree::Vector<3> high;          ///< the opposite corner, the same
    double spacing = 0.0;            ///< mean distance of a point to its nearest neighbour, mm
    double roughness = 0.0;          ///< as MeasureSampling measures it, mm
    double resolution = 0.0;         ///< to which the original points were rounded, as floats, mm
    /// The scan's points and features when a host has computed them before; null: a registration computes them.
    std::shared_ptr<const CFPFHPointSet> pointSet = {};

    /// The largest side of the bounding box, mm.
    [[nodiscard]] double Extent() const;
};

/// Prepares a scan: drops points that are not finite or coincide with an earlier one, moves the origin to the centre of
/// the bounding box, scales normals to unit length, or estimates them where they
/// are missing or implausible. No point is left when none is finite. O(n) for a scan with normals. Throws
/// std::invalid_argument when points and normals differ in number. `keepOrigin`: leaves the origin, for a host that
/// makes point sets in the frame of its points.
[[nodiscard]] VOALGO_API PreparedScan PrepareScan(Scan scan, bool keepOrigin = false);
/// A point set as a scan: nothing is changed, its features are used, and its points are relative to `origin`, mm.
[[nodiscard]] VOALGO_API PreparedScan PreparedFrom(std::shared_ptr<const CFPFHPointSet> set, std::string name,
                                                   const std::array<double, 3>& origin = {});

/// What the user should know about a prepared scan, in words; the texts do not name the scan.
struct Remarks {
    std::vector<std::string> notes;    ///< what was done
    std::vector<std::string> warnings; ///< what is probably wrong
};
/// The remarks on a scan that has points.
[[nodiscard]] VOALGO_API Remarks Describe(const PreparedScan& prepared);

} // namespace prereg
