#include "VoAlgorithms/clustering/csearchgrid.h"
#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"

#include "support/clouds.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace prereg;
using namespace test_support;
using VoAlgo::CTrafo;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
const std::string Channel = "KEP.PreRegistration.FPFH|";

void ExpectSame(const CFPFHDataSource& a, const CFPFHDataSource& b)
{
    EXPECT_TRUE(SameBits(a.GetPoints(), b.GetPoints()));
    EXPECT_TRUE(SameBits(a.GetNormals(), b.GetNormals()));
    EXPECT_TRUE(SameBits(a.GetFeaturePoints(), b.GetFeaturePoints()));
    EXPECT_TRUE(SameBits(a.GetFeatureNormals(), b.GetFeatureNormals()));
    EXPECT_TRUE(SameBits(a.GetFeatures(), b.GetFeatures()));
}

CFPFHDataSource FromScratch(const Cloud& cloud, double radius, unsigned quality, unsigned threads = 1)
{
    CFPFHDataSource source(radius, quality, threads, false);
    EXPECT_TRUE(source.Update(cloud.points, cloud.normals));
    return source;
}

/// Features of all points by two loops over all pairs. The order of the additions is that of the grid.
std::vector<CPointFeatureHistogram> PlainFeatures(const Cloud& cloud, float radius)
{
    const std::size_t n = cloud.Size();
    const auto distanceSq = [&](std::size_t i, std::size_t k) { return (cloud.points[k] - cloud.points[i]).NormSq(); };
    std::vector<CPointFeatureHistogram> simple(n), features(n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t k = 0; k < n; ++k)
            if (k != i && distanceSq(i, k) <= radius * radius)
                simple[i].Update(cloud.points[i], cloud.normals[i], cloud.points[k], cloud.normals[k]);
    const VoAlgo::CSearchGrid grid(cloud.points, radius);
    for (std::size_t i = 0; i < n; ++i) {
        std::vector<std::size_t> within;
        for (const std::uint32_t k : grid.Order())
            if (distanceSq(i, k) <= radius * radius) within.push_back(k);
        const float share = 1.0F / static_cast<float>(within.size());
        for (const std::size_t k : within)
            if (const float d = std::sqrt(distanceSq(i, k)); d > 0.0F) features[i].Add(simple[k], share / d);
        features[i].Normalize();
    }
    return features;
}

// Catches a pair counted twice or not, the point paired with itself, a weight, an order of additions, a border of the
// radius, and what hides in the eight-wide kernels: rests of less than eight, normals without length or of length 2.
TEST(CFPFHDataSource, FeaturesEqualTwoLoopsOverAllPairs)
{
    Cloud odd = test_support::Body(900, 3, 4);
    for (std::size_t i = 0; i < odd.Size(); i += 10) odd.normals[i] = i % 20 == 0 ? Vec3() : 2.0F * odd.normals[i];
    Cloud noise;
    Random random(5);
    for (int i = 0; i < 700; ++i) noise.Add(random.InCube(2.0F), random.Direction());
    Cloud far = test_support::Sphere(800, 1000.0F);
    for (Vec3& p : far.points) p += Vec3(1e7F, -1e7F, 1e7F);
    const struct {
        const char* name;
        Cloud cloud;
        float radius;
    } rows[] = {{"body", test_support::Body(1500, 1, 2), 4.0F},
                {"odd normals", odd, 5.0F},
                {"noise", noise, 0.9F},
                {"one cell", test_support::Sphere(300, 1.0F), 5.0F},
                {"on the border", test_support::Plane(25, 0.5F), 1.5F},
                {"far away", far, 400.0F}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const CFPFHDataSource source = FromScratch(row.cloud, static_cast<double>(row.radius), 0);
        const auto expected = PlainFeatures(row.cloud, row.radius);
        EXPECT_GT(source.GetFeatures().size(), 10U);
        std::size_t index = 0; // feature points come in the order of the points
        for (std::size_t f = 0; f < source.GetFeatures().size(); ++f, ++index) {
            while (index < row.cloud.Size() && row.cloud.points[index] != source.GetFeaturePoints()[f]) ++index;
            ASSERT_LT(index, row.cloud.Size());
            ASSERT_EQ(source.GetFeatureNormals()[f], row.cloud.normals[index]);
            ASSERT_EQ(std::memcmp(&source.GetFeatures()[f], &expected[index], sizeof(expected[index])), 0) << index;
        }
        EXPECT_TRUE(SameBits(source.GetPoints(), row.cloud.points));
        EXPECT_TRUE(SameBits(source.GetNormals(), row.cloud.normals));
    }
}

