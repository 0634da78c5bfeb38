#pragma once

namespace CLI {
class App;
}

namespace voalgo {

///@{
/// Adds a subcommand, which sets `exitCode` when it runs; `exitCode` must outlive the parsing.
void AddRegister(CLI::App& tool, int& exitCode);
void AddFeatures(CLI::App& tool, int& exitCode);
void AddPath(CLI::App& tool, int& exitCode);
void AddSimulate(CLI::App& tool, int& exitCode);
void AddCase(CLI::App& tool, int& exitCode);
void AddInfo(CLI::App& tool, int& exitCode);
///@}

} // namespace voalgo
