#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <fstream>
#include <string>
#include <vector>

namespace prereg::detail {

/// How many digits a float gets: as many as it takes to read the same bits back, or up to six. Neither depends on a
/// locale.
enum class Digits { AsNeeded, Six };

/// Appends v and a separator.
void AppendNumber(std::string& line, float v, Digits digits, char separator);
/// Appends three numbers, each with a separator.
void AppendNumbers(std::string& line, const kdtree::Vector<3>& v, Digits digits, char separator);

/// A text file that replaces what has its name. Throws std::invalid_argument "empty file name" and the stream's
/// failure, as writing to the stream does.
std::ofstream OpenText(const std::string& fileName);

/// One line per surfel, "x y z nx ny nz", with " r g b" for a colour (0xRRGGBB) other than 0xFFFFFFFF; every line is
/// flushed. Throws as OpenText does.
void SaveSurfels(const std::string& fileName, const std::vector<kdtree::Vector<3>>& points,
                 const std::vector<kdtree::Vector<3>>& normals, unsigned colour, Digits digits);

} // namespace prereg::detail
