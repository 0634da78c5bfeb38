#pragma once

namespace CLI {
class App;
}

namespace voalgo {

/// Each adds a subcommand that leaves the tool's exit code in `exitCode`, which outlives the parsing.
void AddRegister(CLI::App& tool, int& exitCode);
void AddFeatures(CLI::App& tool, int& exitCode);
void AddSimulate(CLI::App& tool, int& exitCode);
void AddCase(CLI::App& tool, int& exitCode);
void AddInfo(CLI::App& tool, int& exitCode);

} // namespace voalgo
