#include "VoAlgorithms/verdict/viewdirection.h"

#include "support/clouds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace prereg {
namespace {

using test_support::Body;
using test_support::Cloud;
using test_support::Random;
using Vec3 = kdtree::Vector<3>;

/// A ball in front of a slanted, wavy wall on a regular grid of rays from +z, exact normals. A ray slants by `spread`
/// per mm from the middle, about the ball's centre: 0 for parallel rays.
Cloud RangeImage(float spread)
{
    constexpr float Radius = 12.0F, Front = 20.0F, Step = 0.6F;
    Cloud cloud;
    for (float x = -30.0F; x <= 30.0F; x += Step)
        for (float y = -30.0F; y <= 30.0F; y += Step) {
            float z = -Front;
            Vec3 p, n;
            for (int i = 0; i < 50; ++i) { // fixed point of z = wall(ray at z)
                const float widen = 1.0F - spread * (z + 20.0F);
                p = Vec3(x * widen, y * widen, z);
                z = 0.3F * p.x + 2.0F * std::sin(0.15F * p.y) - Front;
            }
            n = Vec3(-0.3F, -0.3F * std::cos(0.15F * p.y), 1.0F);
            const float inside = Radius * Radius - x * x - y * y;
            if (inside > 0.0F) {
                n = Vec3(x, y, std::sqrt(inside));
                p = n;
            }
            cloud.Add(p, n / n.Norm());
        }
    return cloud;
}

float DegreesBetween(const Vec3& a, const Vec3& b)
{
    return 57.29578F * std::acos(std::clamp(a.Dot(b), -1.0F, 1.0F));
}

// From a scan turned anywhere, with stray points, in parts, and from rays that diverge by up to 6 degrees.
TEST(InferViewDirection, FindsTheAxisOfARangeImage)
{
    Random random(11);
    for (int trial = 0; trial < 6; ++trial) {
        Cloud image = RangeImage(trial < 4 ? 0.0F : 0.0035F);
        const std::size_t size = image.Size();
        if (trial % 2 == 1)
            for (std::size_t i = 0; i < size / 20; ++i) image.Add(random.InCube(30.0F), random.Direction());
        const VoAlgo::CTrafo pose = random.Pose(random.Uniform(0.0F, 3.0F), 50.0F);
        const Cloud scan = test_support::Moved(image, pose);
        const auto view = InferViewDirection(scan.points, scan.normals);
        ASSERT_TRUE(view.has_value()) << trial;
        EXPECT_LT(DegreesBetween(view->direction, pose.Rotate({0, 0, 1})), 4.0F) << trial;
        EXPECT_LT(view->hidden, 0.02) << trial;
    }
}

// A half is seen from one side, half and quarter from none; few points, flat pieces and missing normals do no harm.
TEST(InferViewDirection, TellsSingleViewsFromMergedScans)
{
    const auto facing = [](const Vec3& a, const Vec3& b) {
        return [a, b](const Vec3& p) { return std::max(p.Dot(a), p.Dot(b)) > 2.0F; };
    };
    const auto view = [](const Cloud& c) { return InferViewDirection(c.points, c.normals); };
    const Vec3 x(1, 0, 0), y(0, 1, 0);
    EXPECT_TRUE(view(Body(4000, 1, 1, facing(x, x))).has_value());
    EXPECT_FALSE(view(Body(4000, 1, 1, facing(x, y))).has_value());
    EXPECT_FALSE(view(Body(4000, 1, 1)).has_value());
    EXPECT_FALSE(view(Body(40, 1, 1, facing(x, x))).has_value());
    EXPECT_FALSE(InferViewDirection({}, {}).has_value());
    Cloud plane = test_support::Plane(30, 0.5F);
    std::fill(plane.normals.begin(), plane.normals.begin() + 300, Vec3());
    ASSERT_TRUE(view(plane).has_value());
    EXPECT_LT(DegreesBetween(view(plane)->direction, {0, 0, 1}), 1.0F);
}

} // namespace
} // namespace prereg
