#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <string>

namespace voalgo {

/// Reads a cloud from text: one point a line, x y z, perhaps followed by nx ny nz; further columns are ignored (4 or 5
/// columns: a point without a normal). Columns are separated by blanks, tabs, commas or semicolons; empty lines and
/// what follows a # are skipped. All lines have normals or none has. In the file's unit; the normals are empty when
/// there are none. Throws InputError with the file and the line.
prereg::Scan ReadXyz(const std::string& path);

} // namespace voalgo
