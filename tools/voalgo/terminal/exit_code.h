#pragma once

namespace voalgo {

/// Exit codes of the tool. BadInput also says that an output could not be written.
enum ExitCode : int { Done = 0, NothingFound = 2, BadInput = 3, WrongUsage = 64 };

} // namespace voalgo
