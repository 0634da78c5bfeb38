#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/verdict/scan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

/// Triangles over shared or repeated vertices, for example a CAD model; corners run anticlockwise seen from outside.
struct TriangleMesh {
    std::vector<std::array<double, 3>> vertices;         ///< mm
    std::vector<std::array<std::uint32_t, 3>> triangles; ///< indices of vertices
};

/// Points on the surface of a mesh, and how they were made.
struct SampledMesh {
    Scan scan;                  ///< the points, each with the normal of its triangle
    double spacing = 0.0;       ///< mean distance of a point to its nearest neighbour that was aimed at, mm
    std::size_t triangles = 0;  ///< of the mesh
    std::size_t degenerate = 0; ///< triangles without an area, skipped
    std::size_t turned = 0;     ///< triangles whose normal was reversed
    bool closed = false;        ///< the surface encloses a volume, hence its outside is known
    bool consistent = false;    ///< each triangle faces the same side as its neighbours, if need be after turning
};

/// Length of the bounding box's diagonal, mm; vertices that no triangle uses do not count.
[[nodiscard]] VOALGO_API double DiagonalOf(const TriangleMesh& mesh);

/// Samples the surface evenly, like a scan of the given spacing (mm, > 0). A sample keeps its distance to others that
/// face the same way, so that both sides of a thin wall are sampled. Edges stay sharp. At most about half a million
/// points are made; a larger surface is sampled more coarsely. Vertices at one place count as one. Neighbouring
/// triangles are turned to face the same side: outwards where the surface is closed, else the side that most of the
/// area faces. The same mesh gives the same bits. O(triangles · log triangles + points). Throws std::invalid_argument
/// for a spacing that is not positive, a vertex that is not finite, an index out of range.
[[nodiscard]] VOALGO_API SampledMesh SampleMesh(const TriangleMesh& mesh, double spacing);

} // namespace prereg
