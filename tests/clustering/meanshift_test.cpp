#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/clustering/cmeanshiftclusterer3d.h"

#include "clustering/detail_meanshift.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using VoAlgo::CMeanShiftClusterer;
using VoAlgo::CMeanShiftClusterer3D;
using Distance = CMeanShiftClusterer::Distance;

constexpr unsigned None = CMeanShiftClusterer::None;
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Inf = std::numeric_limits<float>::infinity();

float SquaredDifferences(std::size_t d, const float* a, const float* b)
{
    float sum = 0.0F;
    for (std::size_t k = 0; k < d; ++k) sum += (a[k] - b[k]) * (a[k] - b[k]);
    return sum;
}

// The steps one by one: a counter for every point and cluster, every step up to the cap, the list built anew each time.
struct PlainMeanShift {
    std::vector<float> data;
    std::size_t n, d;
    float h;
    bool inSpace; // the rules of the variant for points in space
    std::mt19937 engine{47110815};
    std::uniform_real_distribution<float> uniform{0.0F, 1.0F};

    std::vector<unsigned> clusterOf{}, sizes{};
    std::vector<std::vector<float>> centres{};
    std::size_t capHits = 0, merges = 0;

    void Run(const Distance& distance)
    {
        clusterOf.assign(n, None);
        sizes.clear();
        centres.clear();
        std::vector<std::vector<unsigned>> votesOf;
        std::vector<bool> visited(n, false);
        std::size_t cleared = 0;
        const std::size_t cap = inSpace ? 4 * n : 2 * n * d;
        const float stop = 0.001F * h;
        for (;;) {
            std::vector<unsigned> unvisited;
            for (unsigned i = 0; i < n; ++i)
                if (!visited[i]) unvisited.push_back(i);
            if (unvisited.empty()) break;
            const auto r = std::min(static_cast<std::size_t>(uniform(engine) * static_cast<float>(unvisited.size())),
                                    unvisited.size() - 1);
            std::vector<float> mean = Point(unvisited[r]);
            std::vector<unsigned> votes(n, 0);
            visited[unvisited[r]] = true;
            bool found = false;
            for (std::size_t step = 1; step <= cap && !found; ++step) {
                const std::vector<float> old = mean;
                std::vector<float> sum(d, 0.0F);
                unsigned members = 0;
                for (std::size_t i = 0; i < n; ++i) {
                    if (!(distance(d, &data[i * d], old.data()) <= h * h)) continue;
                    for (std::size_t k = 0; k < d; ++k) sum[k] += data[i * d + k];
                    ++members;
                    ++votes[i];
                    visited[i] = true;
                }
                if (members == 0) break;
                for (std::size_t k = 0; k < d; ++k) mean[k] = sum[k] / static_cast<float>(members);
                found = distance(d, mean.data(), old.data()) < stop * stop;
                if (found || step < cap) continue;
                ++capHits;
                if (!inSpace && cleared++ < n) visited[r] = false;
            }
            if (!found) continue;
            std::size_t c = 0;
            while (c < centres.size() && !(distance(d, mean.data(), centres[c].data()) < h * h / 4)) ++c;
            if (c == centres.size()) {
                centres.push_back(mean);
                votesOf.push_back(votes);
                continue;
            }
            ++merges;
            for (std::size_t k = 0; k < d; ++k) centres[c][k] = (centres[c][k] + mean[k]) * 0.5F;
            for (std::size_t i = 0; i < n; ++i) votesOf[c][i] += votes[i];
        }
        Map(votesOf);
    }

    [[nodiscard]] std::vector<float> Point(std::size_t i) const { return {&data[i * d], &data[i * d] + d}; }

