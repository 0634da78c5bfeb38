#include "VoAlgorithms/prereg/cfpfhclusteranalysis.h"

#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/platform/logging.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"

#include "prereg/detail_kmeans.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using prereg::CFPFHClusterAnalysis;
using prereg::CFPFHPointSet;
using prereg::ConfigurationFPFH;
using prereg::CPointFeatureHistogram;
using Features = std::vector<CPointFeatureHistogram>;
using Sizes = std::vector<std::size_t>;

CFPFHPointSet MakeSet(const Features& features)
{
    std::vector<kdtree::Vector<3>> points, normals;
    for (std::size_t i = 0; i < features.size(); ++i) {
        points.emplace_back(static_cast<float>(i), 0.0F, 0.1F * static_cast<float>(i % 17));
        normals.emplace_back(0.0F, 0.0F, 1.0F);
    }
    return {points, normals, points, normals, features};
}

// Groups of distinct histograms, far from each other and tight in themselves, in mixed order: (feature, group).
std::vector<std::pair<CPointFeatureHistogram, unsigned>> MakeGroups(const Sizes& sizes)
{
    std::mt19937 engine(3);
    std::uniform_real_distribution<float> uniform(0.0F, 0.01F);
    std::vector<std::pair<CPointFeatureHistogram, unsigned>> features;
    for (unsigned group = 0; group < sizes.size(); ++group)
        for (std::size_t i = 0; i < sizes[group]; ++i) {
            CPointFeatureHistogram h;
            for (std::size_t b = 0; b < CPointFeatureHistogram::NumBins; ++b) h[b] = uniform(engine);
            for (std::size_t block = 0; block < 33; block += 11) h[block + group % 11] += 1.0F;
            features.emplace_back(h, group);
        }
    std::shuffle(features.begin(), features.end(), engine);
    return features;
}

Features FeaturesOf(const std::vector<std::pair<CPointFeatureHistogram, unsigned>>& grouped)
{
    Features features;
    for (const auto& entry : grouped) features.push_back(entry.first);
    return features;
}

Features RandomFeatures(std::size_t n)
{
    std::mt19937 engine(5);
    std::uniform_real_distribution<float> uniform(0.0F, 1.0F);
    Features features(n);
    for (auto& h : features) {
        for (std::size_t b = 0; b < CPointFeatureHistogram::NumBins; ++b) h[b] = uniform(engine) * uniform(engine);
        h.Normalize();
    }
    return features;
}

ConfigurationFPFH Config(double bandwidth, std::uint32_t vertices)
{
    ConfigurationFPFH config;
    config.dFeatureClusteringBandwidth = bandwidth;
    config.uiNumPolygonVertices = vertices;
    return config;
}

Sizes SizesOf(const CFPFHClusterAnalysis& analysis)
{
    Sizes sizes;
    for (std::size_t c = 0; c < analysis.GetNumClusters(); ++c) sizes.push_back(analysis.GetClusterSize(c));
    return sizes;
}

std::vector<unsigned> Members(const CFPFHClusterAnalysis& analysis, std::size_t c)
{
    const auto range = analysis.GetCluster(c);
    return {range.begin(), range.end()};
}

// Every feature once, clusters by ascending size, members by ascending index.
void ExpectOrderedPartition(const CFPFHClusterAnalysis& analysis, std::size_t n)
{
    std::vector<unsigned> all;
    for (std::size_t c = 0; c < analysis.GetNumClusters(); ++c) {
        const std::vector<unsigned> members = Members(analysis, c);
        EXPECT_EQ(members.size(), analysis.GetClusterSize(c));
        EXPECT_TRUE(std::is_sorted(members.begin(), members.end()));
        all.insert(all.end(), members.begin(), members.end());
    }
    const Sizes sizes = SizesOf(analysis);
    EXPECT_TRUE(std::is_sorted(sizes.begin(), sizes.end()));
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), n);
    for (unsigned i = 0; i < n; ++i) ASSERT_EQ(all[i], i);
    EXPECT_EQ(analysis.GetClusterSize(analysis.GetNumClusters()), 0U);
    const auto outside = analysis.GetCluster(analysis.GetNumClusters());
    EXPECT_EQ(outside.begin(), outside.end());
}

