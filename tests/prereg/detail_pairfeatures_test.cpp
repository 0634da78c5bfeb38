#include "prereg/detail_pairfeatures.h"
#include "prereg/detail_simplehistograms.h"

#include "support/clouds.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

using prereg::CPointFeatureHistogram;
using prereg::detail::ComputePairBins;
using prereg::detail::NeighbourPlanes;
using prereg::detail::PairBinner;
using prereg::detail::PairBins;
using prereg::detail::PairCounter;
using namespace test_support;
using VoAlgo::simd::F8;
using VoAlgo::simd::Lanes;
using VoAlgo::simd::ScalarF8;

struct Pair {
    Vec3 d, n; // target minus source, target normal
};

template <class Pack>
void ExpectSameBins(const Vec3& normal, const std::vector<Pair>& pairs)
{
    const PairBinner<Pack> binner(normal);
    for (std::size_t begin = 0; begin + Lanes <= pairs.size(); begin += Lanes) {
        std::array<std::array<float, Lanes>, 6> planes;
        for (std::size_t i = 0; i < Lanes; ++i)
            for (std::size_t k = 0; k < 3; ++k) {
                planes[k][i] = pairs[begin + i].d[k];
                planes[3 + k][i] = pairs[begin + i].n[k];
            }
        std::uint32_t codes[Lanes];
        const auto load = [&](std::size_t k) { return Pack::Load(planes[k].data()); };
        binner(load(0), load(1), load(2), load(3), load(4), load(5), codes);
        for (std::size_t i = 0; i < Lanes; ++i) {
            const PairBins bins = ComputePairBins({}, normal, pairs[begin + i].d, pairs[begin + i].n);
            ASSERT_EQ(codes[i], static_cast<unsigned>(bins.alpha) | static_cast<unsigned>(bins.phi) << 8 |
                                    static_cast<unsigned>(bins.theta) << 16)
                << begin + i;
        }
    }
}

// Eight at a time against one at a time. Catches a border between bins on the wrong side, a quadrant mixed up, a lane
// lost.
TEST(PairBinner, EqualsTheSinglePairAlsoAtTheBorders)
{
    Random random(1);
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<Vec3> normals{{0, 0, 1}, {1, 0, 0}, {0, -1, 0}, {0, 0, 2}, {}, {nan, 0, 0}, {0, inf, 0}};
    while (normals.size() < 40) normals.push_back(random.Direction());
    for (const Vec3& u : normals) {
        std::vector<Pair> pairs;
        for (int i = 0; i < 2000; ++i) pairs.push_back({random.InCube(1.0F), random.Direction()});
        for (int i = 0; i < 4000; ++i) { // theta within a few roundings of a border, 18° apart at odd multiples
            const Vec3 d = random.Direction();
            const Vec3 v = d.Cross(u), w = u.Cross(v);
            const double border = (18.0 + 36.0 * static_cast<double>(random.Index(10)) - 180.0) / 57.29577951308232;
            const double angle = border + static_cast<double>(random.Uniform(-1.0F, 1.0F)) * (i % 2 == 0 ? 1e-6 : 1e-4);
            const float scale = VoAlgo::simd::ApproximateReciprocalSqrt(d.NormSq());
            const float length = w.Norm() * scale, size = random.Uniform(0.5F, 2.0F);
            pairs.push_back({d, size * (static_cast<float>(std::cos(angle)) * u +
                                        (static_cast<float>(std::sin(angle)) / length / w.Norm()) * w)});
        }
        for (int i = 0; i < 1000; ++i) { // phi and alpha next to the odd tenths that are their borders
            const auto tenth = 0.2F * static_cast<float>(random.Index(11)) - 1.1F;
            const Vec3 side = random.Direction().Cross(u);
            const Vec3 d = tenth * u + std::sqrt(std::max(0.0F, 1.0F - tenth * tenth)) / side.Norm() * side;
            pairs.push_back({random.Uniform(0.9999F, 1.0001F) * d, d.Cross(u)});
        }
        std::vector<Vec3> special{u, -u, {nan, 1, 1}, {3e38F, 3e38F, 0}};
        for (const float x : {0.0F, -0.0F, 1.0F, -1.0F, 1e-30F, inf})
            for (std::size_t k = 0; k < 3; ++k) special.emplace_back()[k] = x;
        for (const Vec3& d : special)
            for (const Vec3& n : special) pairs.push_back({d, n});
        ExpectSameBins<F8>(u, pairs);
        ExpectSameBins<ScalarF8>(u, pairs);
    }
}

// Catches counters that overflow, and what stands behind the last pair counted as one.
TEST(PairCounter, CountsAsManyPairsAsThereAre)
{
    Random random(2);
    PairCounter<F8> counter;
    PairCounter<ScalarF8> plain;
    for (const std::size_t n : {0U, 1U, 7U, 8U, 9U, 300U, 2040U, 2041U, 5000U})
        for (const bool isFlat : {false, true}) { // all pairs in the same three bins
            SCOPED_TRACE(n);
            const Vec3 normal(0, 0, 1);
            NeighbourPlanes neighbours;
            neighbours.Reserve(n);
            neighbours.count = n;
            CPointFeatureHistogram expected;
            for (std::size_t i = 0; i < n; ++i) {
                const Vec3 d = isFlat ? Vec3(1, 0, 0) : random.Direction();
                const Vec3 targetNormal = isFlat ? normal : random.Direction();
                for (std::size_t k = 0; k < 3; ++k) {
                    neighbours[static_cast<NeighbourPlanes::Plane>(NeighbourPlanes::DX + k)][i] = d[k];
                    neighbours[static_cast<NeighbourPlanes::Plane>(NeighbourPlanes::NX + k)][i] = targetNormal[k];
                }
                expected.Update({}, normal, d, targetNormal);
            }
            float bins[33], plainBins[33];
            counter.Count(neighbours, normal, bins);
            plain.Count(neighbours, normal, plainBins);
            EXPECT_EQ(std::memcmp(bins, expected.bins, sizeof(bins)), 0);
            EXPECT_EQ(std::memcmp(plainBins, expected.bins, sizeof(bins)), 0);
        }
}

} // namespace
