#include "VoAlgorithms/prereg/cfpfhclusteranalysis.h"

#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"

#include "prereg/detail_kmeans.h"
#include "support/clouds.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace prereg;
using namespace test_support;
using testing::ElementsAre;
using testing::StartsWith;
using Features = std::vector<CPointFeatureHistogram>;
using Sizes = std::vector<std::size_t>;

const std::string Channel = "KEP.PreRegistration|";

CFPFHPointSet MakeSet(const Features& features)
{
    std::vector<Vec3> points;
    for (std::size_t i = 0; i < features.size(); ++i) points.emplace_back(static_cast<float>(i), 0.0F, 0.0F);
    const std::vector normals(points.size(), Vec3(0.0F, 0.0F, 1.0F));
    return {points, normals, points, normals, features};
}

Features RandomFeatures(std::size_t n)
{
    Random random(5);
    Features features(n);
    for (auto& h : features) {
        for (float& bin : h.bins) bin = random.Uniform(0.0F, 1.0F) * random.Uniform(0.0F, 1.0F);
        h.Normalize();
    }
    return features;
}

/// Groups of distinct histograms, far from each other and tight in themselves, in mixed order.
Features MakeGroups(const Sizes& sizes, std::vector<unsigned>* groupOf = nullptr)
{
    std::vector<unsigned> groups;
    for (unsigned group = 0; group < sizes.size(); ++group) groups.insert(groups.end(), sizes[group], group);
    std::shuffle(groups.begin(), groups.end(), Random(1).Engine());
    Features features = RandomFeatures(groups.size());
    for (std::size_t i = 0; i < features.size(); ++i)
        for (std::size_t b = 0; b < 33; ++b)
            features[i][b] = 0.02F * features[i][b] + (b % 11 == groups[i] % 11 ? 1.0F : 0.0F);
    if (groupOf != nullptr) *groupOf = groups;
    return features;
}

ConfigurationFPFH Config(double bandwidth, std::uint32_t vertices)
{
    ConfigurationFPFH config;
    config.dFeatureClusteringBandwidth = bandwidth;
    config.uiNumPolygonVertices = vertices;
    return config;
}

/// The sizes of the clusters and all members one after the other; checks the order and that n features come once each.
std::pair<Sizes, std::vector<unsigned>> Content(const CFPFHClusterAnalysis& analysis, std::size_t n)
{
    Sizes sizes;
    std::vector<unsigned> members, all(n);
    for (std::size_t c = 0; c < analysis.GetNumClusters(); ++c) {
        const auto range = analysis.GetCluster(c);
        EXPECT_TRUE(std::is_sorted(range.begin(), range.end()));
        EXPECT_EQ(static_cast<std::size_t>(range.end() - range.begin()), analysis.GetClusterSize(c));
        members.insert(members.end(), range.begin(), range.end());
        sizes.push_back(analysis.GetClusterSize(c));
    }
    EXPECT_TRUE(std::is_sorted(sizes.begin(), sizes.end()));
    std::iota(all.begin(), all.end(), 0U);
    EXPECT_THAT(members, testing::UnorderedElementsAreArray(all));
    EXPECT_EQ(analysis.GetClusterSize(sizes.size()), 0U);
    EXPECT_EQ(analysis.GetCluster(sizes.size()).begin(), analysis.GetCluster(sizes.size()).end());
    return {sizes, members};
}

TEST(CFPFHClusterAnalysis, FindsTheGroupsByEitherMethod)
{
    const LogCapture quiet;
    std::vector<unsigned> groupOf;
    const CFPFHPointSet set = MakeSet(MakeGroups({30, 5, 12, 12, 1}, &groupOf));
    for (const auto& config : {Config(0.5, 0), Config(-1.0, 5), Config(0.0, 5)}) {
        const CFPFHClusterAnalysis analysis(set, config);
        EXPECT_EQ(Content(analysis, 60).first, (Sizes{1, 5, 12, 12, 30}));
        for (std::size_t c = 0; c < analysis.GetNumClusters(); ++c)
            for (const unsigned i : analysis.GetCluster(c))
                EXPECT_EQ(groupOf[i], groupOf[*analysis.GetCluster(c).begin()]);
    }
}