    void Map(const std::vector<std::vector<unsigned>>& votesOf)
    {
        std::vector<unsigned> best(n, 0);
        for (unsigned c = 0; c < votesOf.size(); ++c)
            for (std::size_t i = 0; i < n; ++i)
                if (votesOf[c][i] > best[i]) {
                    best[i] = votesOf[c][i];
                    clusterOf[i] = c;
                }
        sizes.assign(centres.size(), 0);
        for (std::size_t i = 0; i < n; ++i) {
            if (clusterOf[i] != None) {
                ++sizes[clusterOf[i]];
            } else if (!inSpace) {
                clusterOf[i] = static_cast<unsigned>(sizes.size());
                sizes.push_back(1);
                centres.push_back(Point(i));
            }
        }
        for (std::size_t c = 0; c < sizes.size(); ++c) {
            if (sizes[c] != 0) continue;
            sizes.erase(sizes.begin() + static_cast<long>(c));
            centres.erase(centres.begin() + static_cast<long>(c));
            for (unsigned& of : clusterOf)
                if (of != None && of > c) --of;
        }
    }

    template <class Clusterer>
    void ExpectSame(const Clusterer& clusterer) const
    {
        ASSERT_EQ(clusterer.GetNumClusters(), sizes.size());
        for (unsigned i = 0; i < n; ++i) ASSERT_EQ(clusterer.GetCluster(i), clusterOf[i]) << "point " << i;
        for (unsigned c = 0; c < sizes.size(); ++c) {
            ASSERT_EQ(clusterer.GetClusterSize(c), sizes[c]);
            ASSERT_EQ(clusterer.GetClusterHistogram()[c], sizes[c]);
            for (std::size_t k = 0; k < d; ++k) ASSERT_EQ(clusterer.GetClusterCenter(c)[k], centres[c][k]);
        }
    }
};

// n points of d coordinates in [0, spread) on a grid of the given step (0: none), moved by `offset`. With an offset of
// 3e7 the rounding of the sums is coarse enough to make means go round in circles.
struct Cloud {
    std::size_t n, d;
    float spread, step, offset, bandwidth;
};

const Cloud Clouds[] = {
    {1, 1, 1.0F, 0.0F, 0.0F, 1.0F},       {40, 1, 10.0F, 0.0F, 0.0F, 0.7F},     {60, 2, 10.0F, 0.0F, 0.0F, 1.5F},
    {80, 3, 10.0F, 1.0F, 0.0F, 1.0F},     {80, 3, 10.0F, 1.0F, 0.0F, 2.0F},     {203, 3, 10.0F, 0.0F, -5.0F, 2.0F},
    {64, 3, 1.0F, 0.0F, 0.0F, 10.0F},     {50, 7, 2.0F, 0.0F, 0.0F, 1.5F},      {9, 3, 1.0F, 0.0F, 0.0F, 1e-30F},
    {50, 3, 20.0F, 0.0F, 1.0e6F, 4.0F},   {60, 3, 20.0F, 0.0F, 1.0e6F, 6.0F},   {7, 2, 1.0F, 0.5F, 0.0F, 1e-30F},
    {100, 3, 50.0F, 1.0F, 3.0e7F, 30.0F}, {100, 3, 50.0F, 1.0F, 3.0e7F, 10.0F}, {100, 1, 100.0F, 4.0F, 3.0e7F, 20.0F},
    {30, 3, 10.0F, 0.0F, 0.0F, NaN},      {30, 3, 10.0F, 0.0F, 0.0F, Inf},      {20, 3, 3e38F, 0.0F, 0.0F, 3e37F},
};

std::vector<float> MakePoints(const Cloud& cloud, unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<float> coordinate(0.0F, cloud.spread);
    std::vector<float> data(cloud.n * cloud.d);
    for (float& x : data) {
        x = coordinate(engine);
        if (cloud.step > 0.0F) x = std::round(x / cloud.step) * cloud.step;
        x += cloud.offset;
    }
    return data;
}

