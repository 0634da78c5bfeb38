#include "VoAlgorithms/numerics/symsolvers.h"

#include "VoAlgorithms/numerics/quaternion.h"
#include "VoAlgorithms/platform/logging.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace VoAlgo::symsolvers;
using VoAlgo::Quaternion;
using Vector = std::array<double, 3>;
using Doubles = std::vector<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();
constexpr double Untouched = 1234.5;

struct Random {
    std::mt19937 twister{4711};
    double operator()(double low, double high) { return low + (high - low) * static_cast<double>(twister()) * 0x1p-32; }
    double Normal() // Box and Muller
    {
        return std::sqrt(-2 * std::log((*this)(1e-10, 1))) * std::cos((*this)(0, 2 * std::numbers::pi));
    }
    Vector Direction()
    {
        const Vector v = {Normal(), Normal(), Normal()};
        const double norm = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        return {v[0] / norm, v[1] / norm, v[2] / norm};
    }
    Quaternion Rotation() { return Quaternion::FromAxisAngle(Direction(), (*this)(0, std::numbers::pi)); }
    Doubles Fill(std::size_t n, double low, double high)
    {
        Doubles values(n);
        for (double& v : values) v = (*this)(low, high);
        return values;
    }
};

void Append(Doubles& points, const Vector& p)
{
    points.insert(points.end(), p.begin(), p.end());
}

Vector At(const Doubles& points, std::size_t i)
{
    return {points[3 * i], points[3 * i + 1], points[3 * i + 2]};
}

