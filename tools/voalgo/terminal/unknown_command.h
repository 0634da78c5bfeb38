#pragma once

namespace CLI {
class App;
}

namespace voalgo {

/// Throws UsageError, with the nearest known one, if the arguments name a command that does not exist.
void RequireKnownCommand(const CLI::App& tool, int argc, const char* const* argv);

} // namespace voalgo
