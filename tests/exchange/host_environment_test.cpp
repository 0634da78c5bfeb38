#include "VoAlgorithms/verdict/registerscans.h"
#include "exchange/files/read_cloud.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>

namespace voalgo {
namespace {

struct Pair {
    prereg::Scan fix = ReadCloud(VOALGO_SOURCE_DIR "/examples/data/hippo1.ply");
    prereg::Scan flt = ReadCloud(VOALGO_SOURCE_DIR "/examples/data/hippo2.ply");
};

std::vector<double> PoseOf(const Pair& pair)
{
    const prereg::Registration found = prereg::RegisterScans(pair.fix, pair.flt);
    if (!found) return {};
    const VoAlgo::CbMatrix4Rd pose = found.Pose();
    return {pose.Data(), pose.Data() + 16};
}

// What the reference promises to hosts that round in another way, or that trap floating-point exceptions: the pose
// moves by roundings, and the usual guard of the C library gives it bit for bit.
TEST(HostEnvironment, RoundingModesMoveThePoseByRoundings)
{
    const Pair pair;
    const std::vector<double> usual = PoseOf(pair);
    ASSERT_EQ(usual.size(), 16U);
    std::fesetround(FE_UPWARD);
    const std::vector<double> upward = PoseOf(pair);
    std::fenv_t host;
    std::feholdexcept(&host);
    std::fesetround(FE_TONEAREST);
    const std::vector<double> guarded = PoseOf(pair);
    std::fesetenv(&host);
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(guarded, usual);
    ASSERT_EQ(upward.size(), 16U);
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(upward[i], usual[i], i % 4 == 3 ? 1e-2 : 1e-3) << i;
}

#if defined(__GLIBC__)
TEST(HostEnvironment, TheGuardMasksExceptionsThatTheHostTraps)
{
    const Pair pair;
    const std::vector<double> usual = PoseOf(pair);
    feenableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
    std::fenv_t host;
    std::feholdexcept(&host);
    const std::vector<double> guarded = PoseOf(pair);
    std::fesetenv(&host);
    fedisableexcept(FE_ALL_EXCEPT);
    EXPECT_EQ(guarded, usual);
}
#endif

} // namespace
} // namespace voalgo
