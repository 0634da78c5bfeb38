#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <string>

namespace voalgo {

/// Reads a cloud, in mm, from text in the given unit: one point per line, x y z, optionally followed by nx ny nz.
/// Further columns are ignored; with 4 or 5 columns a point has no normal. Columns are separated by blanks, tabs,
/// commas or semicolons; empty lines and everything after a # are skipped. Either all lines have normals or none has.
/// Throws InputError with the file and the line.
prereg::Scan ReadXyz(const std::string& path, double mmPerUnit);

} // namespace voalgo
