#pragma once

namespace voalgo {

/// Exit codes of the tool.
enum ExitCode : int { Done = 0, NothingFound = 2, BadInput = 3, WrongUsage = 64 };

} // namespace voalgo
