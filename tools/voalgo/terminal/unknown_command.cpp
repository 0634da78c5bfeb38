#include "terminal/unknown_command.h"

#include "VoAlgorithms/prereg/fields.h"
#include "platform/format.h"
#include "terminal/usage_error.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
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
            std::transform(commands.begin(), commands.end(), std::back_inserter(names),
                           [](const CLI::App* command) { return command->get_name(); });
            throw UsageError(VoAlgo::Format("unknown command \"%s%s\"; did you mean \"%s%s\"?", inside.c_str(),
                                            name.c_str(), inside.c_str(), prereg::NearestKey(name, names).c_str()));
        }
        app = *found;
        inside += name + ' ';
    }
}

} // namespace voalgo
