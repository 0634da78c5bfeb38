#include "VoAlgorithms/verdict/samplemesh.h"
#include "VoAlgorithms/verdict/sampling.h"

#include "support/clouds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;

/// Adds a box whose faces look outwards, or inwards; vertices are shared.
void AddBox(TriangleMesh& mesh, const std::array<double, 3>& low, const std::array<double, 3>& high,
            bool inwards = false)
{
    const auto first = static_cast<std::uint32_t>(mesh.vertices.size());
    for (unsigned i = 0; i < 8; ++i)
        mesh.vertices.push_back({i & 1 ? high[0] : low[0], i & 2 ? high[1] : low[1], i & 4 ? high[2] : low[2]});
    constexpr std::uint32_t Quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                           {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (const auto& q : Quads)
        for (unsigned k = 1; k < 3; ++k)
            mesh.triangles.push_back({first + q[0], first + q[inwards ? k + 1 : k], first + q[inwards ? k : k + 1]});
}

TriangleMesh Box(double x, double y, double z)
{
    TriangleMesh mesh;
    AddBox(mesh, {-x, -y, -z}, {x, y, z});
    return mesh;
}

/// A ball of rings that narrow towards the poles: triangles of very different sizes, none shares its vertices.
TriangleMesh BallOfLooseTriangles(double radius)
{
    constexpr unsigned Rings = 90;
    TriangleMesh mesh;
    const auto vertex = [&](unsigned i, unsigned j) {
        const double a = M_PI * i / Rings, b = M_PI * (j % (2 * Rings)) / Rings;
        const double ring = i == Rings ? 0.0 : std::sin(a);
        mesh.vertices.push_back({radius * ring * std::cos(b), radius * ring * std::sin(b), radius * std::cos(a)});
        return static_cast<std::uint32_t>(mesh.vertices.size() - 1);
    };
    for (unsigned i = 0; i < Rings; ++i)
        for (unsigned j = 0; j < 2 * Rings; ++j) {
            mesh.triangles.push_back({vertex(i, j), vertex(i + 1, j), vertex(i, j + 1)});
            mesh.triangles.push_back({vertex(i, j + 1), vertex(i + 1, j), vertex(i + 1, j + 1)});
        }
    return mesh;
}

// Spacing as asked, everywhere alike: octants of equal area get equal shares, and no point of the surface is far off.
TEST(SampleMesh, IsEvenAtTheSpacingAskedFor)
{
    for (const double spacing : {1.0, 2.5}) {
        const SampledMesh ball = SampleMesh(BallOfLooseTriangles(40.0), spacing);
        EXPECT_EQ(ball.degenerate, 4U * 90) << "one triangle of each quad at a pole";
        EXPECT_TRUE(ball.closed && ball.consistent);
        EXPECT_NEAR(MeasureSampling(ball.scan).spacing, spacing, 0.03 * spacing);
        std::array<double, 8> octants{};
        for (const Vec3& p : ball.scan.points) octants[(p.x > 0) + 2 * (p.y > 0) + 4 * (p.z > 0)] += 8.0;
        for (const double n : octants) EXPECT_NEAR(n / static_cast<double>(ball.scan.points.size()), 1.0, 0.05);
        test_support::Random random(1);
        for (int i = 0; i < 300; ++i) {
            const Vec3 place = 40.0F * random.Direction();
            float nearest = INFINITY;
            for (const Vec3& p : ball.scan.points) nearest = std::min(nearest, (p - place).Norm());
            EXPECT_LT(nearest, 1.35 * spacing);
        }
    }
    EXPECT_NEAR(MeasureSampling(SampleMesh(Box(30, 20, 10), 0.7).scan).spacing, 0.7, 0.03 * 0.7);
}

// Edges stay sharp, thin walls have two sides, and the same mesh gives the same bits.
TEST(SampleMesh, TakesPointsAndNormalsOfTheFaces)
{
    const TriangleMesh sheet = Box(20, 10, 0.05);
    const SampledMesh sampled = SampleMesh(sheet, 1.0);
    double sides[2] = {};
    for (std::size_t i = 0; i < sampled.scan.points.size(); ++i) {
        const Vec3 p = sampled.scan.points[i], n = sampled.scan.normals[i];
        EXPECT_NEAR(std::abs(n.x) + std::abs(n.y) + std::abs(n.z), 1.0, 1e-6);
        EXPECT_NEAR(n.Dot(p), std::abs(n.x) * 20 + std::abs(n.y) * 10 + std::abs(n.z) * 0.05, 1e-4);
        if (n.z != 0.0F) sides[n.z > 0] += 1.0;
    }
    EXPECT_NEAR(sides[0] / sides[1], 1.0, 0.05);
    EXPECT_TRUE(test_support::SameBits(sampled.scan.points, SampleMesh(sheet, 1.0).scan.points));
    EXPECT_LT(SampleMesh(sheet, 1e-4).scan.points.size(), 550000U) << "the number of points is bounded";
}

/// The share of points whose normal agrees with the outside of a box around the origin.
double ShareOutwards(const Scan& scan)
{
    double outwards = 0.0;
    for (std::size_t i = 0; i < scan.points.size(); ++i)
        if (scan.normals[i].Dot(scan.points[i]) > 0.0F) outwards += 1.0;
    return outwards / static_cast<double>(scan.points.size());
}

TEST(SampleMesh, RepairsTheOrientation)
{
    TriangleMesh inwards;
    AddBox(inwards, {-9, -9, -9}, {9, 9, 9}, true);
    SampledMesh sampled = SampleMesh(inwards, 1.0);
    EXPECT_EQ(sampled.turned, 12U);
    EXPECT_EQ(ShareOutwards(sampled.scan), 1.0);

    TriangleMesh mixed = Box(9, 9, 9);
    for (const std::size_t t : {1U, 4U, 7U, 8U}) std::swap(mixed.triangles[t][0], mixed.triangles[t][1]);
    sampled = SampleMesh(mixed, 1.0);
    EXPECT_EQ(sampled.turned, 4U);
    EXPECT_EQ(ShareOutwards(sampled.scan), 1.0);

    for (const bool cavityInwards : {false, true}) { // the wall of a cavity faces the cavity
        TriangleMesh hollow = Box(9, 9, 9);
        AddBox(hollow, {-5, -5, -5}, {5, 5, 5}, cavityInwards);
        sampled = SampleMesh(hollow, 1.0);
        EXPECT_EQ(sampled.turned, cavityInwards ? 0U : 12U);
        for (std::size_t i = 0; i < sampled.scan.points.size(); ++i)
            EXPECT_EQ(sampled.scan.normals[i].Dot(sampled.scan.points[i]) > 0.0F, sampled.scan.points[i].Norm() > 8.9F);
    }

    TriangleMesh open = Box(9, 9, 9); // without its lid; one triangle reversed
    open.triangles.resize(10);
    std::swap(open.triangles[3][0], open.triangles[3][1]);
    sampled = SampleMesh(open, 1.0);
    EXPECT_FALSE(sampled.closed);
    EXPECT_EQ(sampled.turned, 1U);
    EXPECT_EQ(ShareOutwards(sampled.scan), 1.0);

    TriangleMesh strip; // a Möbius strip has no sides
    for (unsigned i = 0; i < 20; ++i)
        for (const double side : {-3.0, 3.0}) {
            const double a = M_PI * i / 10, half = a / 2, r = 20 + side * std::cos(half);
            strip.vertices.push_back({r * std::cos(a), r * std::sin(a), side * std::sin(half)});
        }
    for (std::uint32_t i = 0; i < 20; ++i) {
        const std::uint32_t a = 2 * i, b = a + 1, c = i == 19 ? 1 : a + 2, d = i == 19 ? 0 : a + 3;
        strip.triangles.push_back({a, b, c});
        strip.triangles.push_back({b, d, c});
    }
    EXPECT_FALSE(SampleMesh(strip, 1.0).consistent);
}

// Two triangles back to back keep one normal each; triangles without an area and empty meshes give nothing.
TEST(SampleMesh, OddMeshes)
{
    TriangleMesh mesh;
    mesh.vertices = {{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {5, 5, 0}};
    mesh.triangles = {{0, 1, 2}, {0, 1, 1}, {1, 3, 2}};
    EXPECT_EQ(SampleMesh(mesh, 1.0).degenerate, 2U);
    const std::size_t oneSide = SampleMesh(mesh, 1.0).scan.points.size();
    mesh.triangles = {{0, 1, 2}, {2, 1, 0}};
    double up = 0.0;
    const SampledMesh both = SampleMesh(mesh, 1.0);
    for (const Vec3& n : both.scan.normals) up += n.z;
    EXPECT_NEAR(up / static_cast<double>(both.scan.points.size()), 0.0, 0.1);
    EXPECT_NEAR(static_cast<double>(both.scan.points.size()), 2.0 * static_cast<double>(oneSide),
                0.2 * static_cast<double>(oneSide));

    EXPECT_TRUE(SampleMesh({}, 1.0).scan.points.empty());
    EXPECT_THROW((void)SampleMesh(mesh, 0.0), std::invalid_argument);
    mesh.triangles.push_back({0, 1, 4});
    EXPECT_THROW((void)SampleMesh(mesh, 1.0), std::invalid_argument);
    mesh.triangles.pop_back();
    mesh.vertices[3][1] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW((void)SampleMesh(mesh, 1.0), std::invalid_argument);
}

} // namespace
} // namespace prereg