// On a sphere |n_q − n_p| = |q − p| ÷ R, so the curvature quality is 100 · r ÷ R everywhere.
TEST(CFPFHDataSource, CurvatureQualityOfASphere)
{
    const LogCapture quiet;
    const Cloud sphere = test_support::Sphere(3000, 5.0F);
    for (const auto& [radius, quality] : {std::pair(2.0, 40U), std::pair(2.5, 50U)}) {
        EXPECT_GT(FromScratch(sphere, radius * 1.001, quality).GetFeatures().size(), 2900U);
        EXPECT_EQ(FromScratch(sphere, radius * 0.999, quality).GetFeatures().size(), 0U);
    }
    EXPECT_GT(FromScratch(sphere, 6.0, 100).GetFeatures().size(), 2900U); // no more than 100
}

/// Curvature quality of a point, and larger ÷ smaller eigenvalue of the scatter of its close neighbours in a basis of
/// its tangent plane (infinite for less than twelve), by plain sums.
std::pair<double, double> PlainSurroundings(const Cloud& cloud, std::size_t point, double radius)
{
    const Vec3& normal = cloud.normals[point];
    const Vec3 across = normal.Cross(std::fabs(normal.x) < 0.7F ? Vec3(1, 0, 0) : Vec3(0, 1, 0));
    const Vec3 e = across / across.Norm();
    const Vec3 f = normal.Cross(e);
    double turn = 0.0, way = 0.0, number = 0.0, s = 0.0, a = 0.0, b = 0.0, aa = 0.0, ab = 0.0, bb = 0.0;
    for (std::size_t i = 0; i < cloud.Size(); ++i) {
        const Vec3 d = cloud.points[i] - cloud.points[point];
        const auto dSq = static_cast<double>(d.NormSq());
        if (i == point || dSq > radius * radius) continue;
        turn += static_cast<double>((cloud.normals[i] - normal).NormSq());
        way += dSq;
        const double weight = 1.0 - dSq / (0.5625 * radius * radius); // 0 at three quarters of the radius
        if (weight < 0.0) continue;
        const auto u = static_cast<double>(d.Dot(e)), v = static_cast<double>(d.Dot(f));
        number += 1.0;
        s += weight;
        a += weight * u;
        b += weight * v;
        aa += weight * u * u;
        ab += weight * u * v;
        bb += weight * v * v;
    }
    const double uu = aa / s - a / s * a / s, uv = ab / s - a / s * b / s, vv = bb / s - b / s * b / s;
    const double spread = std::hypot(uu - vv, 2.0 * uv);
    const bool isDisc = number >= 12.0 && uu + vv > spread;
    return {100.0 * std::min(1.0, radius * std::sqrt(turn / way)),
            isDisc ? (uu + vv + spread) / (uu + vv - spread) : std::numeric_limits<double>::infinity()};
}