// Catches wrong strictness, order of draws, merging, mapping, lost votes, a wrong early end of starts that go in
// circles.
TEST(MeanShift, EqualsThePlainLoopBitForBit)
{
    std::size_t capHits = 0, merges = 0;
    const auto compare = [&](const Cloud& cloud, unsigned seed, const Distance& distance, bool inSpace) {
        SCOPED_TRACE(testing::Message() << "n " << cloud.n << ", d " << cloud.d << ", bandwidth " << cloud.bandwidth
                                        << ", seed " << seed << ", in space " << inSpace);
        const std::vector<float> data = MakePoints(cloud, seed);
        CMeanShiftClusterer clusterer(data.data(), cloud.n, cloud.d, cloud.bandwidth);
        CMeanShiftClusterer3D clusterer3D;
        if (inSpace) clusterer3D = CMeanShiftClusterer3D(data.data(), cloud.n, cloud.bandwidth);
        PlainMeanShift plain{data, cloud.n, cloud.d, cloud.bandwidth, inSpace};
        for (int run = 0; run < 2; ++run) { // the second continues the random sequence
            ASSERT_TRUE(inSpace ? clusterer3D.Run() : clusterer.Run(distance));
            plain.Run(distance);
            inSpace ? plain.ExpectSame(clusterer3D) : plain.ExpectSame(clusterer);
        }
        capHits += plain.capHits;
        merges += plain.merges;
    };
    for (const Cloud& cloud : Clouds)
        for (unsigned seed = 1; seed <= 6; ++seed)
            for (const bool inSpace : {false, true})
                if (!inSpace || cloud.d == 3) compare(cloud, seed, SquaredDifferences, inSpace);
    EXPECT_GT(capHits, 200U); // else the table no longer reaches these branches
    EXPECT_GT(merges, 50U);

    // A distance without any sense sends means from one random subset to the next: paths that end, turn back or reach
    // the cap.
    const auto erratic = [](std::size_t d, const float* a, const float* b) {
        std::uint32_t hash = 1;
        for (std::size_t k = 0; k < 2 * d; ++k) {
            hash = (hash ^ std::bit_cast<std::uint32_t>(k < d ? a[k] : b[k - d])) * 2654435769U;
            hash = (hash ^ hash >> 15) * 2246822519U;
            hash ^= hash >> 13;
        }
        hash >>= 24;
        return hash < 16 ? 0.0F : (hash % 2 == 0 ? 0.5F : 2.0F);
    };
    capHits = 0;
    for (std::size_t n = 6; n < 14; ++n)
        for (unsigned seed = 1; seed <= 20; ++seed)
            compare({n, 1 + n % 2, 10.0F, 0.0F, 0.0F, 1.0F}, seed, erratic, false);
    EXPECT_GT(capHits, 100U);
    for (const float answer : {NaN, Inf, 0.0F, 1.0F, -1.0F}) // every start takes a point off the list
        compare(
            {32, 2, 10.0F, 0.0F, 0.0F, 1.0F}, 1, [=](auto, auto, auto) { return answer; }, false);
}

// Two groups (second coordinate) that do not see each other as points, so that their modes, 3 apart, are both found.
TEST(MeanShift, ModesMergeOnlyWithinHalfTheBandwidth)
{
    const float data[] = {0, 0, 1, 0, 3, 1, 4, 1};
    const auto distance = [](std::size_t, const float* a, const float* b) {
        const bool isPoint = a[0] == std::floor(a[0]);
        return isPoint && a[1] != b[1] ? Inf : (a[0] - b[0]) * (a[0] - b[0]);
    };
    for (const float bandwidth : {5.99F, 6.0F, 6.01F}) {
        CMeanShiftClusterer clusterer(data, 4, 2, bandwidth);
        ASSERT_TRUE(clusterer.Run(distance));
        ASSERT_EQ(clusterer.GetNumClusters(), bandwidth > 6.0F ? 1U : 2U);
        EXPECT_EQ(clusterer.GetClusterSize(0), bandwidth > 6.0F ? 4U : 2U);
        if (bandwidth > 6.0F) {
            EXPECT_EQ(clusterer.GetClusterCenter(0)[0], 2.0F); // of 0.5 and 3.5
        }
    }
}

