#include "VoAlgorithms/numerics/ctrafo.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>

namespace {

using VoAlgo::CbMatrix4Rd;
using VoAlgo::CbMatrix4Rf;
using VoAlgo::CTrafo;
using VoAlgo::Quaternion;
using Vector3 = kdtree::Vector<3>;

constexpr float Pi = std::numbers::pi_v<float>;
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Inf = std::numeric_limits<float>::infinity();

MATCHER_P2(IsNearTrafo, expected, tolerance, "")
{
    for (unsigned row = 0; row < 4; ++row)
        for (unsigned col = 0; col < 4; ++col)
            if (!(std::abs(arg(row, col) - expected(row, col)) <= tolerance)) {
                *result_listener << "(" << row << ", " << col << ") is " << arg(row, col) << " for "
                                 << expected(row, col);
                return false;
            }
    return true;
}

struct Random {
    std::mt19937 twister{4711};
    float operator()(float low, float high) { return low + static_cast<float>(twister()) * 0x1p-32F * (high - low); }
    Vector3 Vector(float range) { return {(*this)(-range, range), (*this)(-range, range), (*this)(-range, range)}; }
    Vector3 Angles() { return {(*this)(-3, 3), (*this)(-1.5F, 1.5F), (*this)(-3, 3)}; }
    CTrafo Pose() { return {Angles(), Vector(10)}; }
};

// Rotation about one coordinate axis, straight from the definition: catches a wrong sign, order or axis.
CTrafo About(unsigned axis, float angle)
{
    CbMatrix4Rd m;
    const unsigned u = (axis + 1) % 3, v = (axis + 2) % 3;
    m(u, u) = m(v, v) = std::cos(static_cast<double>(angle));
    m(v, u) = std::sin(static_cast<double>(angle));
    m(u, v) = -m(v, u);
    return m;
}

TEST(CTrafo, HomogeneousViewAndMatrices)
{
    const CTrafo t({1, 2, 3}, {5, 6, 7}, {9, 10, 11}, {4, 8, 12});
    const CbMatrix4Rd d = t;
    const CbMatrix4Rf f = t;
    for (unsigned i = 0; i < 16; ++i) {
        const float expected = i < 12 ? static_cast<float>(i + 1) : i == 15 ? 1 : 0;
        EXPECT_EQ(t(i / 4, i % 4), expected);
        EXPECT_EQ(d.Data()[i], expected);
        EXPECT_EQ(f(i / 4, i % 4), expected);
    }
    EXPECT_EQ(CTrafo(d), t);
    EXPECT_EQ(CTrafo(f), t);
    EXPECT_EQ(CTrafo(CbMatrix4Rd()), CTrafo());
    for (const auto& at : {std::array{4U, 0U}, {0U, 4U}, {~0U, 0U}}) {
        EXPECT_THAT([&] { static_cast<void>(t(at[0], at[1])); },
                    testing::ThrowsMessage<std::invalid_argument>("invalid row or column index"));
        EXPECT_THROW(static_cast<void>(d(at[0], at[1])), std::invalid_argument);
    }
}

TEST(CTrafo, ValidityAndEqualityLookAtEveryComponentButTheFourthLane)
{
    const CTrafo invalid = CTrafo::Invalid();
    EXPECT_TRUE(CTrafo() && !invalid && !(invalid == invalid));
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_EQ(std::bit_cast<std::uint32_t>(invalid.GetRow(row)[k]), 0x7FC00000U);
            for (const float bad : {NaN, Inf, -Inf}) {
                Vector3 rows[4] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}};
                rows[row][k] = bad;
                EXPECT_FALSE(CTrafo(rows[0], rows[1], rows[2], rows[3]));
            }
        }
        EXPECT_EQ(invalid.GetRow(row).w, 0.0F);
    }
    Vector3 row(1, 0, 0);
    row.w = 5;
    EXPECT_EQ(CTrafo(row, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}), CTrafo());
    for (unsigned k = 0; k < 3; ++k) {
        Vector3 step;
        step[k] = std::numeric_limits<float>::denorm_min();
        EXPECT_FALSE(CTrafo().Translate(step) == CTrafo());
    }
}

