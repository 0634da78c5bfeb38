#include "VoAlgorithms/numerics/symsolvers.h"

#include "VoAlgorithms/numerics/quaternion.h"
#include "VoAlgorithms/numerics/tmatrix.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/log_capture.h"

namespace {

using namespace VoAlgo::symsolvers;
using VoAlgo::Quaternion;
using Matrix = VoAlgo::TMatrix<double>;
using Vector = std::array<double, 3>;
using Doubles = std::vector<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();
constexpr double Untouched = 1234.5;

constexpr Vector Axes[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

struct Random {
    std::mt19937 twister{4711};
    std::normal_distribution<double> normal;
    double operator()(double low, double high) { return std::uniform_real_distribution(low, high)(twister); }
    Vector Direction()
    {
        const Vector v = {normal(twister), normal(twister), normal(twister)};
        const double norm = std::hypot(v[0], v[1], v[2]);
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

Vector Times(const Vector& a, double factor)
{
    return {factor * a[0], factor * a[1], factor * a[2]};
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
    double q[4] = {Untouched}, R[3][3] = {{Untouched}}, t[3] = {Untouched};

    [[nodiscard]] Quaternion Rotation() const { return {q[0], q[1], q[2], q[3]}; }
    [[nodiscard]] bool IsUntouched() const { return q[0] == Untouched && R[0][0] == Untouched && t[0] == Untouched; }
};

Fit FitPoints(const Doubles& a, const Doubles& b, const double* weights = nullptr)
{
    Fit fit;
    fit.ok = Procrustes(a.data(), b.data(), weights, fit.q, fit.R, fit.t, static_cast<unsigned>(a.size() / 3));
    return fit;
}

/// The fit without any scaling of its matrix, from centroids at the origin: the quaternion, w ≥ 0.
Quaternion UnscaledFit(const Doubles& a, const Doubles& b)
{
    double S[3][3] = {}, lambda[4], V[16], work[4];
    for (std::size_t i = 0; i < a.size(); i += 3)
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) S[r][c] += a[i + r] * b[i + c];
    const double x = S[1][2] - S[2][1], y = S[2][0] - S[0][2], z = S[0][1] - S[1][0];
    const double xy = S[0][1] + S[1][0], xz = S[2][0] + S[0][2], yz = S[1][2] + S[2][1];
    double N[16] = {S[0][0] + S[1][1] + S[2][2],  x,  y, z,  x,  S[0][0] - S[1][1] - S[2][2], xy, xz, y, xy,
                    -S[0][0] + S[1][1] - S[2][2], yz, z, xz, yz, -S[0][0] - S[1][1] + S[2][2]};
    JacobiIteration(N, lambda, V, 4, 20, work);
    SortEigenV(lambda, V, 4, true);
    const double scale = (V[0] < 0 ? -1 : 1) / std::sqrt(V[0] * V[0] + V[4] * V[4] + V[8] * V[8] + V[12] * V[12]);
    return {V[0] * scale, V[4] * scale, V[8] * scale, V[12] * scale};
}

// Poses come out with and without weights, in both notations, whatever the size of the points.
TEST(Procrustes, RecoversPosesAtEverySize)
{
    Random random;
    test_support::LogCapture log;
    for (const double size : {1e-150, 1e-20, 1e-7, 1e-6, 1e-5, 1e-3, 1.0, 50.0, 1e9, 1e76, 1e77, 1e150})
        for (std::size_t n = 3; n < 20; ++n) {
            SCOPED_TRACE(testing::Message() << size << ' ' << n);
            const Quaternion q = random.Rotation();
            const Vector t = {random(-100, 100) * size, size, random(-1, 1) * size};
            const Doubles a = random.Fill(3 * n, -size, size), weights = random.Fill(n, 0.01, 100);
            Doubles b;
            for (std::size_t i = 0; i < n; ++i) Append(b, Plus(q.Rotate(At(a, i)), t));
            for (const double* w : {static_cast<const double*>(nullptr), weights.data()}) {
                const Fit fit = FitPoints(a, b, w);
                EXPECT_TRUE(fit.ok);
                EXPECT_GE(fit.q[0], 0);
                EXPECT_NEAR(std::abs(fit.Rotation().Dot(q)), 1, 1e-12);
                for (unsigned k = 0; k < 3; ++k) {
                    EXPECT_NEAR(fit.t[k], t[k], 1e-6 * size);
                    for (unsigned c = 0; c < 3; ++c) EXPECT_NEAR(fit.R[k][c], fit.Rotation().Rotate(Axes[c])[k], 1e-14);
                }
            }
        }
    EXPECT_THAT(log.Take(), testing::IsEmpty());
}

// Within the band in which the stop test works, the result has the bits of the iteration without scaling.
TEST(Procrustes, ScalingLeavesUsualSizesAlone)
{
    Random random;
    for (int exponent = -9; exponent <= 248; ++exponent) {
        Doubles a, b; // points of a grid in pairs p, −p: centroids are exactly 0
        for (Doubles* points : {&a, &b})
            for (int i = 0; i < 3; ++i) {
                const Doubles p = random.Fill(3, -0x1p20, 0x1p20);
                for (const int sign : {1, -1})
                    for (const double e : p) points->push_back(std::ldexp(sign * std::round(e), exponent - 20));
            }
        EXPECT_EQ(FitPoints(a, b).Rotation(), UnscaledFit(a, b)) << exponent;
    }
}

// Deliberate: weights count in the centroids only. With the points and their mirror images at the weighted centroids
// the plain fit has the same cross-covariance, whatever the weights; a weighted sum in S would give another rotation.
TEST(Procrustes, WeightsEnterTheCentroidsOnly)
{
    Random random;
    const std::size_t n = 7;
    const Doubles a = random.Fill(3 * n, -50, 50), b = random.Fill(3 * n, -50, 50), w = random.Fill(n, 0.01, 100);
    Vector cA{}, cB{};
    const double sum = std::accumulate(w.begin(), w.end(), 0.0);
    for (std::size_t i = 0; i < 3 * n; ++i) {
        cA[i % 3] += w[i / 3] * a[i] / sum;
        cB[i % 3] += w[i / 3] * b[i] / sum;
    }
    Doubles mirroredA, mirroredB;
    for (const double sign : {1.0, -1.0})
        for (std::size_t i = 0; i < 3 * n; ++i) {
            mirroredA.push_back(sign * (a[i] - cA[i % 3]));
            mirroredB.push_back(sign * (b[i] - cB[i % 3]));
        }
    const Fit fit = FitPoints(a, b, w.data()), expected = FitPoints(mirroredA, mirroredB);
    EXPECT_TRUE(fit.ok && expected.ok);
    EXPECT_NEAR(fit.Rotation().Dot(expected.Rotation()), 1, 1e-13);
    const Vector moved = fit.Rotation().Rotate(cA);
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(fit.t[k], cB[k] - moved[k], 1e-12);

    // No other rotation fits these noisy points better.
    const auto gain = [&](const Quaternion& q) {
        double trace = 0;
        for (std::size_t i = 0; i < n; ++i) trace += Dot(q.Rotate(At(mirroredA, i)), At(mirroredB, i));
        return trace;
    };
    const double best = gain(fit.Rotation());
    for (int i = 0; i < 500; ++i) {
        EXPECT_LE(gain(random.Rotation()), best);
        EXPECT_LE(gain(Quaternion::FromAxisAngle(random.Direction(), 1e-3) * fit.Rotation()), best);
    }
}

TEST(Procrustes, IdenticalTooFewMissingOrBrokenPoints)
{
    Random random;
    test_support::LogCapture log;
    const Doubles a = random.Fill(9, -1, 1), two = random.Fill(6, -1, 1), noWeight(3, 0.0);
    Fit fit = FitPoints(a, a);
    EXPECT_TRUE(fit.ok && fit.Rotation() == Quaternion(1, 0, 0, 0));
    EXPECT_THAT(fit.t, testing::Each(0));
    EXPECT_TRUE(FitPoints(two, two).IsUntouched());
    fit = {};
    EXPECT_FALSE(Procrustes(nullptr, a.data(), nullptr, fit.q, fit.R, fit.t, 3));
    EXPECT_FALSE(Procrustes(a.data(), nullptr, nullptr, fit.q, fit.R, fit.t, 3));
    EXPECT_TRUE(fit.IsUntouched());
    EXPECT_THAT(log.Take(), testing::IsEmpty());
    for (const double bad : {NaN, Inf}) {
        Doubles broken = a;
        broken[4] = bad;
        EXPECT_TRUE(!FitPoints(a, broken).ok && FitPoints(broken, a).IsUntouched());
        EXPECT_THAT(log.Take(), testing::Each(testing::HasSubstr("|E|Inf/NaN in Procrustes input; M=3")));
    }
    EXPECT_TRUE(FitPoints(a, a, noWeight.data()).IsUntouched());
}

TEST(Procrustes, DegeneratePointsAreAmbiguousButWritten)
{
    Random random;
    test_support::LogCapture log;
    const auto expectAmbiguous = [&](const Doubles& a, const Doubles& b, const double* weights) {
        const Fit fit = FitPoints(a, b, weights);
        EXPECT_FALSE(fit.ok);
        EXPECT_NEAR(fit.Rotation().GetNorm(), 1, 1e-14);
        EXPECT_TRUE(std::isfinite(fit.R[2][2]) && std::isfinite(fit.t[2]));
        EXPECT_EQ(log.Take().size(), 1U);
    };
    for (int repeat = 0; repeat < 300; ++repeat) {
        SCOPED_TRACE(repeat);
        const double size = std::pow(10, repeat % 12 - 8);
        const Doubles weights = random.Fill(4, 0.01, 100), cloud = random.Fill(12, -size, size);
        const Vector places[] = {Times(random.Direction(), 1e4), Times(random.Direction(), 1e4)};
        const auto line = [&](std::size_t axis, std::size_t which) {
            Doubles points;
            for (std::size_t i = 0; i < 4; ++i) {
                Append(points, places[which]);
                points[3 * i + axis] = cloud[i + 4 * which];
            }
            return points;
        };
        Doubles same;
        for (int i = 0; i < 4; ++i) Append(same, places[0]);
        expectAmbiguous(same, same, weights.data());
        expectAmbiguous(same, cloud, weights.data());
        expectAmbiguous(line(0, 0), line(0, 1), weights.data());
        expectAmbiguous(line(0, 0), line(2, 1), weights.data());
        expectAmbiguous(line(1, 0), line(1, 0), nullptr);

        const auto threeOnGrid = [&] { // at equal distances on any line
            Doubles points;
            Vector step;
            for (double& e : step) e = std::round(random(-9, 9));
            for (const double i : {0, 1, 2}) Append(points, Plus({1, -7, 30}, Times(step, i)));
            return points;
        };
        const Doubles a = threeOnGrid(), b = threeOnGrid();
        expectAmbiguous(a, a, nullptr);
        expectAmbiguous(a, b, nullptr);
    }
    // The message shows the eigenvalues ±2·2^-60 of the matrix as it was before any scaling.
    const Doubles tiny = {0, 0, 0, 0x1p-30, 0, 0, 0x1p-29, 0, 0};
    FitPoints(tiny, tiny);
    EXPECT_THAT(log.Take(), testing::ElementsAre("KEP.PreRegistration|T|Ambiguous Procrustes result; M=3, lambda = "
                                                 "[1.73472e-18,1.73472e-18,-1.73472e-18,-1.73472e-18]"
                                                 "; duplicate or degenerate points"));
    const Doubles vanishing = {0, 0, 0, 1e-160, 0, 0, 0, 1e-160, 0};
    EXPECT_FALSE(FitPoints(vanishing, vanishing).ok);
}

TEST(JacobiIteration, DecomposesRandomMatrices)
{
    Random random;
    for (int n = 1; n <= 9; ++n) {
        SCOPED_TRACE(n);
        Matrix A(n, n), Vt(n, n);
        Doubles values(A.Cols()), work(A.Cols());
        for (int c = 0; c < n; ++c)
            for (int r = 0; r <= c; ++r) A(r, c) = A(c, r) = random(-1e3, 1e3);
        Matrix destroyed = A; // symmetric, so that rows may stand for columns
        for (int c = 0; c < n; ++c)
            for (int r = 0; r < c; ++r) destroyed(r, c) = NaN; // below the diagonal of a row-major matrix: not read
        JacobiIteration(destroyed.Data(), values.data(), Vt.Data(), n, 20, work.data());
        for (const bool descending : {true, false}) {
            SortEigenV(values.data(), Vt.Data(), n, descending);
            EXPECT_TRUE(descending ? std::is_sorted(values.rbegin(), values.rend())
                                   : std::is_sorted(values.begin(), values.end()));
            const Matrix AV = A * Vt.Transposed(), VtV = Vt * Vt.Transposed();
            for (unsigned k = 0; k < A.Cols(); ++k)
                for (unsigned r = 0; r < A.Rows(); ++r) {
                    EXPECT_NEAR(AV(r, k), values[k] * Vt(k, r), 1e-10);
                    EXPECT_NEAR(VtV(r, k), r == k ? 1 : 0, 1e-14);
                }
        }
    }
}

TEST(JacobiIteration, StopsByItsRuleAndSortingKeepsPairsAndTies)
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

    double values[4] = {1, 3, 1, 2}, columns[16];
    for (int i = 0; i < 16; ++i) columns[i] = i % 4;
    SortEigenV(values, columns, 4, true);
    EXPECT_THAT(values, testing::ElementsAre(3, 2, 1, 1));
    EXPECT_THAT(columns, testing::ElementsAre(1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2));
}

// By its definition: the rows of unit length are fitted to the basis vectors.
TEST(Orthonormalize, RowsBecomeTheColumnsOfARotation)
{
    Random random;
    Doubles basis, rows;
    for (int i = 0; i < 50; ++i, basis.clear(), rows.clear()) {
        double m[3][3];
        for (const Vector& axis : Axes) {
            const Vector row = random.Direction();
            for (unsigned c = 0; c < 3; ++c) m[basis.size() / 3][c] = row[c] * std::exp(random(-5, 5));
            Append(basis, axis);
        }
        for (auto& row : m)
            for (const double e : row) rows.push_back(e / std::hypot(row[0], row[1], row[2]));
        const Fit expected = FitPoints(basis, rows);
        EXPECT_TRUE(Orthonormalize(m) && expected.ok);
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) EXPECT_NEAR(m[r][c], expected.R[r][c], 1e-12);
    }
    double zeroRow[3][3] = {{1, 0, 0}, {0, 0, 0}, {0, 0, 1}};
    EXPECT_FALSE(Orthonormalize(zeroRow));
    EXPECT_THAT(zeroRow[0], testing::ElementsAre(1, 0, 0));
}

/// Points on an ellipsoid with its normals.
struct Surface {
    Doubles points, normals;
};

Surface Ellipsoid(Random& random, int n, const Vector& centre)
{
    Surface surface;
    for (int i = 0; i < n; ++i) {
        const Vector u = random.Direction(), g = {u[0] / 50, u[1] / 30, u[2] / 20};
        Append(surface.points, Plus(centre, {50 * u[0], 30 * u[1], 20 * u[2]}));
        Append(surface.normals, Times(g, 1 / std::sqrt(Dot(g, g))));
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
                const Vector s = At(src, i), normal = At(dst.normals, i);
                const Vector p = Plus(Plus(s, Cross(omega, s)), Plus(t, Times(At(dst.points, i), -1)));
                const double r = (w == nullptr ? 1 : w[oneWeight ? 0 : i]) * Dot(p, normal);
                byOmega = Plus(byOmega, Times(Cross(s, normal), r));
                byT = Plus(byT, Times(normal, r));
            }
            EXPECT_LT(Dot(byOmega, byOmega) + Dot(byT, byT), 1e-18);
        }
}