// Features without groups; clusters of equal size follow the order in which mean shift found them.
TEST(CFPFHClusterAnalysis, OrdersClustersBySizeThenByDiscovery)
{
    const LogCapture quiet;
    const Features features = RandomFeatures(400);
    const CFPFHPointSet set = MakeSet(features);
    for (const auto& config : {Config(1.5, 0), Config(1e-30, 0), Config(0.0, 10), Config(0.0, 1000)})
        (void)Content(CFPFHClusterAnalysis(set, config), features.size());

    VoAlgo::CMeanShiftClusterer clusterer(features[0].bins, features.size(), 33, 0.9F);
    ASSERT_TRUE(clusterer.Run([](std::size_t, const float* a, const float* b) {
        using Histogram = const CPointFeatureHistogram*;
        return reinterpret_cast<Histogram>(a)->SquaredChi2Distance(*reinterpret_cast<Histogram>(b));
    }));
    std::vector<unsigned> expected(features.size());
    std::iota(expected.begin(), expected.end(), 0U);
    std::stable_sort(expected.begin(), expected.end(), [&](unsigned a, unsigned b) {
        const unsigned ca = clusterer.GetCluster(a), cb = clusterer.GetCluster(b);
        return std::pair(clusterer.GetClusterSize(ca), ca) < std::pair(clusterer.GetClusterSize(cb), cb);
    });
    const auto [sizes, members] = Content(CFPFHClusterAnalysis(set, Config(0.9, 0)), features.size());
    EXPECT_EQ(members, expected);
    const unsigned* counts = clusterer.GetClusterHistogram(); // empty clusters can be left in it
    EXPECT_EQ(sizes.size(), clusterer.GetNumClusters() - std::count(counts, counts + clusterer.GetNumClusters(), 0U));
}

TEST(CFPFHClusterAnalysis, ReportsWhatItDoes)
{
    const CFPFHPointSet set = MakeSet(MakeGroups({2, 3}));
    LogCapture log;
    EXPECT_EQ(CFPFHClusterAnalysis(set, Config(0.5, 5)).GetNumClusters(), 2U);
    EXPECT_THAT(log.Take(),
                ElementsAre(Channel + "W|ignoring setting uiNumPolygonVertices=5 while Mean-Shift cluster analysis is "
                                      "active (dFeatureClusteringBandwidth=0.5 > 0)",
                            Channel + "I|Clustering feature space ...",
                            testing::MatchesRegex(".*.T.done .[0-9.]+ s. => 2 clusters detected"),
                            StartsWith(Channel + "T|Dunn index: "), Channel + "T|  0: 2 [0,2]",
                            Channel + "T|  1: 3 [2,5]"));
    EXPECT_EQ(CFPFHClusterAnalysis(set, Config(0.0, 2)).GetNumClusters(), 2U);
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "T|  0: 2 [0,2]", Channel + "T|  1: 3 [2,5]",
                                        StartsWith(Channel + "T|Clustered feature space in ")));
    EXPECT_EQ(CFPFHClusterAnalysis(set, Config(0.0, 0)).GetNumClusters(), 0U);
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "E|invalid combination of configuration parameters: "
                                                  "dFeatureClusteringBandwidth<=0 in conflict with "
                                                  "uiNumPolygonVertices==0"));
}

TEST(CFPFHClusterAnalysis, BadDataEndsDefined)
{
    const LogCapture quiet;
    Features features = RandomFeatures(50);
    features[7][20] = std::numeric_limits<float>::quiet_NaN();
    const CFPFHPointSet set = MakeSet(features);
    for (const double bandwidth : {0.5, 1e-60}) // the second is 0 in single precision
        EXPECT_EQ(Content(CFPFHClusterAnalysis(set, Config(bandwidth, 0)), 50).first, Sizes{50});
    (void)Content(CFPFHClusterAnalysis(set, Config(0.0, 5)), 50);
    const CFPFHPointSet equal = MakeSet(Features(50, features[0]));
    EXPECT_EQ(Content(CFPFHClusterAnalysis(equal, Config(0.0, 5)), 50).first, Sizes{50});
    for (const auto& config : {Config(0.5, 0), Config(0.0, 5)}) {
        const CFPFHClusterAnalysis none(CFPFHPointSet(), config);
        EXPECT_TRUE(Content(none, 0).first.empty() && none.IsOutlier(0, 1.5));
        EXPECT_EQ(none.GetInlierClusterRange(1.5), (std::pair<std::size_t, std::size_t>(0, 0)));
    }
}

