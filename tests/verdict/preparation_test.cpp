#include "VoAlgorithms/verdict/estimatenormals.h"
#include "VoAlgorithms/verdict/preparedscan.h"
#include "VoAlgorithms/verdict/sampling.h"
#include "VoAlgorithms/verdict/voxeldown.h"
#include "verdict/detail_stability.h"

#include "support/clouds.h"

#include <gmock/gmock.h>

#include <cmath>

namespace prereg {
namespace {

using test_support::Cloud;
using test_support::Random;
using Vec3 = kdtree::Vector<3>;

TEST(PrepareScan, RepairsAndCounts)
{
    const float nan = std::nanf("");
    Scan scan;
    scan.points = {{0, 0, 0}, {1, 0, 0}, {nan, 0, 0}, {0, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int i = 2; i < 9; ++i) scan.points.emplace_back(0.1F * static_cast<float>(i), 0.0F, 0.0F);
    scan.normals = {{0, 0, 1}, {0, 0, 2}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}, {0, nan, 1}};
    scan.normals.resize(scan.points.size(), Vec3(0, 0, 1));
    const PreparedScan p = PrepareScan(scan);
    EXPECT_EQ(p.read, 13U);
    EXPECT_EQ(p.notFinite, 1U);
    EXPECT_EQ(p.duplicates, 1U);
    EXPECT_EQ(p.scaledNormals, 1U);
    EXPECT_EQ(p.zeroNormals, 2U);
    EXPECT_EQ(p.scan.normals[1], Vec3(0, 0, 1));
    EXPECT_EQ(p.scan.normals[3], Vec3());
    EXPECT_EQ(p.Extent(), 1.0);
    EXPECT_EQ(PrepareScan({{{nan, 0, 0}}, {}}).scan.points.size(), 0U);
    EXPECT_THAT(Describe(p).warnings, testing::Contains(testing::HasSubstr("1 of 13 points")));
}

// Columns that are no normals (colours) must not be taken for any.
TEST(PrepareScan, IgnoresWhatCannotBeNormals)
{
    Random random(3);
    Scan scan;
    for (int i = 0; i < 500; ++i) {
        scan.points.push_back(10.0F * random.Direction());
        scan.normals.emplace_back(random.Uniform(0, 255), random.Uniform(0, 255), random.Uniform(0, 255));
    }
    const PreparedScan p = PrepareScan(scan);
    EXPECT_TRUE(p.implausibleNormals && p.estimatedNormals);
    for (const Vec3& n : p.scan.normals) EXPECT_NEAR(n.Norm(), 1.0F, 1e-5F);
}

// Against exact normals: direction and sign, propagated outwards or towards a viewpoint.
TEST(EstimateNormals, AgreeWithTheSurface)
{
    const Cloud body = test_support::Body(4000, 3, 1);
    const auto outwards = EstimateNormals(body.points, {});
    const Vec3 eye(0, 0, 300);
    const auto towards = EstimateNormals(body.points, eye);
    unsigned wrong = 0, turned = 0;
    for (std::size_t i = 0; i < body.Size(); ++i) {
        if (outwards[i].Dot(body.normals[i]) < 0.9F) ++wrong;
        if (towards[i].Dot(eye - body.points[i]) < 0.0F) ++turned;
    }
    EXPECT_LT(wrong, body.Size() / 50);
    EXPECT_EQ(turned, 0U);
    EXPECT_EQ(EstimateNormals({{0, 0, 0}, {1, 0, 0}}, {}), std::vector<Vec3>(2));
}

// Half of the normals flipped at random: the signs are decided anew, and the scan says so. All flipped: only said.
TEST(PrepareScan, FindsMixedAndInwardNormals)
{
    const Cloud body = test_support::Body(4000, 3, 1);
    EXPECT_EQ(PrepareScan({body.points, body.normals}).orientation.by, ENormalSigns::Given);
    EXPECT_TRUE(Describe(PrepareScan({body.points, body.normals})).warnings.empty());
    Random random(5);
    Cloud mixed = body, inward = body;
    for (std::size_t i = 0; i < body.Size(); ++i) {
        inward.normals[i] = -body.normals[i];
        if (random.Index(2) == 0) mixed.normals[i] = -body.normals[i];
    }
    const PreparedScan repaired = PrepareScan({mixed.points, mixed.normals});
    EXPECT_TRUE(repaired.mixedNormals);
    EXPECT_EQ(repaired.orientation.by, ENormalSigns::Propagation);
    EXPECT_TRUE(test_support::SameBits(repaired.scan.normals, body.normals));
    EXPECT_THAT(Describe(PrepareScan({inward.points, inward.normals})).warnings,
                testing::Contains(testing::HasSubstr("inwards")));
}

// One view of a ball in front of a wall leaves two pieces without common edges; their signs follow from the view.
// Stray points get no normal, and change none.
TEST(EstimateNormals, FaceTheOneDirectionThatSeesAll)
{
    Random random(6);
    Cloud scan;
    for (float x = -30.0F; x <= 30.0F; x += 0.75F)
        for (float y = -30.0F; y <= 30.0F; y += 0.75F) {
            const float inside = 20.0F * 20.0F - x * x - y * y;
            const Vec3 n = inside > 0.0F ? Vec3(x, y, std::sqrt(inside)) : Vec3(0.2F, 0, 1);
            scan.Add({x, y, inside > 0.0F ? n.z : -30.0F - 0.2F * x}, n / n.Norm());
        }
    const std::size_t size = scan.Size();
    for (int i = 0; i < 200; ++i) scan.Add(random.InCube(30.0F), {});
    NormalOrientation orientation;
    const auto normals = EstimateNormals(scan.points, {}, 16, &orientation);
    EXPECT_EQ(orientation.by, ENormalSigns::View);
    EXPECT_GT(orientation.convex, 0.5);
    std::size_t wrong = 0, strays = 0;
    for (std::size_t i = 0; i < size; ++i) wrong += normals[i].Dot(scan.normals[i]) < 0.0F ? 1 : 0;
    for (std::size_t i = size; i < scan.Size(); ++i) strays += normals[i] == Vec3() ? 1 : 0;
    EXPECT_LT(wrong, size / 200);
    EXPECT_GT(strays, 100U);
}

// Roughness is the noise across the surface, not along it.
TEST(Sampling, MeasuresSpacingAndNoise)
{
    Cloud plane = test_support::Plane(60, 0.5F);
    EXPECT_NEAR(MeasureSampling({plane.points, plane.normals}).spacing, 0.5, 1e-6);
    EXPECT_EQ(MeasureSampling({plane.points, plane.normals}).roughness, 0.0);
    std::normal_distribution<float> noise(0.0F, 0.03F);
    Random random(2);
    for (Vec3& p : plane.points) p.z += noise(random.Engine());
    const double roughness = MeasureSampling({plane.points, plane.normals}).roughness;
    EXPECT_GT(roughness, 0.3 * 0.03); // the nearest of four neighbours differs least
    EXPECT_LT(roughness, 1.5 * 0.03);
}

TEST(VoxelDown, LeavesOnePointPerCube)
{
    const Cloud body = test_support::Body(3000, 1, 1);
    const Scan thinned = VoxelDown({body.points, body.normals}, 1.5);
    for (const Vec3& p : thinned.points) {
        float nearest = INFINITY;
        for (const Vec3& q : body.points) nearest = std::min(nearest, (q - p).Norm());
        EXPECT_LT(nearest, 1.5F * 1.7321F); // the diagonal of a cube
    }
    EXPECT_LT(thinned.points.size(), body.Size() * 2 / 5);
    EXPECT_GT(thinned.points.size(), body.Size() / 20);
    for (const Vec3& n : thinned.normals) EXPECT_NEAR(n.Norm(), 1.0F, 1e-5F);
    EXPECT_LE(VoxelDown({body.points, body.normals}, 1000.0).points.size(), 8U);
}

// What could slide or turn is near 0: a plane, a sphere, a cylinder. What could not is far from it.
TEST(Stability, TellsShapesThatSlide)
{
    Cloud cylinder;
    for (int i = 0; i < 120; ++i)
        for (int k = 0; k < 40; ++k) {
            const float angle = static_cast<float>(i) * 0.05236F;
            const Vec3 n(std::cos(angle), std::sin(angle), 0.0F);
            cylinder.Add(5.0F * n + Vec3(0, 0, 0.25F * static_cast<float>(k)), n);
        }
    const auto stability = [](const Cloud& cloud) { return detail::Stability(cloud.points, cloud.normals); };
    EXPECT_LT(stability(test_support::Plane(60, 0.5F)), 1e-6);
    EXPECT_LT(stability(test_support::Sphere(4000, 10.0F)), 1e-5);
    EXPECT_LT(stability(cylinder), 1e-5);
    EXPECT_GT(stability(test_support::Body(4000, 1, 1)), 0.01);
    EXPECT_EQ(stability(test_support::Plane(3, 0.5F)), 0.0); // too few pairs to tell
}

} // namespace
} // namespace prereg