// Exactly singular systems leave pivots of rounding noise, not zeros: any direction, size and place must be caught.
TEST(PointToPlane, SingularSystemsFailAndWriteNothing)
{
    Random random;
    Vector omega, t;
    const auto update = [&](const Doubles& src, const Doubles& normals, int n) {
        omega[0] = t[0] = Untouched;
        const bool ok =
            PointToPlaneUpdateLS(src.data(), src.data(), normals.data(), nullptr, omega.data(), t.data(), n, true);
        EXPECT_EQ(ok, omega[0] != Untouched && t[0] != Untouched);
        return ok;
    };
    for (int i = 0; i < 300; ++i) {
        const int n = i % 3 == 0 ? 10 : 500;
        const double far = std::pow(10, random(0, 6));
        Surface s = Ellipsoid(random, n, {random(-far, far), random(-far, far), random(-far, far)});
        EXPECT_TRUE(update(s.points, s.normals, n));
        EXPECT_FALSE(update(s.points, s.normals, 5));
        Doubles broken = s.points;
        broken[7] = i % 2 == 0 ? NaN : Inf;
        EXPECT_FALSE(update(broken, s.normals, n));
        s.normals.clear();
        for (const Vector direction = random.Direction(); s.normals.size() < s.points.size();)
            Append(s.normals, direction);
        EXPECT_FALSE(update(s.points, s.normals, n)) << i;
        EXPECT_FALSE(
            PointToPlaneUpdate(s.points.data(), s.points.data(), s.normals.data(), nullptr, omega.data(), t.data(), n));
        EXPECT_EQ(omega[0], Untouched);
    }

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

TEST(PointToPlaneUpdate, FindsLargeMotionsAnywhere)
{
    Random random;
    for (const double far : {0.0, 1e3, 1e6})
        for (int i = 0; i < 20; ++i) {
            const int n = 100;
            const Vector centre = {far, -far, far}, shift = {3, -2, 4};
            const Surface dst = Ellipsoid(random, n, centre);
            const Quaternion q = Quaternion::FromAxisAngle(random.Direction(), 0.3);
            Doubles src; // dst = q·src + shift, about the centre
            for (std::size_t k = 0; k < n; ++k)
                Append(src, Plus(centre, (~q).Rotate(Plus(At(dst.points, k), Times(Plus(centre, shift), -1)))));
            Vector angles, t;
            ASSERT_TRUE(PointToPlaneUpdate(src.data(), dst.points.data(), dst.normals.data(), nullptr, angles.data(),
                                           t.data(), n));
            const Quaternion found(angles[0], angles[1], angles[2]);
            EXPECT_LT(found.Distance(q), 1e-7); // acos near 1
            const Vector moved = Plus(found.Rotate(centre), t);
            for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(moved[k], centre[k] + shift[k], 1e-9 * (1 + far)) << far;
        }
}

// Repeated fits of noisy points must scatter as the covariance says; also the unit and order of its entries.
TEST(PointToPlaneCovariance, AgreesWithTheScatterOfRepeatedFits)
{
    Random random;
    const int n = 60, repeats = 2000;
    const Surface dst = Ellipsoid(random, n, {20, 0, -10});
    const double pose[6] = {0.4, -0.7, 0.2, 5, -3, 1}, sigma = 0.05;
    const Quaternion back = ~Quaternion(pose[0], pose[1], pose[2]);
    Doubles weights;
    for (int i = 0; i < n; ++i) weights.push_back(i % 2 == 0 ? 40.0 : 10.0); // every second distance twice as noisy
    double scatter[6][6] = {}, estimate[6][6] = {};
    for (int repeat = 0; repeat < repeats; ++repeat) {
        Doubles src;
        for (std::size_t i = 0; i < n; ++i) {
            const Vector noise =
                Times(At(dst.normals, i), sigma * (i % 2 == 0 ? 1 : 2) * random.normal(random.twister));
            Append(src, back.Rotate(Plus(Plus(At(dst.points, i), {-pose[3], -pose[4], -pose[5]}), noise)));
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
        for (int c = 0; c < 6; ++c) // correlation scale; sampling error about 1 / √2000
            EXPECT_NEAR(scatter[r][c], estimate[r][c], 0.1 * std::sqrt(estimate[r][r] * estimate[c][c])) << r << c;
}

} // namespace