TEST(CTrafoProperty, RandomPoses)
{
    Random random;
    for (int i = 0; i < 200; ++i) {
        SCOPED_TRACE(i);
        const Vector3 angles = random.Angles(), t = random.Vector(10), p = random.Vector(10), n = random.Vector(1);
        const CTrafo a(angles, t), b = random.Pose();

        EXPECT_THAT(a, IsNearTrafo((About(2, angles.z) * About(1, angles.y) * About(0, angles.x)).Translate(t), 1e-6F));
        const Vector3 back = a.GetEulerAngles();
        EXPECT_THAT(CTrafo(back, t), IsNearTrafo(a, 1e-6F));
        EXPECT_NEAR(back.y, angles.y, 2e-5);

        EXPECT_THAT(CTrafo(a.GetQuaternion(), t), IsNearTrafo(a, 1e-6F));
        EXPECT_GE(a.GetQuaternion().w, 0.0);
        const auto turned = a.GetQuaternion().Rotate({n.x, n.y, n.z});
        for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(a.Rotate(n)[k], turned[k], 2e-6);

        const auto [point, normal] = a.Transform(p, n);
        EXPECT_EQ(point, a * p);
        EXPECT_EQ(point, a.Rotate(p) + t);
        EXPECT_EQ(normal, a.GetRotationPart(true) * n);
        EXPECT_LT(((a * b) * p - a * (b * p)).Norm(), 2e-5F);

        EXPECT_THAT(a.GetInverse(true) * a, IsNearTrafo(CTrafo(), 1e-5F));
        EXPECT_THAT(a.GetInverse(false), IsNearTrafo(a.GetInverse(true), 1e-5F));
        EXPECT_EQ(a.GetTransposedRotationPart(true), a.GetInverse(true).GetRotationPart(false));
        const CTrafo skew = b * a.Scale({0.5F, 2, -3});
        EXPECT_THAT(skew * skew.GetInverse(false), IsNearTrafo(CTrafo(), 2e-5F));
        EXPECT_LT((a.Scale({2, 3, 4}) * p - Vector3(2 * point.x, 3 * point.y, 4 * point.z)).Norm(), 1e-4F);

        EXPECT_EQ(a.GetRotationDistance(a), 0.0F);
        EXPECT_NEAR(a.GetRotationDistance(a * CTrafo(Vector3(0.25F, 0, 0), {})), 0.25F, 1e-6F);
        EXPECT_EQ(CTrafo(-a.GetQuaternion(), t), CTrafo(a.GetQuaternion(), t));
    }
}

// The order of the additions is part of every result: 1e8 + 1 − 1e8 is 0 or 1.
TEST(CTrafo, SumsFromTheLeftWithoutContraction)
{
    const CTrafo t({1, 1, 1}, {1, 1, 1}, {0.1F, 0.1F, 0.1F}, {1, -1e8F, 0});
    const Vector3 p = t * Vector3(1, 1e8F, -1e8F);
    EXPECT_EQ(p.x, 1.0F); // ((1 + 1e8) − 1e8) + 1
    EXPECT_EQ(p.y, -1e8F);
    const volatile float a = 0.1F * 0.3F, b = 0.1F * -0.3F; // each product rounded on its own
    EXPECT_EQ((t * Vector3(0.3F, -0.3F, 0)).z, a + b);
}

