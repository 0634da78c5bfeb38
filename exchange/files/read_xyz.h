#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <istream>
#include <string>

namespace voalgo {

/// Reads a cloud, in mm, from text in the given unit, one point per line. Columns are separated by blanks and tabs,
/// commas or semicolons, in all lines alike; decimals may be marked by commas where nothing else explains them. Empty
/// lines and comments (from # or // on) are skipped. Which columns hold x y z and nx ny nz is said by a row of names,
/// also in a comment ("//X Y Z"), or else guessed: x y z come first, a normal is three columns of unit length; other
/// columns are ignored. Throws InputError with the file, the line and the reason for what it cannot read with
/// certainty.
prereg::Scan ReadXyz(const std::string& path, double mmPerUnit);
/// The same from a stream, binary and seekable.
prereg::Scan ReadXyz(std::istream& stream, const std::string& name, double mmPerUnit);

} // namespace voalgo