class CFPFHClusterAnalysisTest : public testing::Test {
protected:
    void SetUp() override
    {
        Logging::SetLevel(Logging::ELogLevel::Trace);
        Logging::SetSink([this](const Logging::Message& m) {
            if (m.channel != std::string("KEP.PreRegistration")) return;
            messages_.emplace_back(m.level, m.text);
        });
    }
    void TearDown() override
    {
        Logging::SetSink(nullptr);
        Logging::SetLevel(Logging::ELogLevel::Warn);
    }
    [[nodiscard]] bool HasMessage(Logging::ELogLevel level, const std::wstring& text) const
    {
        return std::count(messages_.begin(), messages_.end(), std::pair(level, text)) == 1;
    }

    std::vector<std::pair<Logging::ELogLevel, std::wstring>> messages_;
};

TEST_F(CFPFHClusterAnalysisTest, FindsTheGroupsByEitherMethod)
{
    const auto grouped = MakeGroups({30, 5, 12, 12, 1});
    const CFPFHPointSet set = MakeSet(FeaturesOf(grouped));
    for (const auto& config : {Config(0.5, 0), Config(-1.0, 5), Config(0.0, 5)}) {
        const CFPFHClusterAnalysis analysis(set, config);
        ExpectOrderedPartition(analysis, grouped.size());
        EXPECT_EQ(SizesOf(analysis), (Sizes{1, 5, 12, 12, 30}));
        for (std::size_t c = 0; c < analysis.GetNumClusters(); ++c)
            for (const unsigned i : analysis.GetCluster(c))
                EXPECT_EQ(grouped[i].second, grouped[*analysis.GetCluster(c).begin()].second);
    }
}

TEST_F(CFPFHClusterAnalysisTest, PartitionsFeaturesWithoutGroups)
{
    const Features features = RandomFeatures(400);
    const CFPFHPointSet set = MakeSet(features);
    for (const auto& config : {Config(0.9, 0), Config(1.5, 0), Config(1e-30, 0), Config(0.0, 10), Config(0.0, 1000)})
        ExpectOrderedPartition(CFPFHClusterAnalysis(set, config), features.size());

    // Clusters of equal size follow the order in which mean shift found them.
    VoAlgo::CMeanShiftClusterer clusterer(features[0].bins, features.size(), CPointFeatureHistogram::NumBins, 0.9F);
    ASSERT_TRUE(clusterer.Run([](std::size_t, const float* a, const float* b) {
        CPointFeatureHistogram ha, hb;
        std::copy_n(a, CPointFeatureHistogram::NumBins, ha.bins);
        std::copy_n(b, CPointFeatureHistogram::NumBins, hb.bins);
        return ha.SquaredChi2Distance(hb);
    }));
    std::vector<unsigned> expected(features.size());
    for (unsigned i = 0; i < expected.size(); ++i) expected[i] = i;
    std::stable_sort(expected.begin(), expected.end(), [&](unsigned a, unsigned b) {
        const unsigned ca = clusterer.GetCluster(a), cb = clusterer.GetCluster(b);
        return std::pair(clusterer.GetClusterSize(ca), ca) < std::pair(clusterer.GetClusterSize(cb), cb);
    });
    const CFPFHClusterAnalysis analysis(set, Config(0.9, 0));
    const unsigned* sizes = clusterer.GetClusterHistogram(); // empty clusters can be left in it
    EXPECT_EQ(analysis.GetNumClusters(),
              std::count_if(sizes, sizes + clusterer.GetNumClusters(), [](unsigned size) { return size > 0; }));
    std::vector<unsigned> members;
    for (std::size_t c = 0; c < analysis.GetNumClusters(); ++c)
        members.insert(members.end(), analysis.GetCluster(c).begin(), analysis.GetCluster(c).end());
    EXPECT_EQ(members, expected);
}

