#pragma once

#include "VoAlgorithms/verdict/samplemesh.h"

namespace prereg::detail {

/// Which triangles have to be reversed, so that neighbours agree and closed surfaces face outwards.
struct Orientation {
    std::vector<char> reversed; ///< one per triangle
    bool closed = false;        ///< every edge joins two triangles
    bool consistent = true;     ///< false for a one-sided surface, such as a Möbius strip
};

/// Follows edges that exactly two triangles share (vertices at one place are one). A closed surface faces outwards, a
/// cavity inside another surface into the cavity; an open one keeps the side that most of its area faces.
[[nodiscard]] Orientation OrientTriangles(const TriangleMesh& mesh);

} // namespace prereg::detail
