#include "verdict/detail_evidence.h"
#include "verdict/detail_symmetry.h"

#include "VoAlgorithms/verdict/registerscans.h"

#include "support/clouds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

namespace prereg::detail {
namespace {

using test_support::Cloud;
using VoAlgo::CTrafo;
using Vec3 = kdtree::Vector<3>;

struct Surfels : CPointSet {
    explicit Surfels(const Cloud& cloud) : CPointSet(cloud.points, cloud.normals) {}
};

/// What a scanner above sees of a body.
Cloud SeenFromAbove(const Cloud& body)
{
    Cloud seen;
    for (std::size_t i = 0; i < body.Size(); ++i)
        if (body.normals[i].z > 0.2F) seen.Add(body.points[i], body.normals[i]);
    return seen;
}

// Rays are parallel without a view point and meet in it with one.
TEST(SeenSpace, TellsFrontFromBehindAndFromUnseen)
{
    const Cloud plane = test_support::Plane(60, 0.5F); // z = 0, 30 mm wide
    const View views[] = {{Vec3(0, 0, 1), {}}, {Vec3(0, 0, 1), Vec3(0, 0, 20)}};
    for (const View& view : views) {
        SCOPED_TRACE(view.viewpoint.has_value());
        const SeenSpace seen(plane.points, view, 1.0);
        EXPECT_NEAR(seen.InFront(Vec3(0, 0, 3)), 3.0F, 0.1F);
        EXPECT_NEAR(seen.InFront(Vec3(0, 0, -3)), -3.0F, 0.1F);
        // Beside the parallel rays, but between the view point and the plane's edge when it lies half-way.
        EXPECT_TRUE(std::isnan(seen.InFront(Vec3(40, 0, 0))));
        EXPECT_EQ(std::isnan(seen.InFront(Vec3(10, 0, 10))), view.viewpoint.has_value());
    }
    EXPECT_TRUE(std::isnan(SeenSpace({}, views[0], 1.0).InFront(Vec3())));
}

class ScanPairs : public testing::Test {
protected:
    const Cloud whole_ = test_support::Body(12000, 3, 1);
    const Surfels fix_{SeenFromAbove(whole_)};
    const Surfels flt_{SeenFromAbove(test_support::Body(12000, 3, 2))}; // sampled at other points
    const View above_{Vec3(0, 0, 1), {}};
    const ScanPair pair_{fix_, flt_, above_, above_, 0.3};
};

// At the truth all evidence speaks for the pose; a wrong one is given away, whatever moved.
TEST_F(ScanPairs, SpeakForTheTruthAlone)
{
    const Evidence truth = pair_.Measure(CTrafo(), 1);
    EXPECT_GT(truth.overlap, 0.9);
    EXPECT_GT(truth.agreement, 0.95);
    EXPECT_LT(truth.misfit, 0.05);
    EXPECT_LT(truth.seenEmpty, 0.01);
    EXPECT_GT(truth.stability, 0.01);

    const Evidence raised = pair_.Measure(CTrafo(Vec3(), Vec3(0, 0, 3)), 1);
    EXPECT_GT(raised.seenEmpty, 0.5);
    EXPECT_LT(raised.overlap, 0.2);
    EXPECT_LT(pair_.Measure(CTrafo(Vec3(0, 0, 1.5F), Vec3()), 1).agreement, 0.8);
    const ScanPair blind(fix_, flt_, {}, {}, 0.3);
    EXPECT_TRUE(std::isnan(blind.Measure(CTrafo(), 1).seenEmpty));
    EXPECT_FALSE(blind.KnowsEmptySpace());
}

TEST_F(ScanPairs, RefineToTheTruth)
{
    for (unsigned seed = 0; seed < 5; ++seed) {
        const CTrafo start(test_support::Random(seed).Pose(0.03F, 0.3F));
        const CTrafo pose = pair_.Refine(start, 3.0, 12, 1);
        EXPECT_LT(pose.GetRotationDistance(CTrafo()), 0.003F) << seed;
        EXPECT_LT(pose.GetTranslation().Norm(), 0.03F) << seed;
        EXPECT_TRUE(pair_.Refine(start, 3.0, 0, 1) == start);
    }
}

/// The surface of a box with these half sides on a grid of 1 mm.
Cloud Box(float a, float b, float c)
{
    const Vec3 half(a, b, c);
    Cloud box;
    for (unsigned k = 0; k < 3; ++k) {
        const unsigned u = (k + 1) % 3, v = (k + 2) % 3;
        for (const float side : {-1.0F, 1.0F})
            for (float x = 0.5F - half[u]; x < half[u]; x += 1.0F)
                for (float y = 0.5F - half[v]; y < half[v]; y += 1.0F) {
                    Vec3 p, n;
                    p[k] = side * half[k];
                    p[u] = x;
                    p[v] = y;
                    n[k] = side;
                    box.Add(p, n);
                }
    }
    return box;
}

// However it lies: a brick has three half turns, a cube, which has no principal axes, six quarter turns besides.
TEST(LikelySymmetries, AreThoseOfBrickAndCube)
{
    for (unsigned seed = 0; seed < 5; ++seed) {
        const CTrafo turn = test_support::Random(seed).Pose(2.0F, 30.0F);
        for (const auto& [body, expected] : {std::pair(Box(30, 20, 10), 3), std::pair(Box(20, 20, 20), 9)}) {
            const Surfels set(test_support::Moved(body, turn));
            const ScanPair pair(set, set, {}, {}, 1.0);
            int equals = 0;
            for (const CTrafo& symmetry : LikelySymmetries(set))
                equals += pair.Measure(symmetry, 1).overlap > 0.95 ? 1 : 0;
            EXPECT_EQ(equals, expected) << seed;
        }
    }
}

// The search works on thinned scans, and so does the same verdict at every density; the pose comes from all points.
TEST(RegisterScans, GivesTheSameVerdictAtEveryDensity)
{
    const CTrafo turn = test_support::Random(5).Pose(2.0F, 30.0F);
    double resolutions[2] = {};
    for (const std::size_t n : {std::size_t{20000}, std::size_t{300000}}) {
        const Cloud fix = SeenFromAbove(test_support::Body(n, 3, 1));
        const Cloud flt = test_support::Moved(SeenFromAbove(test_support::Body(n, 3, 2)), turn);
        const Registration r = RegisterScans(Scan{fix.points, fix.normals}, Scan{flt.points, flt.normals});
        ASSERT_TRUE(r) << n << r.Reason();
        const CTrafo pose = CTrafo(r.Pose()) * turn;
        EXPECT_LT(pose.GetRotationDistance(CTrafo()), 0.002F) << n;
        EXPECT_LT(pose.GetTranslation().Norm(), 0.02F) << n;
        resolutions[n > 20000] = r.settings.resolution;
        EXPECT_LT(r.fix->Size(), 70000U) << "the search works at the resolution of the object";
    }
    EXPECT_LE(resolutions[1], resolutions[0]);
}

} // namespace
} // namespace prereg::detail
