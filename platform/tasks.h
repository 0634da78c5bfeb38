#pragma once

#include <cstddef>
#include <functional>

namespace VoAlgo::tasks {

/// The number of threads that a host states; for 0, as many as the machine has.
unsigned NumThreads(unsigned stated);

/// Splits [0, count) into contiguous ranges and runs work(begin, end) on them: in one call on the caller's thread for 0
/// or 1 threads, else as a task collection of `threads` workers; returns when all are done. The first exception of a
/// worker is rethrown. Each worker must write only the entries of its own range.
void ForRanges(std::size_t count, unsigned threads, const std::function<void(std::size_t, std::size_t)>& work);

} // namespace VoAlgo::tasks
