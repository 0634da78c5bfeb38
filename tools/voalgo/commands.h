#pragma once

namespace CLI {
class App;
}

namespace voalgo {

/// Each adds a subcommand that leaves the tool's exit code in `exitCode`, which outlives the parsing.
void AddSimulate(CLI::App& tool, int& exitCode);

} // namespace voalgo
