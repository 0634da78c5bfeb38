#include "VoAlgorithms/prereg/cpointset.h"

#include "prereg/detail_bloomfilter.h"
#include "support/clouds.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace {

using prereg::Ellipsoid;
using namespace test_support;
using VoAlgo::CTrafo;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Infinity = std::numeric_limits<float>::infinity();

class Surfels : public prereg::CPointSet {
public:
    explicit Surfels(const Cloud& cloud) : CPointSet(cloud.points, cloud.normals) {}
    Surfels(const Cloud& cloud, const Tree& tree) : CPointSet(cloud.points, cloud.normals, tree) {}
};

TEST(CPointSet, OnlyIrregularPointsEmptyTheSet)
{
    Cloud bad;
    for (const float x : {NaN, Infinity, -Infinity}) bad.Add({x, 0, 0}, {0, 0, 1});
    LogCapture log;
    const Surfels set(bad);
    EXPECT_THAT(log.Take(),
                testing::ElementsAre(
                    "KEP.Registration|E|Inf/NaN in point data resulted in empty kD-tree; invalidating point set"));
    EXPECT_TRUE(set.Empty());
    EXPECT_TRUE(set.GetNormals().empty());
    for (int k = 0; k < 4; ++k) EXPECT_EQ(set.GetEllipsoid()[k], Vec3());
    EXPECT_EQ(set.GetAABB(), std::pair(Vec3(), Vec3()));

    bad.Add({1, 2, 3}, {0, 0, 1}); // one good point keeps all of them, the tree holds it alone
    bad.Add({1, 2, 3}, {0, 1, 0});
    const Surfels kept(bad);
    EXPECT_EQ(kept.Size(), 5U);
    EXPECT_EQ(kept.GetPointsKdTree().Size(), 1U);
    EXPECT_EQ(kept.GetPointsKdTree().Nearest(&bad.points[4].x, 1.0F), 3);
    EXPECT_EQ(kept.GetAABB(), std::pair(Vec3(1, 2, 3), Vec3(1, 2, 3)));
    EXPECT_EQ(kept.GetEllipsoid()[0], Vec3(1, 2, 3));
    EXPECT_TRUE(Surfels(Cloud()).Empty());
    EXPECT_TRUE(log.Take().empty());
    bad.normals.pop_back();
    EXPECT_THROW(Surfels{bad}, std::invalid_argument);
    EXPECT_EQ(Surfels(test_support::Plane(3, 1.0F), kept.GetPointsKdTree()).GetPointsKdTree().Size(), 1U);
}

TEST(CPointSet, MasksAndFilters)
{
    const Cloud cloud = test_support::Plane(9, 1.0F); // -4 to 4
    Surfels set(cloud);
    EXPECT_EQ(set.GetBitMask(5000), 0U);
    EXPECT_TRUE(set.filterSurfelsWithMask(1).first.empty());
    EXPECT_THROW(set.SetBitMask(0, 1), std::out_of_range);
    set.InitializeBitMasks(0b0110);
    set.SetBitMask(7, 0b0111);
    EXPECT_EQ(set.GetBitMask(7), 0b0111U);
    EXPECT_EQ(set.filterSurfelsWithMask(0b0110).first.size(), 81U);
    EXPECT_THAT(set.filterSurfelsWithMask(0b0011).first, testing::ElementsAre(cloud.points[7])); // every bit
    EXPECT_TRUE(set.filterSurfelsWithMask(0b1001).first.empty());
    EXPECT_TRUE(set.filterSurfelsWithMask(0).first.empty());
    EXPECT_THAT([&] { (void)set.GetBitMask(81); },
                testing::ThrowsMessage<std::out_of_range>("invalid vector<T> subscript"));
    set.ClearBitMasks();
    EXPECT_EQ(set.GetBitMask(7), 0U);

    const float A[] = {1, 0, 0, 0, -1, 0}, b[] = {-3, -2}; // x ≤ -3 and y ≥ 2, borders included
    const auto kept = set.filterSurfelsWithPredicate([](const Vec3& p) { return p.x <= -3.0F && p.y >= 2.0F; });
    EXPECT_EQ(kept.first.size(), 2U * 3U);
    EXPECT_EQ(set.filterSurfelsWithInequalities(A, b, 2), kept);
    EXPECT_EQ(Surfels::identifyMatchingIndices(cloud.points, A, b, 2).size(), 6U);
    EXPECT_EQ(set.filterSurfelsWithInequalities(nullptr, nullptr, 0).first.size(), 81U);
    const prereg::CPointSet corner = set.filterPointSet(A, b, 2);
    EXPECT_EQ(corner.GetPoints(), kept.first);
    EXPECT_EQ(corner.GetPointsKdTree().Size(), 6U);
    EXPECT_EQ(corner.GetEllipsoid()[0], Vec3(-3.5F, 3.0F, 0.0F));
}