// Catches another limit, its wrong side, another weight or centre, a scatter that is not the tangent plane's, and a
// feature at a point that has no normal or no surface around it.
TEST(CFPFHDataSource, FeaturePointsAreCurvedAndSurrounded)
{
    const LogCapture quiet;
    const Cloud cut = test_support::Body(3000, 2, 1, [](const Vec3& p) { return p.x > -4.0F; });
    const Cloud sparse = test_support::Plane(21, 1.0F); // eight neighbours are too few to tell, twelve are not
    Cloud holes = test_support::Sphere(1500, 5.0F), line;
    for (std::size_t i = 0; i < holes.Size(); i += 3) holes.normals[i] = Vec3();
    Random random(7);
    for (int i = 0; i < 500; ++i) {
        const Vec3 normal = Vec3(1, 2, 3).Cross(random.Direction());
        line.Add(random.Uniform(0.0F, 5.0F) * Vec3(1, 2, 3), normal / normal.Norm());
    }
    const struct {
        const Cloud& cloud;
        double radius;
        unsigned quality;
        std::size_t fewest, most;
    } rows[] = {{cut, 4.0, 0, 100, cut.Size() - 100},
                {cut, 4.0, 50, 100, 1500},
                {holes, 2.5, 10, 900, 1000},
                {sparse, 2.66, 0, 0, 0},
                {sparse, 2.67, 0, 289, 289},
                {sparse, 2.67, 1, 0, 0},
                {line, 2.0, 25, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.radius << ' ' << row.quality << ' ' << row.fewest);
        const auto points = FromScratch(row.cloud, row.radius, row.quality).GetFeaturePoints();
        EXPECT_TRUE(points.size() >= row.fewest && points.size() <= row.most) << points.size();
        for (std::size_t i = 0; i < row.cloud.Size(); ++i) {
            const auto [quality, ratio] = PlainSurroundings(row.cloud, i, row.radius);
            if (std::fabs(ratio - 1.1236) < 1e-4 || std::fabs(quality - row.quality) < 1e-4 * quality)
                continue; // rounding decides
            const bool isFeature = row.cloud.normals[i] != Vec3() && quality >= row.quality && ratio < 1.1236;
            ASSERT_EQ(std::count(points.begin(), points.end(), row.cloud.points[i]), isFeature ? 1 : 0) << ratio;
        }
    }
}

TEST(CFPFHDataSource, CandidatesRestrictTheFeaturePoints)
{
    const Cloud body = test_support::Body(1200, 7, 1);
    const CFPFHDataSource all = FromScratch(body, 4.0, 25);
    std::vector<unsigned> candidates;
    for (unsigned i = 1100; i > 300; i -= 2) candidates.push_back(i); // any order
    CFPFHDataSource some(4.0, 25, 1, false);
    ASSERT_TRUE(some.Update(body.points, body.normals, &candidates));
    std::vector<CPointFeatureHistogram> expected;
    for (std::size_t f = 0; f < all.GetFeatures().size(); ++f)
        if (std::any_of(candidates.begin(), candidates.end(),
                        [&](unsigned i) { return body.points[i] == all.GetFeaturePoints()[f]; }))
            expected.push_back(all.GetFeatures()[f]);
    EXPECT_GT(expected.size(), 100U);
    EXPECT_TRUE(SameBits(some.GetFeatures(), expected));
    EXPECT_EQ(some.GetPoints().size(), body.Size());
    candidates = {1200};
    EXPECT_THROW(some.Update(body.points, body.normals, &candidates), std::out_of_range);
}

TEST(CFPFHDataSource, ThreadsGiveTheSameBits)
{
    const Cloud body = test_support::Body(6000, 2, 3);
    const CFPFHDataSource serial = FromScratch(body, 1.5, 20, 0);
    EXPECT_GT(serial.GetFeatures().size(), 200U);
    for (const unsigned threads : {1U, 2U, 8U}) {
        LogCapture log;
        ExpectSame(FromScratch(body, 1.5, 20, threads), serial);
        EXPECT_THAT(log.Take(),
                    testing::ElementsAre(testing::StartsWith(Channel + "I|Update of FPFH point set (CPU, ")));
    }
    CFPFHDataSource gpu(std::make_shared<prereg::GPUContext>(), 1.5, 20, false); // none here: the CPU does the work
    ASSERT_TRUE(gpu.Update(body.points, body.normals));
    ExpectSame(gpu, serial);
}