// The quartiles and fences are worked out by hand.
TEST(CFPFHClusterAnalysis, ClustersOfOrdinarySize)
{
    const LogCapture quiet;
    constexpr double Inf = std::numeric_limits<double>::infinity();
    const struct {
        Sizes sizes;
        double k;
        std::pair<std::size_t, std::size_t> range;
    } rows[] = {
        {{1, 2, 10, 10, 10, 11}, 1.5, {0, 5}}, // Q 2, 10; fences −10, 22
        {{1, 1, 1, 1, 50}, 1.5, {0, 3}},       // Q 1, 1; fences 1, 1
        {{1, 2, 10, 40}, 0.0, {0, 2}},         // Q 1.5, 25; fences 1, 25
        {{1, 2, 10, 40}, 0.63, {0, 3}},        // fences −14, 40: the size on the fence is ordinary
        {{1, 20, 20, 20, 20}, 1.0, {1, 4}},    // Q 20, 20: below
        {{1, 20, 20, 20, 70}, 9.0, {1, 3}},    // on both sides
        {{3}, 1.5, {0, 0}},
        {{2, 9}, -Inf, {1, 1}}, // nothing is ordinary: one stays
        {{2, 9}, Inf, {0, 1}},
    };
    for (const auto& row : rows) {
        const CFPFHClusterAnalysis analysis(MakeSet(MakeGroups(row.sizes)), Config(0.5, 0));
        const auto range = analysis.GetInlierClusterRange(row.k);
        EXPECT_EQ(range, row.range) << testing::PrintToString(row.sizes) << ", k = " << row.k;
        for (std::size_t c = 0; c <= row.sizes.size(); ++c)
            EXPECT_EQ(analysis.IsOutlier(c, row.k), c < range.first || c > range.second);
    }
}

// The file has a fixed name; where that is no drive, it lies in a folder "d:" of the working directory.
#ifndef _WIN32
TEST(CFPFHClusterAnalysis, ScansBandwidths)
{
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    const fs::path folder = fs::temp_directory_path() / ("voalgo_bic_" + std::to_string(std::random_device()()));
    fs::create_directories(folder / "d:");
    fs::current_path(folder);
    LogCapture log;
    CFPFHClusterAnalysis::ScanBandwidth(MakeSet(MakeGroups({5, 6, 7})), 0.0, 1.0, 3);
    std::ifstream file("d:/BIC.csv");
    double h[2] = {};
    std::string text[2], rest;
    EXPECT_TRUE(file >> h[0] >> text[0] >> h[1] >> text[1]);
    EXPECT_FALSE(file >> rest);
    fs::current_path(before);
    fs::remove_all(folder);
    EXPECT_THAT(h, ElementsAre(0.5, 1.0)); // bandwidth 0 fails
    EXPECT_THAT(log.Take(), ElementsAre(Channel + "E|clustering FAILED!", StartsWith(Channel + "I|(h=0.5) DunnIndex: "),
                                        testing::AllOf(StartsWith(Channel + "I|(h=1) DunnIndex: "),
                                                       testing::EndsWith(", BIC: " + text[1] + " (3 clusters)"))));
}
#endif

TEST(KMeans, MeansTellWhereMembersBelong)
{
    const Features features = RandomFeatures(300);
    const auto clusters = prereg::detail::ClusterByKMeans(features, 6);
    EXPECT_EQ(clusters.clusterOf, prereg::detail::ClusterByKMeans(features, 6).clusterOf);
    ASSERT_EQ(clusters.sizes.size(), 6U);
    Features means(6); // the centres are not handed out; their means still tell where most members belong
    for (std::size_t i = 0; i < features.size(); ++i)
        means[clusters.clusterOf[i]].Add(features[i], 1.0F / static_cast<float>(clusters.sizes[clusters.clusterOf[i]]));
    std::size_t right = 0;
    for (std::size_t i = 0; i < features.size(); ++i) {
        const auto nearest = std::min_element(means.begin(), means.end(), [&](const auto& a, const auto& b) {
            return features[i].SquaredChi2Distance(a) < features[i].SquaredChi2Distance(b);
        });
        right += static_cast<unsigned>(nearest - means.begin()) == clusters.clusterOf[i] ? 1 : 0;
    }
    EXPECT_GT(right, 270U);
}

TEST(KMeans, ReportsOnRequest)
{
    const auto report = [](const Features& features, std::size_t k) {
        testing::internal::CaptureStdout();
        const auto verbose = prereg::detail::ClusterByKMeans(features, k, true);
        EXPECT_EQ(verbose.clusterOf, prereg::detail::ClusterByKMeans(features, k).clusterOf); // which may end early
        return testing::internal::GetCapturedStdout();
    };
    EXPECT_EQ(report(Features(3, CPointFeatureHistogram::Identity()), 2),
              "Fehler=0\nAbbruch nach #1 Schritten (Stagnation, Fehler=0)\n");
    const std::string full = report(RandomFeatures(20), 3);
    EXPECT_EQ(std::count(full.begin(), full.end(), '\n'), 1001);
    EXPECT_THAT(full, testing::EndsWith("\nAbbruch nach #1000 Schritten (maxiter)\n"));
}

} // namespace
