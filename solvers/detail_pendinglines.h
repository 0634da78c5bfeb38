#pragma once

#include <string>

namespace VoAlgo::detail {

/// Text of the solvers on its way to the standard error stream: it gathers in one buffer of the process, which is
/// written as a whole whenever it contains a line feed, so that lines of different threads do not mix.
void WriteLines(const std::string& text);

/// As WriteLines, from a buffer of its own.
void WriteVectorLines(const std::string& text);

} // namespace VoAlgo::detail
