#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <string>
#include <vector>

namespace prereg::detail {

/// One line per surfel, "x y z nx ny nz", with " r g b" for a colour (0xRRGGBB) other than 0xFFFFFFFF; every line
/// flushed. Throws std::invalid_argument "empty file name" and the stream's failure.
void SaveSurfels(const std::string& fileName, const std::vector<kdtree::Vector<3>>& points,
                 const std::vector<kdtree::Vector<3>>& normals, unsigned colour);

} // namespace prereg::detail
