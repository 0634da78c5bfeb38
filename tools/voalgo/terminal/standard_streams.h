#pragma once

namespace voalgo {

/// Prepares the streams of a process: a closed one must not be replaced by the next file that is opened, and a limit on
/// the size of files is an error instead of the end.
void PrepareStandardStreams();
/// Throws OutputError unless everything that was printed has been taken.
void FlushStandardOutput();

} // namespace voalgo
