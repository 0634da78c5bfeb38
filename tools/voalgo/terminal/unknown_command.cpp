#include "terminal/unknown_command.h"

#include "VoAlgorithms/prereg/fields.h"
#include "terminal/usage_error.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace voalgo {

void RequireKnownCommand(const CLI::App& tool, int argc, const char* const* argv)
{
    const CLI::App* app = &tool;
    std::string inside;
    for (int i = 1; i < argc && argv[i][0] != '-'; ++i) {
        const std::string name = argv[i];
        const std::vector<const CLI::App*> commands = app->get_subcommands([](const CLI::App*) { return true; });
        if (commands.empty()) return;
        const auto found = std::find_if(commands.begin(), commands.end(),
                                        [&](const CLI::App* command) { return command->check_name(name); });
        if (found == commands.end()) {
            std::vector<std::string> names;
            for (const CLI::App* command : commands) names.push_back(command->get_name());
            throw UsageError("unknown command \"" + inside + name + "\"; did you mean \"" + inside +
                             prereg::NearestKey(name, names) + "\"?");
        }
        app = *found;
        inside += name + ' ';
    }
}

} // namespace voalgo