TEST(MeanShift, EmptyClustersAreRemovedInOnePass)
{
    VoAlgo::meanshift::Clusters clusters{{0, 5, 3, None, 5}, {10, 11, 12, 13, 14, 15}, {1, 0, 0, 1, 0, 2}};
    VoAlgo::meanshift::RemoveEmptyClusters(clusters, 1);
    EXPECT_EQ(clusters.sizes, (std::vector<unsigned>{1, 0, 1, 2})); // the second of two in a row stays
    EXPECT_EQ(clusters.centres, (std::vector<float>{10, 12, 13, 15}));
    EXPECT_EQ(clusters.clusterOf, (std::vector<unsigned>{0, 3, 2, None, 3}));
}

TEST(MeanShift, RefusesMissingDataThenABadBandwidth)
{
    const float data[] = {1, 2, 3};
    const std::string missing = "missing input data", bandwidth = "invalid bandwidth";
    const std::pair<std::function<void()>, std::string> rows[] = {
        {[&] { CMeanShiftClusterer(nullptr, 1, 3, -1.0F); }, missing},
        {[&] { CMeanShiftClusterer(data, 0, 3, 0.0F); }, missing},
        {[&] { CMeanShiftClusterer(data, 1, 3, 0.0F); }, bandwidth},
        {[&] { CMeanShiftClusterer3D(std::vector<std::array<float, 3>>(), 0.0F); }, missing},
        {[&] { CMeanShiftClusterer3D(static_cast<const double*>(nullptr), 1, -1.0); }, missing},
        {[&] { CMeanShiftClusterer3D(data, 1, -1.0F); }, bandwidth}};
    for (const auto& [make, message] : rows)
        EXPECT_THAT(make, testing::ThrowsMessage<std::invalid_argument>("mean shift clustering: " + message));
}

TEST(MeanShift, NonFiniteDataIsNotClustered)
{
    for (const float bad : {NaN, Inf, -Inf}) {
        const float data[] = {1, 2, 3, 4, 5, bad};
        CMeanShiftClusterer clusterer(data, 2, 3, 1.0F);
        CMeanShiftClusterer3D clusterer3D(data, 2, 1.0F);
        EXPECT_FALSE(clusterer.Run(SquaredDifferences) || clusterer3D.Run());
        EXPECT_TRUE(clusterer.GetCluster(0) == None && clusterer3D.GetCluster(0) == None);
    }
    EXPECT_FALSE(CMeanShiftClusterer().Run(SquaredDifferences) || CMeanShiftClusterer3D().Run());
}

// Iterators, centres and representatives of both, out of range too; on copies and moved objects.
TEST(MeanShift, MembersOfAClusterInPointOrder)
{
    const std::vector<float> floats{0, 0, 0, 8, 0, 0, 1, 0, 0, 9, 0, 0, 0.4F, 0, 0};
    const std::vector<double> doubles(floats.begin(), floats.end());
    CMeanShiftClusterer3D original(doubles.data(), 5, 3.0);
    ASSERT_TRUE(original.Run());
    const CMeanShiftClusterer3D clusterer3D = original;
    original = CMeanShiftClusterer3D();
    CMeanShiftClusterer source(floats.data(), 5, 3, 3.0F);
    ASSERT_TRUE(source.Run(SquaredDifferences));
    const CMeanShiftClusterer clusterer = std::move(source);
    const auto check = [&](const auto& grouped) {
        ASSERT_EQ(grouped.GetNumClusters(), 2U);
        std::vector<unsigned> members;
        for (auto it = grouped.GetClusterIterator(grouped.GetCluster(0)); it; ++it) {
            members.push_back(it.GetIndex());
            EXPECT_EQ(it[0], floats[std::size_t{3} * it.GetIndex()]);
            EXPECT_EQ(it.operator->()[0], it[0]);
            EXPECT_EQ(it.GetClusterSize(), 3U);
            EXPECT_TRUE(it != grouped.GetClusterIterator(2));
        }
        EXPECT_EQ(members, (std::vector<unsigned>{0, 2, 4}));
        EXPECT_EQ(grouped.GetClusterCenter(2), nullptr);
        EXPECT_EQ(grouped.GetClusterSize(2) + grouped.GetClusterIterator(2).GetClusterSize(), 0U);
        EXPECT_FALSE(grouped.GetClusterIterator(2));
    };
    check(clusterer);
    check(clusterer3D);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(clusterer3D.GetClusterCenter(1)) % 16, 0U);
    EXPECT_EQ(clusterer3D.GetClusterCenter(1)[3], 0.0F);
    const unsigned c = clusterer.GetCluster(0);
    EXPECT_EQ(clusterer.GetClusterRepresentative(c, SquaredDifferences), 4);     // centre 0.467
    EXPECT_EQ(clusterer.GetClusterRepresentative(1 - c, SquaredDifferences), 1); // the first of equally near ones
    EXPECT_EQ(clusterer.GetClusterRepresentative(2, SquaredDifferences), -1);
}