// Edits of a scan, one after the other on the same object; each must leave what a computation from scratch gives.
// Catches a neighbourhood not computed again, a stale order of additions, a feature kept under the wrong number.
TEST(CFPFHDataSource, IncrementalUpdatesEqualComputationFromScratch)
{
    const LogCapture quiet;
    const Cloud full = test_support::Body(2500, 4, 6);
    Cloud cloud;
    Random random(8);
    std::vector<unsigned> candidates(600);
    std::iota(candidates.begin(), candidates.end(), 100U);
    bool useCandidates = false;
    const auto grow = [&](auto isInside) {
        for (std::size_t i = 0; i < full.Size(); ++i)
            if (isInside(full.points[i])) cloud.Add(full.points[i], full.normals[i]);
    };
    const auto erase = [&](auto isInside) {
        const Cloud before = std::exchange(cloud, {});
        for (std::size_t i = 0; i < before.Size(); ++i)
            if (!isInside(i)) cloud.Add(before.points[i], before.normals[i]);
    };
    const auto swapOrder = [&](std::size_t i, std::size_t k) {
        std::swap(cloud.points[i], cloud.points[k]);
        std::swap(cloud.normals[i], cloud.normals[k]);
    };
    const std::pair<const char*, std::function<void()>> edits[] = {
        {"first scan", [&] { grow([](const Vec3& p) { return p.x < 5.0F; }); }},
        {"the same again", [] {}},
        {"a patch grows", [&] { grow([](const Vec3& p) { return p.x >= 5.0F; }); }},
        {"a point moves far", [&] { cloud.points[701] = Vec3(30.0F, 0.0F, 0.0F); }},
        {"zero changes its sign", [&] { cloud.normals[703] = Vec3(0.0F, 1.0F, 0.0F); }},
        {"and back", [&] { cloud.normals[703] = Vec3(-0.0F, 1.0F, 0.0F); }},
        {"all points in reverse",
         [&] {
             for (std::size_t i = 0, n = cloud.Size(); i < n / 2; ++i) swapOrder(i, n - 1 - i);
         }},
        {"points go", [&] { erase([](std::size_t i) { return i % 17 == 0; }); }},
        {"a region goes", [&] { erase([](std::size_t i) { return i < 300; }); }},
        {"only candidates", [&] { useCandidates = true; }},
        {"other candidates", [&] { std::iota(candidates.begin(), candidates.end(), 450U); }},
        {"all may be features again", [&] { useCandidates = false; }},
        {"everything elsewhere", [&] { cloud = Moved(cloud, CTrafo(Vec3(), Vec3(100, 0, 0))); }},
        {"nothing", [&] { cloud = {}; }},
        {"something again", [&] { grow([](const Vec3& p) { return p.z > 0.0F; }); }},
    };
    CFPFHDataSource source(3.0, 30, 2, true);
    std::size_t mostFeatures = 0;
    const auto compare = [&] {
        const std::vector<unsigned>* chosen = useCandidates ? &candidates : nullptr;
        ASSERT_TRUE(source.Update(cloud.points, cloud.normals, chosen));
        CFPFHDataSource scratch(3.0, 30, 1, false);
        ASSERT_TRUE(scratch.Update(cloud.points, cloud.normals, chosen));
        ExpectSame(source, scratch);
        mostFeatures = std::max(mostFeatures, scratch.GetFeatures().size());
    };
    for (const auto& [what, edit] : edits) {
        SCOPED_TRACE(what);
        edit();
        compare();
    }
    for (int round = 0; round < 60; ++round) { // a few of everything at a time
        SCOPED_TRACE(round);
        for (auto n = random.Index(4); n > 0; --n) cloud.points[random.Index(cloud.Size())] += random.InCube(1e-4F);
        for (auto n = random.Index(3); n > 0; --n) cloud.normals[random.Index(cloud.Size())] = random.Direction();
        for (auto n = random.Index(3); n > 0; --n) swapOrder(random.Index(cloud.Size()), random.Index(cloud.Size()));
        for (auto n = random.Index(3); n > 0; --n) cloud.Add(random.InCube(8.0F), random.Direction());
        if (const std::size_t gone = random.Index(2 * cloud.Size()); gone < cloud.Size())
            erase([&](std::size_t i) { return i == gone; });
        compare();
    }
    EXPECT_GT(mostFeatures, 500U);
    source.Clear();
    EXPECT_TRUE(source.GetPoints().empty() && source.GetFeatures().empty() && source.GetFeaturePoints().empty());
    compare();
}