// Normals of scaled surfaces: of the ellipsoid x² + y²/4 + z²/16 = 4, and where the cloud is flattened to z = 0, to the
// x axis, and to one place.
TEST(CPointSet, ScaledNormals)
{
    const float s = std::sqrt(0.5F), root = std::sqrt(0.8F);
    Cloud two; // the cloud flattened to z = 0, to the x axis, and to one place
    two.Add({1, 2, 3}, {0.6F, 0.0F, 0.8F});
    two.Add({1, 2, 3}, {s, s, 0.0F});
    const std::tuple<Vec3, Vec3, Vec3> flat[] = {{{2, 1, 0}, {0, 0, 1}, {root / 2, root, 0}},
                                                 {{2, 0, 0}, {0, 0, 1}, {0, 1, 0}},
                                                 {{0, 0, 0}, {0.6F, 0, 0.8F}, {s, s, 0}}};
    for (const auto& [factors, first, second] : flat) {
        const auto normals = Surfels(two).scaleSurfels(factors).second;
        EXPECT_LT((normals[0] - first).Norm() + (normals[1] - second).Norm(), 1e-6F);
    }
    const Surfels sphere(test_support::Sphere(100, 2.0F));
    EXPECT_EQ(sphere.scaleSurfels({3.0F, 3.0F, 3.0F}).second, sphere.GetNormals());
    const auto [points, normals] = sphere.scaleSurfels({1.0F, 2.0F, 4.0F});
    for (std::size_t i = 0; i < 100; ++i) {
        const Vec3 gradient(points[i].x, points[i].y / 4.0F, points[i].z / 16.0F);
        EXPECT_NEAR(normals[i].Dot(gradient) / gradient.Norm(), 1.0F, 1e-5F);
    }
}

// Axes of a box-shaped cloud are known: variance a²·(n+1)/(3(n−1)) for n even steps across 2a, axes along x, y, z.
TEST(Ellipsoid, IsTheCovarianceOfTheCloud)
{
    std::vector<Vec3> box;
    for (int i = -4; i <= 4; ++i)
        for (int k = -4; k <= 4; ++k)
            for (int m = -4; m <= 4; ++m)
                box.emplace_back(10.0F + 2.0F * static_cast<float>(i), static_cast<float>(k),
                                 0.5F * static_cast<float>(m));
    box.emplace_back(NaN, 0.0F, 0.0F);
    const Ellipsoid e(box.data(), box.size());
    const float axis = std::sqrt(7.8147F * 60.0F / 9.0F); // mean square of -4 to 4
    EXPECT_EQ(e[0], Vec3(10, 0, 0));
    for (int k = 0; k < 3; ++k) {
        const Vec3 a = e[k + 1] - e[0];
        const float length = axis * (k == 0 ? 2.0F : (k == 1 ? 1.0F : 0.5F)); // largest first
        EXPECT_NEAR(std::fabs(a[static_cast<std::size_t>(k)]), length, 1e-4F);
        EXPECT_NEAR(a.Norm(), length, 1e-4F);
    }
    // Moved by t alone every pole moves by |t|; swapped poles are other poles.
    EXPECT_NEAR(e.DistanceSq(e.Transformed(CTrafo(Vec3(), Vec3(1, 2, 2)))), 9.0F, 1e-4F);
    const Ellipsoid mirrored(e[0], 2.0F * e[0] - e[1], e[2], e[3]);
    EXPECT_NEAR(e.DistanceSq(mirrored), 2.0F * 16.0F * axis * axis / 6.0F, 1e-2F);
    EXPECT_EQ(Ellipsoid(nullptr, 5)[0], Vec3());
    EXPECT_EQ(Ellipsoid(box.data(), 0)[3], Vec3());
    EXPECT_EQ(Ellipsoid(box.data() + box.size() - 1, 1)[0], Vec3()); // nothing finite
}

