#include "VoAlgorithms/numerics/quaternion.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

using VoAlgo::Quaternion;
using Vector = std::array<double, 3>;

constexpr double Pi = std::numbers::pi;

double MaxDifference(const Vector& a, const Vector& b)
{
    return std::max({std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2])});
}

// Turns of every size about axes of every octant; among them the half turns and those where two components of the
// quaternion tie.
std::vector<Quaternion> Rotations()
{
    std::vector<Quaternion> result;
    for (const double x : {-1.0, -0.2, 0.0, 1.0})
        for (const double y : {-1.0, 0.0, 0.3, 1.0})
            for (const double z : {-0.7, 0.0, 1.0})
                for (const double angle : {0.0, 1e-9, 0.4, Pi / 2, 2 * Pi / 3, 3.1, Pi, 4.0, -Pi / 2})
                    if (x != 0 || y != 0 || z != 0) result.push_back(Quaternion::FromAxisAngle({x, y, z}, angle));
    return result;
}

// Rodrigues' formula, independent of the quaternion's own matrix.
Vector Turn(const Vector& u, double angle, const Vector& v)
{
    const double c = std::cos(angle), s = std::sin(angle), dot = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
    return {c * v[0] + s * (u[1] * v[2] - u[2] * v[1]) + (1 - c) * dot * u[0],
            c * v[1] + s * (u[2] * v[0] - u[0] * v[2]) + (1 - c) * dot * u[1],
            c * v[2] + s * (u[0] * v[1] - u[1] * v[0]) + (1 - c) * dot * u[2]};
}

TEST(Quaternion, EveryRepresentationIsTheSameRotation)
{
    const Vector v = {0.3, -2, 1.1};
    for (const Quaternion& q : Rotations()) {
        SCOPED_TRACE(testing::Message() << q.w << " " << q.x << " " << q.y << " " << q.z);
        const Vector turned = q.Rotate(v);
        EXPECT_LT(MaxDifference(turned, Turn(q.GetAxis(), q.GetAngle(), v)), 1e-7); // acos near w = 1

        const Quaternion product = q * Quaternion(0, v[0], v[1], v[2]) * ~q;
        EXPECT_LT(MaxDifference(turned, {product.x, product.y, product.z}), 1e-14);

        const Vector c0 = q.Rotate({1, 0, 0}), c1 = q.Rotate({0, 1, 0}), c2 = q.Rotate({0, 0, 1});
        const Quaternion fromMatrix(c0[0], c1[0], c2[0], c0[1], c1[1], c2[1], c0[2], c1[2], c2[2]);
        EXPECT_GE(fromMatrix.w, 0);
        EXPECT_NEAR(std::abs(fromMatrix.Dot(q)), 1, 1e-15);
        EXPECT_LT(MaxDifference(turned, fromMatrix.Rotate(v)), 1e-14);

        const Vector angles = q.GetEulerAngles();
        const Quaternion euler(angles[0], angles[1], angles[2]);
        EXPECT_LT(MaxDifference(turned, euler.Rotate(v)), 1e-14);
        const Vector byAxes = Turn({0, 0, 1}, angles[2], Turn({0, 1, 0}, angles[1], Turn({1, 0, 0}, angles[0], v)));
        EXPECT_LT(MaxDifference(turned, byAxes), 1e-14);

        const Quaternion shortest(v, turned); // any rotation that takes v to the same place, by the smallest angle
        EXPECT_LT(MaxDifference(turned, shortest.Rotate(v)), 1e-7);
        EXPECT_LE(shortest.Distance(Quaternion()), q.Distance(Quaternion()) + 1e-7);

        EXPECT_EQ(q.Distance(q), 0.0);
        EXPECT_EQ(q.Distance(-q), 0.0);
    }
}

TEST(Quaternion, InvalidAndDegenerateInput)
{
    // Pose caches hash the bits: −0 in a matrix must not give another quaternion.
    for (const double x : {1.0, -1.0}) {
        const Quaternion q(x, -0.0, -0.0, -0.0, 1, -0.0, -0.0, -0.0, x);
        for (const double component : {q.w, q.x, q.y, q.z}) EXPECT_FALSE(std::signbit(component));
    }
    const Quaternion invalid = Quaternion::Invalid();
    EXPECT_TRUE(Quaternion());
    EXPECT_FALSE(invalid);
    EXPECT_TRUE(std::isnan(invalid.Distance({})) && std::isnan(Quaternion().Distance(invalid)));
    EXPECT_FALSE(Quaternion(0, 0, 0, 0).GetNormalized());
    EXPECT_FALSE(Quaternion::FromAxisAngle({0, 0, 0}, 1));
    EXPECT_FALSE(Quaternion({0, 0, 0}, {1, 0, 0}));
    EXPECT_EQ(Quaternion(1 + 1e-15, 0, 0, 0).GetAngle(), 0.0);
    for (const Vector& v : {Vector{1, 0, 0}, Vector{0, -2, 0}, Vector{0, 0, 3}, Vector{1, 2, -3}}) {
        const Vector opposite = {-v[0], -v[1], -v[2]};
        EXPECT_LT(MaxDifference(Quaternion(v, opposite).Rotate(v), opposite), 1e-14);
    }
}

TEST(Quaternion, SlerpHasConstantSpeedAlsoForTinyAngles)
{
    for (const double angle : {1e-12, 1e-6, 0.1, 2.0, Pi - 1e-6}) {
        const Quaternion from = Quaternion::FromAxisAngle({1, 2, 3}, 0.7);
        const Quaternion to = Quaternion::FromAxisAngle({1, 2, 3}, 0.7 + angle);
        for (const double s : {-0.5, 0.0, 0.3, 1.0, 1.5})
            for (const Quaternion& end : {to, -to}) {
                const Quaternion q = from.Slerp(end, s);
                const Quaternion expected = Quaternion::FromAxisAngle({1, 2, 3}, 0.7 + s * angle);
                const Quaternion missed(q.w - expected.w, q.x - expected.x, q.y - expected.y, q.z - expected.z);
                EXPECT_LT(missed.GetNorm(), 4e-16 + 1e-9 * angle * angle);
            }
    }
    const Quaternion q = Quaternion::FromAxisAngle({1, 0, 0}, 1);
    EXPECT_EQ(q.Slerp(-q, 0.4).Distance(q), 0.0);
}

TEST(Quaternion, DumpPrintsTheFourComponents)
{
    testing::internal::CaptureStdout();
    Quaternion(0.5, -1, 1e-7, 3).Dump();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "0.5 + i*-1 + j*1e-07 + k*3\n");
}

} // namespace