TEST(CFPFHDataSource, RejectsIrregularPointsAndKeepsWhatItHad)
{
    const std::string some = "kD-tree detected", only = "detected (only)";
    const Cloud body = test_support::Body(1000, 9, 1);
    const auto withPoint = [&](const Vec3& p) {
        Cloud cloud = body;
        cloud.Add(p, {0, 0, 1});
        return cloud;
    };
    const auto repeated = [](const Vec3& p) { return Cloud{std::vector(5, p), std::vector(5, Vec3(0, 0, 1))}; };
    const std::pair<Cloud, std::string> rows[] = {{withPoint({0, NaN, 0}), some},
                                                  {withPoint({0, 0, -std::numeric_limits<float>::infinity()}), some},
                                                  {withPoint(body.points[500]), some},
                                                  {repeated({1, 1, 1}), some},
                                                  {repeated({NaN, 0, 0}), only}};
    const Cloud more = withPoint({0, 0, 0});
    const CFPFHDataSource before = FromScratch(body, 4.0, 25);
    for (const bool incremental : {false, true}) {
        CFPFHDataSource source(4.0, 25, 1, incremental);
        ASSERT_TRUE(source.Update(body.points, body.normals));
        LogCapture log;
        for (const auto& [cloud, message] : rows) {
            EXPECT_FALSE(source.Update(cloud.points, cloud.normals));
            EXPECT_THAT(log.Take(), testing::ElementsAre(Channel + "E|rejecting update: " + message +
                                                         " irregular points (Inf/NaN/dupes)"));
            ExpectSame(source, before);
        }
        EXPECT_THROW(source.Update(body.points, {}), std::invalid_argument);
        ASSERT_TRUE(source.Update(more.points, more.normals));
        ExpectSame(source, FromScratch(more, 4.0, 25));
    }
    for (const double radius : {0.0, -1.0, static_cast<double>(NaN)})
        EXPECT_THROW(CFPFHDataSource(radius, 15, 1, false), std::invalid_argument);
}

// A scan with next to no feature points cannot be registered; the one who computes should hear of it.
TEST(CFPFHDataSource, WarnsWhenAlmostNoPointIsAFeature)
{
    LogCapture log;
    (void)FromScratch(test_support::Plane(30, 0.4F), 1.5, 25);
    EXPECT_THAT(log.TakeComplaints(),
                testing::ElementsAre(Channel + "W|only 0 of 900 points are feature points (curvature quality >= 25, "
                                               "radius 1.5 mm)"));
    (void)FromScratch(test_support::Body(1000, 9, 1), 4.0, 25);
    (void)FromScratch(Cloud(), 4.0, 25);
    EXPECT_TRUE(log.TakeComplaints().empty());
}

