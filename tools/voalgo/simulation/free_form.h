#pragma once

#include "exchange/files/mesh.h"

#include <cstddef>

namespace voalgo {

/// A closed free-form surface without symmetries: a stretched ball with limbs, dents and fine detail, different for
/// every seed. Its largest extent is `size` mm, its middle the origin; it has at least `minTriangles` triangles.
Mesh FreeFormObject(unsigned seed, double size, std::size_t minTriangles);

/// Moves the middle of the bounding box to the origin and scales to a largest extent of `size` mm; a size of 0 keeps
/// it.
void CentreAndScale(Mesh& mesh, double size);

} // namespace voalgo