TEST_F(CFPFHClusterAnalysisTest, SaysWhatItDoesWithTheConfiguration)
{
    using Level = Logging::ELogLevel;
    const CFPFHPointSet set = MakeSet(FeaturesOf(MakeGroups({2, 3})));
    const CFPFHClusterAnalysis ignoring(set, Config(0.5, 5));
    EXPECT_EQ(ignoring.GetNumClusters(), 2U);
    EXPECT_TRUE(HasMessage(Level::Warn, L"ignoring setting uiNumPolygonVertices=5 while Mean-Shift cluster analysis is "
                                        L"active (dFeatureClusteringBandwidth=0.5 > 0)"));
    EXPECT_TRUE(HasMessage(Level::Info, L"Clustering feature space ..."));
    EXPECT_TRUE(HasMessage(Level::Trace, L"  0: 2 [0,2]"));
    EXPECT_TRUE(HasMessage(Level::Trace, L"  1: 3 [2,5]"));
    EXPECT_NE(messages_[2].second.find(L" s) => 2 clusters detected"), std::wstring::npos);
    EXPECT_EQ(messages_[3].second.rfind(L"Dunn index: ", 0), 0U);

    messages_.clear();
    const CFPFHClusterAnalysis kMeans(set, Config(0.0, 2));
    EXPECT_EQ(kMeans.GetNumClusters(), 2U);
    ASSERT_EQ(messages_.size(), 3U);
    EXPECT_EQ(messages_[2].second.rfind(L"Clustered feature space in ", 0), 0U);

    messages_.clear();
    const CFPFHClusterAnalysis contradictory(set, Config(0.0, 0));
    EXPECT_EQ(contradictory.GetNumClusters(), 0U);
    EXPECT_TRUE(HasMessage(Level::Error, L"invalid combination of configuration parameters: "
                                         L"dFeatureClusteringBandwidth<=0 in conflict with uiNumPolygonVertices==0"));
}

TEST_F(CFPFHClusterAnalysisTest, BadDataEndsDefined)
{
    Features features = RandomFeatures(50);
    features[7][20] = std::numeric_limits<float>::quiet_NaN();
    const CFPFHPointSet set = MakeSet(features);
    ASSERT_EQ(set.SizeFeatures(), 50U);
    for (const double bandwidth : {0.5, 1e-60}) { // the second is 0 in single precision
        const CFPFHClusterAnalysis single(set, Config(bandwidth, 0));
        ASSERT_EQ(SizesOf(single), Sizes{50});
        ExpectOrderedPartition(single, 50);
    }
    ExpectOrderedPartition(CFPFHClusterAnalysis(set, Config(0.0, 5)), 50);

    const Features equal(50, features[0]);
    EXPECT_EQ(SizesOf(CFPFHClusterAnalysis(MakeSet(equal), Config(0.0, 5))), Sizes{50});
    for (const auto& config : {Config(0.5, 0), Config(0.0, 5)}) {
        const CFPFHClusterAnalysis none(CFPFHPointSet(), config);
        EXPECT_EQ(none.GetNumClusters(), 0U);
        EXPECT_EQ(none.GetCluster(0).begin(), none.GetCluster(0).end());
        EXPECT_EQ(none.GetInlierClusterRange(1.5), (std::pair<std::size_t, std::size_t>(0, 0)));
        EXPECT_TRUE(none.IsOutlier(0, 1.5));
    }
}

