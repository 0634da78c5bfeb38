#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"

#include "platform/simd.h"
#include "prereg/detail_histogramdistances.h"
#include "support/clouds.h"

#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace {

using prereg::CPointFeatureHistogram;
using namespace test_support;
using VoAlgo::simd::F8;
using VoAlgo::simd::ScalarF8;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

// Which bins a single pair fills, each once: {alpha, phi, theta}.
std::vector<int> BinsOf(const Vec3& ps, const Vec3& ns, const Vec3& pt, const Vec3& nt)
{
    CPointFeatureHistogram h;
    h.Update(ps, ns, pt, nt);
    std::vector<int> bins;
    for (int i = 0; i < 33; ++i) {
        EXPECT_TRUE(h.bins[i] == 0.0F || h.bins[i] == 1.0F);
        if (h.bins[i] != 0.0F) bins.push_back(i % 11);
    }
    EXPECT_EQ(bins.size(), 3U);
    return bins;
}

// Pairs worked out by hand. Source at 0 with normal z, target on the x axis: u = z, d = x, v = d × u = −y, w = u × v =
// x.
TEST(CPointFeatureHistogram, PairsOfKnownAngles)
{
    const Vec3 o, x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    const float s = std::sqrt(0.5F);
    const struct {
        const char* what;
        Vec3 pt, nt;
        std::vector<int> bins;
    } rows[] = {
        {"flat patch", 2.0F * x, z, {5, 5, 5}},
        {"target normal along w", 2.0F * x, x, {5, 5, 8}}, // theta = 90°, in floats 5 + 2.4999998 = 7.5, to the even 8
        {"against w", 2.0F * x, {-1, 0, 0}, {5, 5, 3}},    // 5 − 2.4999998 = 2.5000002
        {"along v", 2.0F * x, {0, -1, 0}, {10, 5, 5}},
        {"against v", 2.0F * x, y, {0, 5, 5}},
        {"45 degrees between u and w", x, {s, 0, s}, {5, 5, 6}}, // 6.25
        {"opposite", x, -z, {5, 5, 10}},
        {"target above", 3.0F * z, z, {5, 10, 5}},
        {"target below", -3.0F * z, z, {5, 0, 5}},
        {"same place", o, z, {5, 5, 5}},
        {"normals of length 2: theta keeps, alpha and phi are clamped", x, {0, -2, 0}, {10, 5, 5}},
        {"no target normal", x, o, {5, 5, 5}},
        {"NaN target", {NaN, 0, 0}, z, {0, 0, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(BinsOf(o, z, row.pt, row.nt), row.bins);
    }
    CPointFeatureHistogram flat;
    flat.Update(o, z, 2.0F * x, z);
    EXPECT_TRUE(SameBits<CPointFeatureHistogram>({flat}, {CPointFeatureHistogram::Identity()}));
    const int end = BinsOf(o, -z, o, z)[2]; // atan2(±0, −1) = ±π: the sign of the zero chooses the end
    EXPECT_TRUE(end == 0 || end == 10);
}

// The connecting vector has the length that the approximate reciprocal square root leaves it: 5 · phi + 5 lies on
// either side of 7.5 depending on it. Against the exact length some of many such pairs must come out differently.
TEST(CPointFeatureHistogram, UsesTheApproximateReciprocalSquareRoot)
{
    Random random(1);
    int differs = 0;
    for (int i = 0; i < 3000; ++i) {
        const float length = random.Uniform(0.1F, 10.0F);
        const Vec3 d = length * Vec3(std::sqrt(0.75F), 0.0F, 0.5F);
        const float approximate = VoAlgo::simd::ApproximateReciprocalSqrt(d.NormSq());
        const int expected = static_cast<int>(std::nearbyint(d.z * approximate * 5.0F + 5.0F));
        EXPECT_EQ(BinsOf({}, {0, 0, 1}, d, {0, 0, 1})[1], expected);
        differs +=
            expected != static_cast<int>(std::nearbyint(d.z * (1.0F / std::sqrt(d.NormSq())) * 5.0F + 5.0F)) ? 1 : 0;
    }
    EXPECT_GT(differs, 100);
}

CPointFeatureHistogram RandomHistogram(Random& random)
{
    CPointFeatureHistogram h;
    for (int i = 0; i < 200; ++i) h.Update({}, random.Direction(), random.Direction(), random.Direction());
    return h;
}

TEST(CPointFeatureHistogram, NormalizeAddAndCount)
{
    Random random(2);
    CPointFeatureHistogram h = RandomHistogram(random);
    const CPointFeatureHistogram counts = h;
    h.Normalize();
    for (std::size_t block = 0; block < 33; block += 11)
        EXPECT_NEAR(std::accumulate(h.bins + block, h.bins + block + 11, 0.0F), 1.0F, 1e-6F);
    for (std::size_t i = 0; i < 33; ++i) EXPECT_EQ(h[i], counts[i] * (1.0F / 200.0F));
    CPointFeatureHistogram sum = counts;
    sum.Add(counts, 0.5F);
    for (std::size_t i = 0; i < 33; ++i) EXPECT_EQ(sum[i], counts[i] + 0.5F * counts[i]);

    CPointFeatureHistogram lopsided; // the first block's sum stands for all
    lopsided[0] = 4.0F;
    lopsided[32] = 2.0F;
    lopsided.Normalize();
    EXPECT_EQ(lopsided[0], 1.0F);
    EXPECT_EQ(lopsided[32], 0.5F);
    CPointFeatureHistogram empty;
    EXPECT_EQ(empty.PopCount(), 0U);
    empty.Normalize(); // deliberately unguarded
    for (const float bin : empty.bins) EXPECT_FALSE(std::isfinite(bin));

    CPointFeatureHistogram one;
    one[32] = NaN; // both counts see the last bin
    EXPECT_EQ(one.PopCount(), 1U);
    for (std::size_t i = 0; i < 32; ++i) {
        one = {};
        one[i] = -1.0F;
        EXPECT_EQ(one.PopCount(), 1U);
        one[i] = NaN;
        EXPECT_THAT([&] { (void)one.PopCount(); }, testing::ThrowsMessage<std::exception>("invalid popcnt!"));
    }
}

// Catches crossed names put right, a lane or bin left out, and the order of the sums: equal bits to the plain twin,
// equal value to a sum in double.
TEST(CPointFeatureHistogram, Distances)
{
    namespace detail = prereg::detail;
    Random random(3);
    for (int round = 0; round < 500; ++round) {
        CPointFeatureHistogram a = RandomHistogram(random), b = RandomHistogram(random);
        a.Normalize();
        b.Normalize();
        a[32] += 0.25F;
        b[static_cast<std::size_t>(round % 33)] += 0.5F;
        double squares = 0.0, differences = 0.0, sums = 0.0, chi2 = 0.0;
        for (std::size_t i = 0; i < 33; ++i) {
            const double d = static_cast<double>(a[i]) - static_cast<double>(b[i]);
            const double s = static_cast<double>(a[i]) + static_cast<double>(b[i]);
            squares += d * d;
            differences += std::fabs(d);
            sums += s;
            chi2 += s == 0.0 ? 0.0 : d * d / s;
        }
        EXPECT_NEAR(a.SoerensenDistance(b), squares, 1e-6 * squares); // deliberate: the names are crossed
        EXPECT_NEAR(a.SquaredEuclideanDistance(b), differences / sums, 1e-6);
        EXPECT_NEAR(a.SquaredChi2Distance(b), chi2, 1e-6 * chi2);
        EXPECT_EQ(a.SoerensenDistance(b), detail::SumOfSquaredDifferences<ScalarF8>(a.bins, b.bins));
        EXPECT_EQ(a.SquaredEuclideanDistance(b), detail::Dissimilarity<ScalarF8>(a.bins, b.bins));
        EXPECT_EQ(a.SquaredChi2Distance(b), detail::Chi2<ScalarF8>(a.bins, b.bins));
        float lanes[8] = {}; // four passes over eight lanes, neighbours in pairs, bin 32 last
        for (std::size_t i = 0; i < 32; ++i) lanes[i % 8] += (a[i] - b[i]) * (a[i] - b[i]);
        const float folded =
            ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + ((lanes[4] + lanes[5]) + (lanes[6] + lanes[7]));
        EXPECT_EQ(a.SoerensenDistance(b), folded + (a[32] - b[32]) * (a[32] - b[32]));
        EXPECT_EQ(a.SoerensenDistance(a), 0.0F);
        EXPECT_EQ(a.SquaredEuclideanDistance(a), 0.0F);
        EXPECT_EQ(a.SquaredChi2Distance(a), 0.0F);
    }
    const CPointFeatureHistogram empty;
    EXPECT_TRUE(std::isnan(empty.SquaredEuclideanDistance(empty)));
    EXPECT_EQ(empty.SquaredChi2Distance(empty), 0.0F);
}

} // namespace
