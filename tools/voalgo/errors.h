#pragma once

#include <stdexcept>

namespace voalgo {

/// How the tool ends.
enum ExitCode : int { Done = 0, NothingFound = 2, BadInput = 3, WrongUsage = 64 };

/// What is wrong with the input, in words for the user; ends the tool with BadInput.
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace voalgo
