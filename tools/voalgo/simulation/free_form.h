#pragma once

#include "simulation/mesh.h"

#include <cstddef>

namespace voalgo {

/// A closed free-form surface without symmetries: a stretched ball with limbs, dents and fine detail, different for
/// every seed. Its largest extent is `size` mm, its centre the origin; it has at least `minTriangles` triangles.
Mesh FreeFormObject(unsigned seed, double size, std::size_t minTriangles);

/// Moves the centre of the bounding box to the origin and scales the largest extent to `size` mm; 0 keeps the size.
void CentreAndScale(Mesh& mesh, double size);

} // namespace voalgo