// Four spokes of a square grid enclose the square of side s. As angles are unsigned, two spokes at right angles on
// either side of the first lie at the same angle, and the two quarters beyond them are lost: deliberate, half the
// square counts.
TEST(CPointSet, LocalAreaOfAGrid)
{
    const Surfels set(test_support::Plane(11, 0.5F));
    EXPECT_EQ(set.estimateLocalVoronoiArea(60, 0.6F), 0.125); // the middle
    EXPECT_EQ(set.estimateLocalVoronoiArea(60, 0.4F), 0.0);
    EXPECT_EQ(set.estimateLocalVoronoiArea(0, 0.6F), 0.0); // a corner has three within 0.5·√2
    // All neighbours on one side, at 0, 45, 90 and 135 degrees: three triangles of halves and the one that closes.
    Cloud fan;
    for (const Vec3& p : {Vec3(0, 0, 0.25F), Vec3(1, 0, 0), Vec3(1, 1, 0), Vec3(0, 2, 0), Vec3(-2, 2, 0)})
        fan.Add(p, {0, 0, 1});
    float expected = 0.0F;
    for (std::size_t i = 0; i < 4; ++i) {
        const Vec3 a = fan.points[1 + i] - fan.points[0], b = fan.points[1 + (i + 1) % 4] - fan.points[0];
        expected += (0.5F * a).Cross(0.5F * b).Norm();
    }
    EXPECT_NEAR(Surfels(fan).estimateLocalVoronoiArea(0, 5.0F), expected, 1e-6);
}

// Catches a box test, an index taken twice, a radius or a stop that is off.
TEST(CPointSet, OverlapArea)
{
    const Cloud plane = test_support::Plane(41, 0.5F); // 20 mm square
    const Surfels fix(plane), flt(test_support::Plane(21, 0.5F));
    LogCapture log;
    const float max = std::numeric_limits<float>::max();
    // The floating square covers itself; its box cuts off the rest, so that the rim has too few neighbours.
    EXPECT_EQ(fix.EstimateOverlapArea(flt, CTrafo(), 0.1F, 0.6F, max), 19 * 19 * 0.125F);
    EXPECT_THAT(log.Take(),
                testing::ElementsAre("KEP.Registration|T|Estimated overlap area: 45.1 mm2, points in OBB: 441"));
    EXPECT_GE(fix.EstimateOverlapArea(flt, CTrafo(), 0.6F, 0.6F, 20.0F), 20.0F);
    EXPECT_THAT(log.Take(),
                testing::ElementsAre("KEP.Registration|T|Estimated overlap area exceeds given maximum (20.0 mm2)",
                                     testing::StartsWith("KEP.Registration|T|Estimated overlap area: 20.")));
    EXPECT_EQ(fix.EstimateOverlapArea(flt, CTrafo(Vec3(), Vec3(0, 0, 0.1F)), 0.1F, 0.6F, max), 0.0F); // do not meet
    EXPECT_TRUE(log.Take().empty());
    const Surfels empty{Cloud()};
    EXPECT_EQ(fix.EstimateOverlapArea(empty, CTrafo(), 1.0F, 1.0F, max), 0.0F);
    EXPECT_EQ(empty.EstimateOverlapArea(fix, CTrafo(), 1.0F, 1.0F, max), 0.0F);
}