Vector Plus(const Vector& a, const Vector& b)
{
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

double Dot(const Vector& a, const Vector& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Vector Cross(const Vector& a, const Vector& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

struct Fit {
    bool ok = false;
    double q[4] = {Untouched, Untouched, Untouched, Untouched};
    double R[3][3] = {
        {Untouched, Untouched, Untouched}, {Untouched, Untouched, Untouched}, {Untouched, Untouched, Untouched}};
    double t[3] = {Untouched, Untouched, Untouched};

    [[nodiscard]] Quaternion Rotation() const { return {q[0], q[1], q[2], q[3]}; }
    [[nodiscard]] bool IsUntouched() const { return q[0] == Untouched && R[0][0] == Untouched && t[0] == Untouched; }
};

Fit FitPoints(const Doubles& a, const Doubles& b, const double* weights = nullptr)
{
    Fit fit;
    fit.ok = Procrustes(a.data(), b.data(), weights, fit.q, fit.R, fit.t, static_cast<unsigned>(a.size() / 3));
    return fit;
}

class ProcrustesTest : public testing::Test {
protected:
    ProcrustesTest()
    {
        Logging::SetLevel(Logging::ELogLevel::Trace);
        Logging::SetSink([this](const Logging::Message& m) {
            channel_ = m.channel;
            level_ = m.level;
            text_ = m.text;
        });
    }
    ~ProcrustesTest() override
    {
        Logging::SetSink(nullptr);
        Logging::SetLevel(Logging::ELogLevel::Warn);
    }

    Random random_;
    std::string channel_;
    Logging::ELogLevel level_ = Logging::ELogLevel::Off;
    std::wstring text_;
};

TEST_F(ProcrustesTest, RecoversPoses)
{
    for (std::size_t n = 3; n < 60; ++n) {
        SCOPED_TRACE(n);
        const Quaternion q = random_.Rotation();
        const Vector t = {random_(-1e4, 1e4), random_(-1, 1), random_(-1, 1)};
        const Doubles a = random_.Fill(3 * n, -50, 50), weights = random_.Fill(n, 0.01, 100);
        Doubles b;
        for (std::size_t i = 0; i < n; ++i) Append(b, Plus(q.Rotate(At(a, i)), t));
        for (const double* w : {static_cast<const double*>(nullptr), weights.data()}) {
            const Fit fit = FitPoints(a, b, w);
            EXPECT_TRUE(fit.ok);
            EXPECT_GE(fit.q[0], 0);
            EXPECT_NEAR(std::abs(fit.Rotation().Dot(q)), 1, 1e-14);
            for (unsigned k = 0; k < 3; ++k) {
                EXPECT_NEAR(fit.t[k], t[k], 1e-9);
                const Vector column =
                    fit.Rotation().Rotate({k == 0 ? 1.0 : 0.0, k == 1 ? 1.0 : 0.0, k == 2 ? 1.0 : 0.0});
                for (unsigned r = 0; r < 3; ++r) EXPECT_NEAR(fit.R[r][k], column[r], 1e-14);
            }
        }
    }
    EXPECT_EQ(text_, L"");
}

// Deliberate: weights count in the centroids only. With the points and their mirror images at the weighted centroids
// the plain fit has the same cross-covariance, whatever the weights; a weighted sum in S would give another rotation.
TEST_F(ProcrustesTest, WeightsEnterTheCentroidsOnly)
{
    const std::size_t n = 7;
    const Doubles a = random_.Fill(3 * n, -50, 50), b = random_.Fill(3 * n, -50, 50), w = random_.Fill(n, 0.01, 100);
    Vector cA{}, cB{};
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        sum += w[i];
        for (unsigned k = 0; k < 3; ++k) {
            cA[k] += w[i] * a[3 * i + k];
            cB[k] += w[i] * b[3 * i + k];
        }
    }
    Doubles mirroredA, mirroredB;
    for (const double sign : {1.0, -1.0})
        for (std::size_t i = 0; i < 3 * n; ++i) {
            mirroredA.push_back(sign * (a[i] - cA[i % 3] / sum));
            mirroredB.push_back(sign * (b[i] - cB[i % 3] / sum));
        }
    const Fit fit = FitPoints(a, b, w.data()), expected = FitPoints(mirroredA, mirroredB);
    EXPECT_TRUE(fit.ok && expected.ok);
    for (unsigned k = 0; k < 4; ++k) EXPECT_NEAR(fit.q[k], expected.q[k], 1e-13);
    const Vector moved = fit.Rotation().Rotate({cA[0] / sum, cA[1] / sum, cA[2] / sum});
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(fit.t[k], cB[k] / sum - moved[k], 1e-12);

    // No other rotation fits these noisy points better.
    const auto gain = [&](const Quaternion& q) {
        double trace = 0;
        for (std::size_t i = 0; i < n; ++i) trace += Dot(q.Rotate(At(mirroredA, i)), At(mirroredB, i));
        return trace;
    };
    const double best = gain(fit.Rotation());
    for (int i = 0; i < 500; ++i) {
        EXPECT_LE(gain(random_.Rotation()), best);
        EXPECT_LE(gain(Quaternion::FromAxisAngle(random_.Direction(), 1e-3) * fit.Rotation()), best);
    }
}

TEST_F(ProcrustesTest, IdenticalSetsGiveExactlyTheIdentity)
{
    const Doubles a = random_.Fill(15, -50, 50);
    const Fit fit = FitPoints(a, a);
    EXPECT_TRUE(fit.ok);
    EXPECT_THAT(fit.q, testing::ElementsAre(1, 0, 0, 0));
    EXPECT_THAT(fit.t, testing::Each(0));
    EXPECT_THAT(fit.R[1], testing::ElementsAre(0, 1, 0));
}

TEST_F(ProcrustesTest, WritesNothingForTooFewMissingOrBrokenPoints)
{
    const Doubles a = random_.Fill(9, -1, 1), two = random_.Fill(6, -1, 1), noWeight(3, 0.0);
    EXPECT_TRUE(FitPoints(two, two).IsUntouched());
    Fit fit;
    EXPECT_FALSE(Procrustes(nullptr, a.data(), nullptr, fit.q, fit.R, fit.t, 3));
    EXPECT_FALSE(Procrustes(a.data(), nullptr, nullptr, fit.q, fit.R, fit.t, 3));
    EXPECT_TRUE(fit.IsUntouched());
    EXPECT_EQ(text_, L"");
    for (const double bad : {NaN, Inf}) {
        Doubles broken = a;
        broken[4] = bad;
        EXPECT_TRUE(!FitPoints(a, broken).ok && FitPoints(broken, a).IsUntouched());
        EXPECT_EQ(level_, Logging::ELogLevel::Error);
    }
    EXPECT_TRUE(FitPoints(a, a, noWeight.data()).IsUntouched());
}

TEST_F(ProcrustesTest, DegeneratePointsAreAmbiguousButWritten)
{
    const auto expectAmbiguous = [&](const Doubles& a, const Doubles& b, const double* weights) {
        text_.clear();
        const Fit fit = FitPoints(a, b, weights);
        EXPECT_FALSE(fit.ok);
        EXPECT_NEAR(fit.Rotation().GetNorm(), 1, 1e-14);
        EXPECT_TRUE(std::isfinite(fit.R[2][2]) && std::isfinite(fit.t[2]));
        EXPECT_NE(text_, L"");
    };
    for (int repeat = 0; repeat < 300; ++repeat) {
        SCOPED_TRACE(repeat);
        const Doubles weights = random_.Fill(4, 0.01, 100), offsets = random_.Fill(6, -1e4, 1e4);
        const Doubles cloud = random_.Fill(12, -50, 50);
        const auto line = [&](std::size_t axis, std::size_t first) {
            Doubles points;
            for (std::size_t i = 0; i < 4; ++i) {
                Append(points, {offsets[first], offsets[first + 1], offsets[first + 2]});
                points[3 * i + axis] = cloud[i + 4 * (first / 3)];
            }
            return points;
        };
        Doubles same;
        for (int i = 0; i < 4; ++i) Append(same, At(offsets, 0));
        expectAmbiguous(same, same, weights.data());
        expectAmbiguous(same, cloud, weights.data());
        expectAmbiguous(line(0, 0), line(0, 3), weights.data());
        expectAmbiguous(line(0, 0), line(2, 3), weights.data());
        expectAmbiguous(line(1, 0), line(1, 0), nullptr);

        // Three grid points at equal distances on any line.
        Doubles a, b;
        Vector p = {1, -7, 30}, q = {0, 5, 2}, d{}, e{};
        for (unsigned k = 0; k < 3; ++k) {
            d[k] = std::round(random_(-9, 9));
            e[k] = std::round(random_(-9, 9));
        }
        for (int i = 0; i < 3; ++i, p = Plus(p, d), q = Plus(q, e)) {
            Append(a, p);
            Append(b, q);
        }
        expectAmbiguous(a, a, nullptr);
        expectAmbiguous(a, b, nullptr);
    }
    FitPoints({0, 0, 0, 1, 0, 0, 2, 0, 0}, {0, 0, 0, 1, 0, 0, 2, 0, 0});
    EXPECT_EQ(text_, L"Ambiguous Procrustes result; M=3, lambda = [2,2,-2,-2]; duplicate or degenerate points");
    EXPECT_EQ(channel_, "KEP.PreRegistration");
    EXPECT_EQ(level_, Logging::ELogLevel::Trace);
}

TEST(JacobiIteration, DecomposesRandomMatrices)
{
    Random random;
    for (int n = 1; n <= 9; ++n) {
        SCOPED_TRACE(n);
        const auto size = static_cast<std::size_t>(n);
        Doubles A = random.Fill(size * size, -1e3, 1e3), values(size), V(size * size), work(size);
        for (std::size_t r = 0; r < size; ++r)
            for (std::size_t c = 0; c < r; ++c) A[r * size + c] = A[c * size + r];
        Doubles destroyed = A;
        for (std::size_t r = 0; r < size; ++r)
            for (std::size_t c = 0; c < r; ++c) destroyed[r * size + c] = NaN; // not read
        JacobiIteration(destroyed.data(), values.data(), V.data(), n, 20, work.data());
        for (const bool descending : {true, false}) {
            SortEigenV(values.data(), V.data(), n, descending);
            EXPECT_TRUE(descending ? std::is_sorted(values.rbegin(), values.rend())
                                   : std::is_sorted(values.begin(), values.end()));
            for (std::size_t k = 0; k < size; ++k) {
                for (std::size_t r = 0; r < size; ++r) {
                    double Av = 0, VtV = 0;
                    for (std::size_t c = 0; c < size; ++c) {
                        Av += A[r * size + c] * V[c * size + k];
                        VtV += V[c * size + r] * V[c * size + k];
                    }
                    EXPECT_NEAR(Av, values[k] * V[r * size + k], 1e-10);
                    EXPECT_NEAR(VtV, r == k ? 1 : 0, 1e-14);
                }
            }
        }
    }
}

TEST(JacobiIteration, StopRule)
{
    const auto turned = [](double offDiagonal, int maxSweeps) {
        double A[4] = {1, offDiagonal, offDiagonal, 2}, values[2], V[4], work[2];
        JacobiIteration(A, values, V, 2, maxSweeps, work);
        return V[1] != 0;
    };
    EXPECT_FALSE(turned(7.9e-15, 20)); // s = 7.9e-15 ÷ 8
    EXPECT_TRUE(turned(8.1e-15, 20));
    EXPECT_FALSE(turned(0.5, 0));
    EXPECT_TRUE(turned(0.5, 1));
    const int forever = std::numeric_limits<int>::max();
    EXPECT_FALSE(turned(NaN, forever)); // and ends
    turned(Inf, forever);
}

TEST(SortEigenV, KeepsPairsAndTheOrderOfTies)
{
    double values[4] = {1, 3, 1, 2}, columns[16];
    for (int i = 0; i < 16; ++i) columns[i] = i % 4;
    SortEigenV(values, columns, 4, true);
    EXPECT_THAT(values, testing::ElementsAre(3, 2, 1, 1));
    EXPECT_THAT(columns, testing::ElementsAre(1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2));
}

TEST(Orthonormalize, RowsBecomeTheColumnsOfARotation)
{
    Random random;
    for (int i = 0; i < 50; ++i) {
        const Quaternion q = random.Rotation();
        const Vector rows[3] = {q.Rotate({1, 0, 0}), q.Rotate({0, 1, 0}), q.Rotate({0, 0, 1})};
        const double noise = i % 2 == 0 ? 0 : 0.05, tolerance = 1e-14 + 3 * noise;
        double m[3][3];
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) m[r][c] = (r + 1.0) * (rows[r][c] + random(-noise, noise));
        EXPECT_TRUE(Orthonormalize(m));
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) {
                EXPECT_NEAR(m[c][r], rows[r][c], tolerance);
                double dot = 0;
                for (const auto& row : m) dot += row[r] * row[c];
                EXPECT_NEAR(dot, r == c ? 1 : 0, 1e-14);
            }
    }
    double zeroRow[3][3] = {{1, 0, 0}, {0, 0, 0}, {0, 0, 1}};
    EXPECT_FALSE(Orthonormalize(zeroRow));
    EXPECT_THAT(zeroRow[0], testing::ElementsAre(1, 0, 0));
}

