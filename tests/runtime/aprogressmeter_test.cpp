#include "VoAlgorithms/runtime/aprogressmeter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using VoAlgo::CFunctionProgressMeter;
using VoAlgo::CProgressPart;
using Shown = std::vector<std::pair<std::string, double>>;

TEST(AProgressMeter, PartsShareTheWholeByTheirWeights)
{
    Shown shown;
    CFunctionProgressMeter meter([&](const std::string& text, double share) {
        shown.emplace_back(text, share);
        return true;
    });
    CProgressPart half(&meter, 0.5);
    half.Begin("a", 2);
    half.Advance();
    half.Finish();
    CProgressPart rest(&meter, 7.0); // more than is left
    CProgressPart inner(&rest, 0.5);
    inner.Begin("b", 0);
    inner.Finish();
    CProgressPart nothingLeft(&meter);
    nothingLeft.Begin("c", 10);
    EXPECT_EQ(shown, (Shown{{"a", 0.0}, {"a", 0.25}, {"a", 0.5}, {"b", 0.5}, {"b", 0.75}, {"c", 1.0}}));
}

TEST(AProgressMeter, CancellingReachesTheWholeAndItsParts)
{
    int shows = 0;
    CFunctionProgressMeter meter([&](const std::string&, double share) {
        ++shows;
        return share < 0.5;
    });
    CProgressPart part(&meter), inner(&part);
    EXPECT_TRUE(inner.Begin("work", 4));
    EXPECT_TRUE(inner.Advance());
    EXPECT_FALSE(inner.Advance()); // 0.5: the function says no
    EXPECT_TRUE(meter.IsCancelled());
    EXPECT_FALSE(inner.Advance());
    EXPECT_EQ(shows, 3) << "cancelled work is not shown";

    int asked = 0; // long steps of endless work can be cancelled, too
    CFunctionProgressMeter each([&](const std::string&, double) { return ++asked < 3; });
    EXPECT_TRUE(each.Begin("work", std::uint64_t{1} << 40U, 50) && each.Advance(50));
    EXPECT_FALSE(each.Advance(50));

    VoAlgo::CSilentProgressMeter silent;
    CProgressPart silentPart(&silent), alone(nullptr);
    EXPECT_TRUE(silentPart.Begin("work", 2));
    silent.Cancel();
    EXPECT_FALSE(silentPart.Advance());
    EXPECT_TRUE(alone.Begin("work", 2) && alone.Advance());
}

// Shares never fall, no step is lost, and about 200 of them are shown, whatever the threads do.
TEST(AProgressMeter, ParallelStepsAreShownInOrder)
{
    constexpr int Threads = 4;
    constexpr std::uint64_t Steps = 100'000;
    std::vector<double> shares;
    CFunctionProgressMeter meter([&](const std::string&, double share) {
        shares.push_back(share);
        return true;
    });
    meter.Begin("work", Threads * Steps);
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t)
        threads.emplace_back([&] {
            for (std::uint64_t i = 0; i < Steps; ++i) meter.Advance();
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_GT(shares.back(), 0.99);
    EXPECT_LE(shares.size(), 202U);
    EXPECT_GE(shares.size(), 150U);
}

TEST(CConsoleProgressMeter, DrawsOnTerminalsAlone)
{
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        VoAlgo::CConsoleProgressMeter meter(file);
        EXPECT_TRUE(meter.Begin("work", 1));
        EXPECT_TRUE(meter.Finish());
    }
    EXPECT_EQ(std::ftell(file), 0);
    std::fclose(file);
}

} // namespace