// The merge against a map from integer cells to sums; cells come in the order in which they were first hit.
TEST(CFPFHDataSource, MergesPosedSets)
{
    const CTrafo pose = Random(3).Pose(0.8F, 15.0F);
    const Cloud body = test_support::Body(1500, 6, 1);
    const Cloud moved = Moved(test_support::Body(1300, 6, 2), pose.GetInverse());
    const CFPFHPointSet a = CFPFHPointSet(FromScratch(body, 4.0, 25)), b = CFPFHPointSet(FromScratch(moved, 4.0, 25));
    constexpr double Edge = 1.2;

    struct Sum {
        double n = 0, p[3] = {}, v[3] = {};
        CPointFeatureHistogram h;
    };
    std::map<std::tuple<long, long, long>, std::size_t> cells[2];
    std::vector<Sum> sums[2]; // of points, of features
    const auto add = [&](int kind, const Vec3& p, const Vec3& v, const CPointFeatureHistogram& h) {
        const auto cell = [](float x) { return std::lrint(static_cast<double>(x) / Edge); };
        const auto at = cells[kind].try_emplace({cell(p.x), cell(p.y), cell(p.z)}, sums[kind].size());
        if (at.second) sums[kind].emplace_back();
        Sum& sum = sums[kind][at.first->second];
        sum.n += 1;
        sum.h.Add(h, 1.0F);
        for (std::size_t k = 0; k < 3; ++k) {
            sum.p[k] += static_cast<double>(p[k]);
            sum.v[k] += static_cast<double>(v[k]);
        }
    };
    for (const auto& [set, t] : {std::pair(&a, CTrafo()), std::pair(&b, pose)}) {
        for (std::size_t i = 0; i < set->Size(); ++i) add(0, t * set->GetPoint(i), t.Rotate(set->GetNormal(i)), {});
        for (std::size_t i = 0; i < set->SizeFeatures(); ++i)
            add(1, t * set->GetFeaturePoint(i), t.Rotate(set->GetFeatureNormal(i)), set->GetFeature(i));
    }

    CFPFHDataSource source(4.0, 25, 1, true);
    ASSERT_TRUE(source.Update(body.points, body.normals)); // to be replaced
    ASSERT_TRUE(source.Update({{&a, CTrafo()}, {nullptr, CTrafo()}, {&b, pose}}, Edge));
    const auto compare = [](const std::vector<Vec3>& points, const std::vector<Vec3>& normals,
                            const std::vector<Sum>& expected) {
        ASSERT_EQ(points.size(), expected.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            const Sum& s = expected[i];
            const double length = std::sqrt(s.v[0] * s.v[0] + s.v[1] * s.v[1] + s.v[2] * s.v[2]);
            for (std::size_t k = 0; k < 3; ++k) {
                ASSERT_EQ(points[i][k], static_cast<float>(s.p[k] / s.n));
                ASSERT_NEAR(normals[i][k], s.v[k] / length, 1e-6);
            }
        }
    };
    compare(source.GetPoints(), source.GetNormals(), sums[0]);
    compare(source.GetFeaturePoints(), source.GetFeatureNormals(), sums[1]);
    EXPECT_LT(source.GetPoints().size(), 2000U); // of 2800: both scans share cells
    for (std::size_t f = 0; f < sums[1].size(); ++f) {
        sums[1][f].h.Normalize();
        ASSERT_EQ(std::memcmp(&source.GetFeatures()[f], &sums[1][f].h, sizeof(CPointFeatureHistogram)), 0);
    }
    ASSERT_TRUE(source.Update(body.points, body.normals)); // what was kept of earlier scans is gone
    ExpectSame(source, FromScratch(body, 4.0, 25));
}

TEST(CFPFHDataSource, MergeRefusesWhatCannotBeMerged)
{
    const Cloud body = test_support::Body(1000, 9, 1);
    const CFPFHDataSource before = FromScratch(body, 4.0, 25);
    const CFPFHPointSet set(before);
    CFPFHDataSource source = before;
    LogCapture log;
    for (const double edge : {0.0, -1.0, double{NaN}, std::numeric_limits<double>::infinity()})
        EXPECT_FALSE(source.Update({{&set, CTrafo()}}, edge));
    EXPECT_THAT(log.Take(),
                testing::AllOf(testing::SizeIs(4),
                               testing::Each(testing::StartsWith(Channel + "E|rejecting update: invalid cell size"))));
    EXPECT_FALSE(source.Update({{&set, CTrafo::Invalid()}}, 1.0));
    EXPECT_FALSE(source.Update({}, 1.0));
    EXPECT_THAT(log.Take(),
                testing::Each(Channel + "E|rejecting update: detected (only) irregular points (Inf/NaN/dupes)"));
    ExpectSame(source, before);
    EXPECT_TRUE(source.Update({{&set, CTrafo()}}, 1e-30)); // cells beyond the range of integers share the last ones
}

} // namespace