/// Points on an ellipsoid with its normals, and where a pose takes them.
struct Surface {
    Doubles points, normals;
};

Surface Ellipsoid(Random& random, int n, const Vector& centre)
{
    constexpr Vector axes = {50, 30, 20};
    Surface surface;
    for (int i = 0; i < n; ++i) {
        const Vector u = random.Direction(), g = {u[0] / axes[0], u[1] / axes[1], u[2] / axes[2]};
        const double norm = std::sqrt(Dot(g, g));
        Append(surface.points, Plus(centre, {axes[0] * u[0], axes[1] * u[1], axes[2] * u[2]}));
        Append(surface.normals, {g[0] / norm, g[1] / norm, g[2] / norm});
    }
    return surface;
}

// At the minimum of Σ w·((s + ω × s + t − d)·n)² its gradient by ω and by t vanishes.
TEST(PointToPlaneUpdateLS, GradientVanishes)
{
    Random random;
    const int n = 200;
    const Surface dst = Ellipsoid(random, n, {10, -20, 5});
    Doubles src = dst.points;
    for (double& v : src) v += random(-1, 1);
    const Doubles weights = random.Fill(n, 0.1, 10);
    for (const bool oneWeight : {false, true})
        for (const double* w : {weights.data(), static_cast<const double*>(nullptr)}) {
            Vector omega, t, byOmega{}, byT{};
            ASSERT_TRUE(PointToPlaneUpdateLS(src.data(), dst.points.data(), dst.normals.data(), w, omega.data(),
                                             t.data(), n, oneWeight));
            for (std::size_t i = 0; i < n; ++i) {
                const Vector s = At(src, i), normal = At(dst.normals, i), moment = Cross(s, normal);
                const Vector p = Plus(Plus(s, Cross(omega, s)), t), d = At(dst.points, i);
                const double weight = w == nullptr ? 1 : (oneWeight ? w[0] : w[i]);
                const double r = weight * Dot({p[0] - d[0], p[1] - d[1], p[2] - d[2]}, normal);
                byOmega = Plus(byOmega, {r * moment[0], r * moment[1], r * moment[2]});
                byT = Plus(byT, {r * normal[0], r * normal[1], r * normal[2]});
            }
            for (unsigned k = 0; k < 3; ++k) {
                EXPECT_NEAR(byOmega[k], 0, 1e-9);
                EXPECT_NEAR(byT[k], 0, 1e-10);
            }
        }
}

