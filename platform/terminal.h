#pragma once

#include <cstdio>

namespace VoAlgo {

/// Whether a person may be looking at what is written to the stream.
[[nodiscard]] bool IsTerminal(std::FILE* stream);

} // namespace VoAlgo
