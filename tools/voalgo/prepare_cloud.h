#pragma once

#include "cloud.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace voalgo {

/// A cloud ready for the library, and what was found and done on the way.
struct PreparedCloud {
    std::string name;                ///< of the file
    Cloud cloud;                     ///< millimetres; points finite and distinct, normals of unit length or zero
    std::size_t read = 0;            ///< points in the file
    std::size_t notFinite = 0;       ///< dropped
    std::size_t duplicates = 0;      ///< dropped
    std::size_t scaledNormals = 0;   ///< had another length than 1
    std::size_t zeroNormals = 0;     ///< have no direction, are kept
    bool implausibleNormals = false; ///< given, but of all lengths: no normals
    bool estimatedNormals = false;   ///< estimated from the points
    kdtree::Vector<3> low;           ///< corners of the bounding box, mm
    kdtree::Vector<3> high;
    double spacing = 0.0; ///< mean distance of a point to its nearest neighbour, mm

    /// The largest side of the bounding box, mm.
    [[nodiscard]] double Extent() const;
};

/// Brings a cloud as it was read into the form above. `mmPerUnit`: of its coordinates; `viewpoint`: in mm, for the
/// signs of estimated normals. Throws InputError when no point is left.
PreparedCloud PrepareCloud(Cloud raw, const std::string& name, double mmPerUnit,
                           const std::optional<kdtree::Vector<3>>& viewpoint);

/// What the user should know; in words, without the name.
struct Remarks {
    std::vector<std::string> notes;    ///< what was done
    std::vector<std::string> warnings; ///< what is probably wrong
};
Remarks Describe(const PreparedCloud& prepared);

} // namespace voalgo