// Exactly singular systems leave pivots of rounding noise, not zeros: any direction, size and place must be caught.
TEST(PointToPlaneUpdateLS, SingularSystemsFailAndWriteNothing)
{
    Random random;
    Vector omega = {Untouched, 0, 0}, t = {Untouched, 0, 0};
    const auto update = [&](const Doubles& src, const Doubles& normals, int n) {
        return PointToPlaneUpdateLS(src.data(), src.data(), normals.data(), nullptr, omega.data(), t.data(), n, true);
    };
    for (int i = 0; i < 300; ++i) {
        const int n = i % 3 == 0 ? 10 : 500;
        const double far = std::pow(10, random(0, 6));
        Surface s = Ellipsoid(random, n, {random(-far, far), random(-far, far), random(-far, far)});
        EXPECT_TRUE(update(s.points, s.normals, n));
        omega[0] = t[0] = Untouched;
        EXPECT_FALSE(update(s.points, s.normals, 5));
        EXPECT_FALSE(update(s.points, s.normals, 0));
        Doubles broken = s.points;
        broken[7] = i % 2 == 0 ? NaN : Inf;
        EXPECT_FALSE(update(broken, s.normals, n));
        const Vector direction = random.Direction();
        s.normals.clear();
        for (int k = 0; k < n; ++k) Append(s.normals, direction);
        EXPECT_FALSE(update(s.points, s.normals, n)) << i;
    }
    EXPECT_EQ(omega[0], Untouched);
    EXPECT_EQ(t[0], Untouched);
}

