#include "platform/detail_tasks.h"

#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <atomic>

namespace VoAlgo::tasks {

namespace {

// More ranges than workers, so that a worker with cheap entries takes over some of the others' share.
constexpr std::size_t RANGES_PER_WORKER = 8;

} // namespace

void ForRanges(std::size_t count, unsigned threads, const std::function<void(std::size_t, std::size_t)>& work)
{
    if (count == 0) return;
    if (threads <= 1 || count == 1) {
        work(0, count);
        return;
    }

    const std::size_t workers = std::min<std::size_t>(threads, count);
    const std::size_t rangeSize = std::max<std::size_t>(1, count / (workers * RANGES_PER_WORKER));
    const std::size_t ranges = (count + rangeSize - 1) / rangeSize;

    // The counters order the memory accesses too: what the caller wrote before is seen by every worker, and what the
    // workers wrote is seen by the caller, also by a race detector that cannot look into the scheduler.
    std::atomic<std::size_t> nextRange{0};
    std::atomic<std::size_t> finished{0};
    nextRange.store(0, std::memory_order_release);

    const auto worker = [&] {
        struct Finish {
            std::atomic<std::size_t>& counter;
            ~Finish() { counter.fetch_add(1, std::memory_order_acq_rel); }
        } finish{finished};
        for (;;) {
            const std::size_t range = nextRange.fetch_add(1, std::memory_order_acq_rel);
            if (range >= ranges) return;
            const std::size_t begin = range * rangeSize;
            work(begin, std::min(begin + rangeSize, count));
        }
    };

    tbb::task_arena arena(static_cast<int>(workers));
    arena.execute([&] {
        tbb::task_group group;
        for (std::size_t i = 1; i < workers; ++i) group.run(worker);
        group.run_and_wait(worker);
    });
    (void)finished.load(std::memory_order_acquire);
}

} // namespace VoAlgo::tasks
