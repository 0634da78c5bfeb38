#pragma once

namespace voalgo {

/// How the tool ends.
enum ExitCode : int { Done = 0, NothingFound = 2, BadInput = 3, WrongUsage = 64 };

} // namespace voalgo