TEST(PointToPlaneUpdate, FindsLargeMotionsAnywhere)
{
    Random random;
    for (const double far : {0.0, 1e3, 1e6})
        for (int i = 0; i < 20; ++i) {
            const int n = 100;
            const Vector centre = {far, -far, far};
            const Surface dst = Ellipsoid(random, n, centre);
            const Quaternion q = Quaternion::FromAxisAngle(random.Direction(), 0.3);
            Doubles src; // dst = q·src + shift, about the centre
            const Vector shift = {3, -2, 4};
            for (std::size_t k = 0; k < n; ++k) {
                const Vector d = At(dst.points, k);
                const Vector back = (~q).Rotate({d[0] - centre[0] - 3, d[1] - centre[1] + 2, d[2] - centre[2] - 4});
                Append(src, Plus(centre, back));
            }
            Vector angles, t;
            ASSERT_TRUE(PointToPlaneUpdate(src.data(), dst.points.data(), dst.normals.data(), nullptr, angles.data(),
                                           t.data(), n));
            EXPECT_LT(Quaternion(angles[0], angles[1], angles[2]).Distance(q), 1e-7); // acos near 1
            const Vector turned = Quaternion(angles[0], angles[1], angles[2]).Rotate(centre);
            for (unsigned k = 0; k < 3; ++k)
                EXPECT_NEAR(turned[k] + t[k], centre[k] + shift[k], 1e-9 * (1 + far)) << far;
        }
    Vector angles = {Untouched, 0, 0}, t{};
    const Surface s = Ellipsoid(random, 10, {});
    const Doubles parallel(30, 0.5);
    EXPECT_FALSE(
        PointToPlaneUpdate(s.points.data(), s.points.data(), parallel.data(), nullptr, angles.data(), t.data(), 10));
    EXPECT_EQ(angles[0], Untouched);
}