// Over a volume, so that every face of the box cuts: the local areas, among the points in the box, of those that a
// moved point comes near.
TEST(CPointSet, OverlapAreaEqualsAPlainSum)
{
    Random random(2);
    Cloud fixCloud, fltCloud, keptCloud;
    for (int i = 0; i < 600; ++i) fixCloud.Add(random.InCube(10.0F), random.Direction());
    for (int i = 0; i < 60; ++i) fltCloud.Add(random.InCube(4.0F), random.Direction());
    const CTrafo pose = random.Pose(0.1F, 2.0F);
    const Surfels fix(fixCloud), flt(fltCloud);
    const auto [low, high] = flt.GetAABB();
    for (std::size_t i = 0; i < fixCloud.Size(); ++i) {
        const Vec3 p = pose.GetInverse() * fixCloud.points[i];
        if (p.x >= low.x && p.x <= high.x && p.y >= low.y && p.y <= high.y && p.z >= low.z && p.z <= high.z)
            keptCloud.Add(fixCloud.points[i], fixCloud.normals[i]);
    }
    const Surfels kept(keptCloud);
    double expected = 0.0;
    for (std::size_t i = 0; i < kept.Size(); ++i)
        if (std::any_of(fltCloud.points.begin(), fltCloud.points.end(),
                        [&](const Vec3& p) { return (pose * p - kept.GetPoint(i)).NormSq() <= 2.25F; }))
            expected += kept.estimateLocalVoronoiArea(i, 5.0F);
    EXPECT_GT(expected, 10.0);
    EXPECT_NEAR(fix.EstimateOverlapArea(flt, pose, 1.5F, 5.0F, 1e9F), expected, 1e-5 * expected);
}

TEST(BloomFilter, MissesNoRepeatAndTakesFewForOne)
{
    const struct {
        std::size_t capacity;
        double largestFalseShare;
    } rows[] = {{0, 1.0}, {1, 0.0}, {1000, 0.001}, {30000, 0.001}, {100000, 0.03}}; // the last beyond the size bound
    for (const auto& row : rows) {
        prereg::detail::BloomFilter filter(row.capacity, 0.001, 524288);
        std::size_t taken = 0;
        for (std::uint32_t i = 0; i < row.capacity; ++i) taken += filter.Insert(i) ? 0 : 1;
        EXPECT_LE(static_cast<double>(taken), row.largestFalseShare * static_cast<double>(row.capacity))
            << row.capacity;
        for (std::uint32_t i = 0; i < row.capacity; ++i) EXPECT_FALSE(filter.Insert(i));
    }
}

TEST(CPointSet, Files)
{
    const std::string name = testing::TempDir() + "cpointset_test.xyz";
    const Surfels set({{{1.5F, -2.0F, 1234567.0F}, {0.1F, 1e-7F, 0.0F}}, {{0, 0, 1}, {0, -1, 0}}});
    set.SaveXYZN(name);
    EXPECT_EQ(FileText(name), "1.5 -2 1234567 0 0 1\n0.1 1e-07 0 0 -1 0\n");
    set.SaveXYZN(name, 0xFF8000);
    EXPECT_EQ(FileText(name), "1.5 -2 1234567 0 0 1 255 128 0\n0.1 1e-07 0 0 -1 0 255 128 0\n");
    Ellipsoid({1, 0, 0}, {3, 0, 0}, {1, 1, 0}, {1, 0, 0}).SaveXYZNC(name);
    EXPECT_EQ(FileText(name), "1 0 0 0 0 0 0\n3 0 0 1 0 0 1\n-1 0 0 -1 -0 -0 1\n1 1 0 0 1 0 2\n1 -1 0 -0 -1 -0 2\n"
                              "1 0 0 0 0 0 3\n1 0 0 -0 -0 -0 3\n");
    std::filesystem::remove(name);
    EXPECT_THAT([&] { set.SaveXYZN(""); }, testing::ThrowsMessage<std::invalid_argument>("empty file name"));
    EXPECT_THROW(set.GetEllipsoid().SaveXYZNC(""), std::invalid_argument);
    EXPECT_THROW(set.SaveXYZN(testing::TempDir() + "no/such/folder"), std::ios::failure);
}

} // namespace
