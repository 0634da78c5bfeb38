#pragma once

#include <string>

namespace VoAlgo::detail {

/// Appends text to a buffer of the process. When the buffer then contains a line feed, all of it is written to the
/// standard error stream, so that lines of different threads do not mix.
void WriteLog(const std::string& text);

/// The same with a second buffer, for printed vectors.
void WriteVector(const std::string& text);

} // namespace VoAlgo::detail
