#include "platform/tasks.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using VoAlgo::tasks::ForRanges;

// Catches lost or repeated entries at the borders of ranges, missing synchronisation with the caller's writes, and
// another thread or a second range where at most one thread was asked for.
TEST(TasksParallel, EveryEntryIsWorkedOnOnce)
{
    const auto caller = std::this_thread::get_id();
    for (const std::size_t count : {0U, 1U, 2U, 3U, 7U, 8U, 9U, 63U, 64U, 65U, 1000U, 4097U})
        for (const unsigned threads : {0U, 1U, 2U, 3U, 8U, 100U}) {
            std::vector<int> input(count), output(count, -1);
            std::iota(input.begin(), input.end(), 0);
            ForRanges(count, threads, [&](std::size_t begin, std::size_t end) {
                for (std::size_t i = begin; i < end; ++i) output[i] = output[i] == -1 ? input[i] : -2;
                const bool isWhole = begin == 0 && end == count && std::this_thread::get_id() == caller;
                EXPECT_TRUE(isWhole || threads > 1);
            });
            EXPECT_EQ(output, input) << count << " entries, " << threads << " threads";
        }
}

TEST(TasksParallel, ExceptionReachesTheCaller)
{
    for (const unsigned threads : {1U, 2U, 8U}) {
        const auto work = [](std::size_t begin, std::size_t end) {
            if (begin <= 70 && 70 < end) throw std::runtime_error("entry 70");
        };
        EXPECT_THROW(ForRanges(100, threads, work), std::runtime_error);
        EXPECT_NO_THROW(ForRanges(70, threads, work)); // usable afterwards
    }
}

TEST(TasksParallel, CollectionsNestAndRunSideBySide)
{
    constexpr std::size_t N = 20;
    std::vector<std::size_t> sums(2 * N * N);
    const auto table = [&](std::size_t offset) {
        ForRanges(N, 3, [&, offset](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i)
                ForRanges(N, 2, [&, i](std::size_t first, std::size_t last) {
                    for (std::size_t j = first; j < last; ++j) sums[offset + i * N + j] = i * j;
                });
        });
    };
    std::thread other(table, N * N);
    table(0);
    other.join();
    for (std::size_t i = 0; i < sums.size(); ++i) EXPECT_EQ(sums[i], i % (N * N) / N * (i % N));
}

} // namespace