TEST(CTrafo, GimbalLockSingularInverseAndHalfTurns)
{
    for (const float beta : {Pi / 2, -Pi / 2})
        for (const float alpha : {-3.0F, 0.0F, 0.7F})
            for (const float gamma : {0.0F, 1.2F}) {
                const CTrafo t(Vector3(alpha, beta, gamma), {1, 2, 3});
                EXPECT_THAT(CTrafo(t.GetEulerAngles(), {1, 2, 3}), IsNearTrafo(t, 1e-6F));
            }
    EXPECT_EQ(CTrafo({0, 0, 1}, {0, 1, 0}, {-1, 0, 0}, {}).GetEulerAngles().z, 0.0F);

    const float epsilon = std::numeric_limits<float>::epsilon();
    const auto inverse = [](float det) {
        return CTrafo({det, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 2, 3}).GetInverse(false);
    };
    EXPECT_EQ(inverse(std::nextafter(epsilon, 0.0F)), CTrafo());
    EXPECT_EQ(inverse(-epsilon / 2), CTrafo());
    EXPECT_EQ(inverse(epsilon)(0, 0), 1 / epsilon);
    EXPECT_FALSE(CTrafo::Invalid().GetInverse(false));

    EXPECT_FLOAT_EQ(About(0, Pi).GetRotationDistance(CTrafo()), Pi);
    EXPECT_NEAR(About(0, Pi - 0.01F).GetRotationDistance(About(0, -Pi + 0.01F)), 0.02F, 1e-5F);
    EXPECT_EQ(CTrafo::Invalid().GetRotationDistance(CTrafo()), Inf);
    EXPECT_EQ(CTrafo().GetRotationDistance(CTrafo::Invalid()), Inf);
}

TEST(CTrafo, LerpTurnsAtConstantSpeedTheShorterWay)
{
    for (const float angle : {1e-5F, 0.5F, 3.0F, -3.0F}) {
        const CTrafo from = About(2, 2.5F).Translate({1, 2, 3});
        const CTrafo to = About(2, 2.5F + angle).Translate({5, 2, -5});
        for (const float s : {0.0F, 0.25F, 1.0F})
            EXPECT_THAT(from.Lerp(to, s),
                        IsNearTrafo(About(2, 2.5F + s * angle).Translate({1 + 4 * s, 2, 3 - 8 * s}), 1e-6F));
    }
}

// Half turns: q and −q stand side by side, a plain sum would cancel.
TEST(CTrafo, MeanLiesBetween)
{
    for (const float angle : {0.3F, Pi, 3.0F}) {
        const CTrafo poses[3] = {About(1, angle - 0.1F).Translate({1, 0, 0}), About(1, angle).Translate({2, 0, 0}),
                                 About(1, angle + 0.1F).Translate({6, 0, 3})};
        EXPECT_THAT(CTrafo::Mean(poses, 3), IsNearTrafo(About(1, angle).Translate({3, 0, 1}), 1e-6F));
    }
    const CTrafo opposite[3] = {CTrafo(), About(0, 2 * Pi / 3), CTrafo::Invalid()};
    EXPECT_TRUE(CTrafo::Mean(opposite, 2));
    EXPECT_FALSE(CTrafo::Mean(opposite, 3));
    EXPECT_FALSE(CTrafo::Mean(opposite, 0));
    EXPECT_FALSE(CTrafo::Mean(nullptr, 3));
}

TEST(CTrafo, LeastSquaresFit)
{
    Random random;
    const CTrafo pose = random.Pose();
    Vector3 a[5], b[5];
    for (unsigned i = 0; i < 5; ++i) b[i] = pose * (a[i] = random.Vector(10));
    const double weights[] = {1, 100, 0.01, 3, 7};
    for (const double* w : {static_cast<const double*>(nullptr), weights})
        EXPECT_THAT(CTrafo::LeastSquaresFit(a, b, 5, w), IsNearTrafo(pose, 1e-5F));
    EXPECT_FALSE(CTrafo::LeastSquaresFit(a, b, 2));
    EXPECT_FALSE(CTrafo::LeastSquaresFit(nullptr, b, 5));
    EXPECT_FALSE(CTrafo::LeastSquaresFit(a, nullptr, 5));
    std::fill_n(a, 5, a[0]);
    EXPECT_FALSE(CTrafo::LeastSquaresFit(a, b, 5));
}

TEST(CTrafo, DumpPrintsFourRows)
{
    testing::internal::CaptureStdout();
    CTrafo({0, -1, 0}, {1, 0, 0}, {0, 0, 1}, {12.34567F, -2, 1000}).Dump();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " 0.000 -1.000 0.000 12.346\n"
                                                      " 1.000 0.000 0.000 -2.000\n"
                                                      " 0.000 0.000 1.000 1000.000\n"
                                                      " 0.000 0.000 0.000 1.000\n");
}

} // namespace
