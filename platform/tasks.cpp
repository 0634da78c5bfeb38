#include "platform/tasks.h"

#include <algorithm>
#include <atomic>
#include <thread>

#if defined(__SANITIZE_THREAD__)
#define VOALGO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VOALGO_THREAD_SANITIZER 1
#endif
#endif

#if defined(VOALGO_THREAD_SANITIZER)
#include <future>
#include <vector>
#else
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>
#endif

namespace VoAlgo::tasks {

namespace {

// More ranges than workers, so that a worker that finishes early takes over part of the others' work.
constexpr std::size_t RangesPerWorker = 8;

#if defined(VOALGO_THREAD_SANITIZER)
// The race detector cannot see into the scheduler's library and would report every task that it hands over. On plain
// threads it checks what matters: the work functions.
template <typename Worker>
void RunWorkers(std::size_t workers, const Worker& worker)
{
    std::vector<std::future<void>> others; // each waits in its destructor
    for (std::size_t i = 1; i < workers; ++i) others.push_back(std::async(std::launch::async, std::cref(worker)));
    worker();
    for (auto& other : others) other.get();
}
#else
template <typename Worker>
void RunWorkers(std::size_t workers, const Worker& worker)
{
    // Asking for more than the machine or the host allows would print a warning to standard error.
    const std::size_t limit = tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism);
    tbb::task_arena arena(static_cast<int>(std::min(workers, limit)));
    arena.execute([&] {
        tbb::task_group group;
        for (std::size_t i = 1; i < workers; ++i) group.run(std::cref(worker));
        group.run_and_wait(std::cref(worker));
    });
}
#endif

} // namespace

unsigned NumThreads(unsigned stated)
{
    return stated != 0 ? stated : std::max(1U, std::thread::hardware_concurrency());
}

void ForRanges(std::size_t count, unsigned threads, const std::function<void(std::size_t, std::size_t)>& work)
{
    if (count == 0) return;
    if (threads <= 1 || count == 1) {
        work(0, count);
        return;
    }

    const std::size_t workers = std::min<std::size_t>(threads, count);
    const std::size_t rangeSize = std::max<std::size_t>(1, count / (workers * RangesPerWorker));
    const std::size_t ranges = (count + rangeSize - 1) / rangeSize;

    std::atomic<std::size_t> nextRange{0};
    RunWorkers(workers, [&] {
        for (;;) {
            const std::size_t range = nextRange.fetch_add(1, std::memory_order_relaxed);
            if (range >= ranges) return;
            const std::size_t begin = range * rangeSize;
            work(begin, std::min(begin + rangeSize, count));
        }
    });
}

} // namespace VoAlgo::tasks