// The quartiles and fences are worked out by hand.
TEST_F(CFPFHClusterAnalysisTest, ClustersOfOrdinarySize)
{
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
        const CFPFHClusterAnalysis analysis(MakeSet(FeaturesOf(MakeGroups(row.sizes))), Config(0.5, 0));
        ASSERT_EQ(SizesOf(analysis), row.sizes);
        const auto range = analysis.GetInlierClusterRange(row.k);
        EXPECT_EQ(range, row.range) << testing::PrintToString(row.sizes) << ", k = " << row.k;
        for (std::size_t c = 0; c <= row.sizes.size(); ++c)
            EXPECT_EQ(analysis.IsOutlier(c, row.k), c < range.first || c > range.second);
    }
}

// The file has a fixed name; where that is no drive, it lies in a folder "d:" of the working directory.
#ifndef _WIN32
TEST_F(CFPFHClusterAnalysisTest, ScansBandwidths)
{
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    const fs::path folder = fs::temp_directory_path() / ("voalgo_bic_" + std::to_string(std::random_device()()));
    fs::create_directories(folder / "d:");
    fs::current_path(folder);
    CFPFHClusterAnalysis::ScanBandwidth(MakeSet(FeaturesOf(MakeGroups({5, 6, 7}))), 0.0, 1.0, 3);
    std::ifstream file("d:/BIC.csv");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    fs::current_path(before);
    fs::remove_all(folder);

    ASSERT_EQ(lines.size(), 2U); // bandwidth 0 fails
    EXPECT_TRUE(HasMessage(Logging::ELogLevel::Error, L"clustering FAILED!"));
    EXPECT_EQ(lines[0].rfind("0.5 ", 0), 0U);
    EXPECT_EQ(lines[1].rfind("1 ", 0), 0U);
    const std::wstring bic(lines[1].begin() + 2, lines[1].end());
    EXPECT_EQ(messages_.back().second.rfind(L"(h=1) DunnIndex: ", 0), 0U);
    EXPECT_NE(messages_.back().second.find(L", BIC: " + bic + L" (3 clusters)"), std::wstring::npos);
}
#endif

TEST(KMeans, EveryFeatureIsInTheClusterOfItsNearestCentre)
{
    const Features features = RandomFeatures(300);
    const auto clusters = prereg::detail::ClusterByKMeans(features, 6);
    const auto again = prereg::detail::ClusterByKMeans(features, 6);
    EXPECT_EQ(clusters.clusterOf, again.clusterOf);
    ASSERT_EQ(clusters.sizes.size(), 6U);
    // The centres are not handed out: their means must at least tell most members where they belong.
    std::vector<CPointFeatureHistogram> means(6);
    for (std::size_t i = 0; i < features.size(); ++i)
        means[clusters.clusterOf[i]].Add(features[i], 1.0F / static_cast<float>(clusters.sizes[clusters.clusterOf[i]]));
    std::size_t right = 0;
    for (std::size_t i = 0; i < features.size(); ++i) {
        unsigned nearest = 0;
        for (unsigned c = 1; c < 6; ++c)
            if (features[i].SquaredChi2Distance(means[c]) < features[i].SquaredChi2Distance(means[nearest]))
                nearest = c;
        right += nearest == clusters.clusterOf[i] ? 1 : 0;
    }
    EXPECT_GT(right, 270U);
}

TEST(KMeans, ReportsOnRequest)
{
    testing::internal::CaptureStdout();
    const Features equal(3, CPointFeatureHistogram::Identity());
    prereg::detail::ClusterByKMeans(equal, 2, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Fehler=0\nAbbruch nach #1 Schritten (Stagnation, Fehler=0)\n");

    const Features features = RandomFeatures(20);
    testing::internal::CaptureStdout();
    const auto verbose = prereg::detail::ClusterByKMeans(features, 3, true);
    const std::string report = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 1001);
    EXPECT_NE(report.find("\nAbbruch nach #1000 Schritten (maxiter)\n"), std::string::npos);
    EXPECT_EQ(verbose.clusterOf, prereg::detail::ClusterByKMeans(features, 3).clusterOf); // the early end is no other
}

} // namespace