// Repeated fits of noisy points must scatter as the covariance says; also the unit and order of its entries.
TEST(PointToPlaneCovariance, AgreesWithTheScatterOfRepeatedFits)
{
    Random random;
    const int n = 60, repeats = 3000;
    const Surface dst = Ellipsoid(random, n, {20, 0, -10});
    const double pose[6] = {0.4, -0.7, 0.2, 5, -3, 1}, sigma = 0.05;
    const Quaternion q(pose[0], pose[1], pose[2]);
    Doubles weights, exact;
    for (std::size_t i = 0; i < n; ++i) {
        weights.push_back(i % 2 == 0 ? 40.0 : 10.0); // every second distance twice as noisy
        const Vector d = At(dst.points, i);
        Append(exact, (~q).Rotate({d[0] - pose[3], d[1] - pose[4], d[2] - pose[5]}));
    }
    double scatter[6][6] = {}, estimate[6][6] = {};
    for (int repeat = 0; repeat < repeats; ++repeat) {
        Doubles src;
        for (std::size_t i = 0; i < n; ++i) {
            const double noise = sigma * (i % 2 == 0 ? 1 : 2) * random.Normal();
            const Vector normal = (~q).Rotate(At(dst.normals, i));
            Append(src, Plus(At(exact, i), {noise * normal[0], noise * normal[1], noise * normal[2]}));
        }
        double found[6], covariance[6][6];
        ASSERT_TRUE(
            PointToPlaneUpdate(src.data(), dst.points.data(), dst.normals.data(), weights.data(), found, found + 3, n));
        ASSERT_TRUE(PointToPlaneCovariance(src.data(), dst.points.data(), dst.normals.data(), weights.data(), found, n,
                                           &covariance[0][0]));
        for (int r = 0; r < 6; ++r)
            for (int c = 0; c < 6; ++c) {
                scatter[r][c] += (found[r] - pose[r]) * (found[c] - pose[c]) / repeats;
                estimate[r][c] += covariance[r][c] / repeats;
                EXPECT_EQ(covariance[r][c], covariance[c][r]);
            }
    }
    for (int r = 0; r < 6; ++r)
        for (int c = 0; c < 6; ++c) // correlation scale; sampling error about 1 / √3000
            EXPECT_NEAR(scatter[r][c], estimate[r][c], 0.08 * std::sqrt(estimate[r][r] * estimate[c][c])) << r << c;
}

TEST(PointToPlaneCovariance, RefusesWhatItCannotEstimate)
{
    Random random;
    const Surface s = Ellipsoid(random, 50, {});
    const auto estimate = [&](const Doubles& dst, const Doubles& normals, double beta, int n) {
        const double pose[6] = {0.1, beta, 0.3, 1, 2, 3};
        double covariance[36] = {Untouched};
        const bool ok =
            PointToPlaneCovariance(s.points.data(), dst.data(), normals.data(), nullptr, pose, n, covariance);
        EXPECT_EQ(ok, covariance[0] != Untouched);
        return ok;
    };
    const Doubles broken(150, NaN), parallel(150, 0.5);
    EXPECT_TRUE(estimate(s.points, s.normals, 0.2, 7));
    EXPECT_FALSE(estimate(s.points, s.normals, 0.2, 6));
    EXPECT_FALSE(estimate(broken, s.normals, 0.2, 50));
    EXPECT_FALSE(estimate(s.points, parallel, 0.2, 50));
    EXPECT_FALSE(estimate(s.points, s.normals, std::numbers::pi / 2, 50)); // gimbal lock
}

} // namespace
