#include "VoAlgorithms/version.h"
#include "commands/commands.h"
#include "terminal/exit_code.h"
#include "terminal/standard_streams.h"
#include "terminal/unknown_command.h"
#include "terminal/usage_error.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

constexpr const char* Footer =
    "Exit codes: 0 success, 2 no registration found, 3 bad input or unwritable output, 64 wrong usage, 69 processor\n"
    "without AVX2.\n"
    "For help on a command: voalgo COMMAND --help";

int Run(int argc, char** argv)
{
    CLI::App tool("Registers two overlapping scans without a starting pose.", "voalgo");
    tool.set_version_flag("--version", "voalgo " VOALGO_VERSION);
    tool.require_subcommand(1);
    tool.footer(Footer);
    int exitCode = voalgo::Done;
    voalgo::AddRegister(tool, exitCode);
    voalgo::AddFeatures(tool, exitCode);
    voalgo::AddPath(tool, exitCode);
    voalgo::AddSimulate(tool, exitCode);
    voalgo::AddCase(tool, exitCode);
    voalgo::AddInfo(tool, exitCode);
    voalgo::RequireKnownCommand(tool, argc, argv);
    try {
        tool.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return tool.exit(error) == 0 ? voalgo::Done : voalgo::WrongUsage;
    }
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        voalgo::PrepareStandardStreams();
        const int exitCode = Run(argc, argv);
        voalgo::FlushStandardOutput();
        return exitCode;
    } catch (const voalgo::UsageError& error) {
        std::fprintf(stderr, "voalgo: error: %s\n", error.what());
        return voalgo::WrongUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "voalgo: error: %s\n", error.what());
        return voalgo::BadInput;
    }
}