// Worked out by hand: n points, K clusters, d = 1, s the error sum ÷ (n − K).
TEST(MeanShift, QualityMeasures)
{
    const struct {
        std::vector<float> data;
        float bandwidth, dunn;
        double bic;
    } rows[] = {
        {{0, 0, 2, 2}, 10.0F, Inf, -2 * std::log(8 * std::numbers::pi / 3) - 1.5 - std::log(4.0)}, // s = 4 ÷ 3
        {{0, 1, 6, 8}, // within at most 1 and 2, between at least 5; s = 2.5 ÷ 2
         3.0F,
         2.5F,
         2 * (2 * std::log(2.0) - 2 * std::log(4.0) - std::log(2.5 * std::numbers::pi) - 0.5) - 2 * std::log(4.0)}};
    for (const auto& row : rows) {
        CMeanShiftClusterer clusterer(row.data.data(), 4, 1, row.bandwidth);
        EXPECT_EQ(clusterer.ComputeDunnIndex(SquaredDifferences), Inf); // nothing clustered yet
        ASSERT_TRUE(clusterer.Run(SquaredDifferences));
        EXPECT_FLOAT_EQ(clusterer.ComputeDunnIndex(SquaredDifferences), row.dunn);
        EXPECT_NEAR(clusterer.ComputeBIC(SquaredDifferences), row.bic, 1e-5);
    }
    const Cloud cloud{90, 7, 2.0F, 0.25F, 0.0F, 1.1F}; // squares of such coordinates add up exactly in any order
    CMeanShiftClusterer euclidean(MakePoints(cloud, 3).data(), cloud.n, cloud.d, cloud.bandwidth);
    ASSERT_TRUE(euclidean.Run({}));
    EXPECT_GT(euclidean.GetNumClusters(), 1U);
    EXPECT_EQ(euclidean.ComputeDunnIndex({}), euclidean.ComputeDunnIndex(SquaredDifferences));
    CMeanShiftClusterer3D space(std::vector<std::array<float, 3>>{{0, 0, 0}, {0, 1, 0}, {6, 0, 0}, {8, 0, 0}}, 3.0F);
    ASSERT_TRUE(space.Run());
    EXPECT_FLOAT_EQ(space.ComputeDunnIndex(), 3.0F);
}

// A chord of the unit sphere, there and back.
TEST(MeanShift, BandwidthAndAngleBetweenNormals)
{
    for (const float angle : {0.1F, 0.7F, 1.5F, 2.0F, 3.0F}) {
        const float chord = CMeanShiftClusterer3D::ComputeBandwidthFromAngleForNormalClustering(angle);
        EXPECT_NEAR(chord, std::hypot(std::cos(angle) - 1.0F, std::sin(angle)), 1e-6F);
        EXPECT_NEAR(CMeanShiftClusterer3D::ComputeAngleFromBandwidthForNormalClustering(chord), angle, 1e-4F);
    }
}

} // namespace
