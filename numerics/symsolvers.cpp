#include "VoAlgorithms/numerics/symsolvers.h"

#include "numerics/detail_rotation.h"
#include "numerics/twofoldsum.h"
#include "platform/channels.h"
#include "platform/finite.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <utility>

// Procrustes, after B. K. P. Horn, J. Opt. Soc. Am. A 4 (1987) 629–642:
// 1. weighted centroids cA and cB; cross-covariance S of the points about them, unweighted;
// 2. the symmetric 4×4 matrix N(S), whose eigenvector of the largest eigenvalue is the quaternion of the best rotation;
// 3. Jacobi iteration on N, scaled by a power of two where its entries are very small or very large;
// 4. eigenvalues corrected to the last bit, so that a tie (collinear or identical points) shows as one;
// 5. quaternion with w ≥ 0, rotation matrix, t = cB − R·cA.
// JacobiIteration: H. Rutishauser, Numer. Math. 9 (1966) 1–10.

namespace VoAlgo::symsolvers {

namespace {

/// Σwᵢpᵢ ÷ Σwᵢ, summed relative to the first point: coordinates that all points share come out exactly, and with them
/// the ties of degenerate points.
void Centroid(const double* points, const double* weights, unsigned n, double (&centroid)[3])
{
    double sum[3] = {}, sumOfWeights = 0;
    for (unsigned i = 0; i < n; ++i) {
        const double* p = points + std::size_t{3} * i;
        const double weight = weights != nullptr ? weights[i] : 1.0;
        sumOfWeights += weight;
        for (unsigned k = 0; k < 3; ++k) sum[k] += weight * (p[k] - points[k]);
    }
    for (unsigned k = 0; k < 3; ++k) centroid[k] = points[k] + sum[k] / sumOfWeights;
}

/// S[r][c] = Σ (aᵢ[r] − cA[r])·(bᵢ[c] − cB[c]). Deliberate: unweighted, the weights count in the centroids only.
void CrossCovariance(const double* a, const double* b, const double (&cA)[3], const double (&cB)[3], unsigned n,
                     double (&S)[3][3])
{
    for (std::size_t i = 0; i < std::size_t{3} * n; i += 3)
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) S[r][c] += (a[i + r] - cA[r]) * (b[i + c] - cB[c]);
}

/// The symmetric matrix whose largest eigenvalue belongs to the quaternion of the best rotation.
void QuaternionMatrix(const double (&S)[3][3], double (&N)[4][4])
{
    N[0][0] = S[0][0] + S[1][1] + S[2][2];
    N[1][1] = S[0][0] - S[1][1] - S[2][2];
    N[2][2] = -S[0][0] + S[1][1] - S[2][2];
    N[3][3] = -S[0][0] - S[1][1] + S[2][2];
    N[0][1] = N[1][0] = S[1][2] - S[2][1];
    N[0][2] = N[2][0] = S[2][0] - S[0][2];
    N[0][3] = N[3][0] = S[0][1] - S[1][0];
    N[1][2] = N[2][1] = S[0][1] + S[1][0];
    N[1][3] = N[3][1] = S[2][0] + S[0][2];
    N[2][3] = N[3][2] = S[1][2] + S[2][1];
}

/// Brings N to where the stop test of JacobiIteration works, and returns the exponent of the power of two by which N
/// was multiplied. That test is absolute: entries of 1e-14 pass it before the first rotation, and the squares of
/// entries above 1e154 overflow. Within the band in which it works, nothing changes.
int ScaleForIteration(double (&N)[4][4])
{
    constexpr int UnderflowExponent = -1000; // below, the products in S have lost digits: as good as identical points
    constexpr int LowestExponent = -20; // the iteration then stops at off-diagonal elements below 2e-8 of the largest
    constexpr int HighestExponent = 500;
    constexpr int TargetExponent = 10; // below 2e-17 of the largest
    double largest = 0;
    for (const auto& row : N)
        for (const double e : row) largest = std::max(largest, std::abs(e));
    const int exponent = largest == 0 ? INT_MIN : std::ilogb(largest);
    if (exponent >= LowestExponent && exponent < HighestExponent) return 0;
    const int shift = exponent < UnderflowExponent ? 0 : TargetExponent - exponent;
    for (auto& row : N)
        for (double& e : row) e = exponent < UnderflowExponent ? 0.0 : std::ldexp(e, shift);
    return shift;
}

/// Row · v − λ·v[i] in about twice the working precision; v is column k of vectors.
double Residual(const double (&row)[4], const double (&vectors)[4][4], int k, double lambda, int i)
{
    TwofoldSum sum(0);
    for (int j = 0; j < 4; ++j) sum.Add(row[j], vectors[j][k]);
    sum.Add(-lambda, vectors[i][k]);
    return sum.Value();
}

/// Replaces λ by the Rayleigh quotient λ + vᵀ·(N·v − λ·v), which is exact to the last bit when v is accurate to half
/// the digits: eigenvalues that are equal on paper then compare equal. Those of the iteration differ in the last bits
/// for most lines in space.
void PolishEigenvalues(const double (&N)[4][4], const double (&vectors)[4][4], double (&lambda)[4])
{
    for (int k = 0; k < 4; ++k) {
        double change = 0;
        for (int i = 0; i < 4; ++i) change += vectors[i][k] * Residual(N[i], vectors, k, lambda[k], i);
        lambda[k] += change;
    }
}

/// Rotates rows and columns p < q of the matrix so that the element (p, q) vanishes. `diagonal` holds the current
/// diagonal, `change` accumulates its changes within the sweep.
void Rotate(double* matrix, double* diagonal, double* eigenvectors, double* change, int n, int p, int q)
{
    double& apq = matrix[p * n + q];
    const double h = diagonal[q] - diagonal[p];
    double t = apq / h; // tangent of the angle, its limit for a small one
    if (std::abs(h) + 10.0 * std::abs(apq) != std::abs(h)) {
        const double theta = 0.5 * h / apq;
        t = 1.0 / (std::abs(theta) + std::sqrt(1.0 + theta * theta));
        if (theta < 0) t = -t;
    }
    const double c = 1.0 / std::sqrt(1.0 + t * t);
    const double s = t * c;
    const double tau = s / (1.0 + c);
    const double shift = t * apq;
    diagonal[p] -= shift;
    diagonal[q] += shift;
    change[p] -= shift;
    change[q] += shift;
    apq = 0;

    const auto turn = [s, tau](double& g, double& f) {
        const double oldG = g, oldF = f;
        g = oldG - s * (oldF + oldG * tau);
        f = oldF + s * (oldG - oldF * tau);
    };
    for (int j = 0; j < p; ++j) turn(matrix[j * n + p], matrix[j * n + q]);
    for (int j = p + 1; j < q; ++j) turn(matrix[p * n + j], matrix[j * n + q]);
    for (int j = q + 1; j < n; ++j) turn(matrix[p * n + j], matrix[q * n + j]);
    for (int j = 0; j < n; ++j) turn(eigenvectors[j * n + p], eigenvectors[j * n + q]);
}

double OffDiagonalSumOfSquares(const double* matrix, int n)
{
    double sum = 0;
    for (int p = 0; p < n; ++p)
        for (int q = p + 1; q < n; ++q) sum += matrix[p * n + q] * matrix[p * n + q];
    return sum;
}

} // namespace

bool Procrustes(const double* a, const double* b, const double* weights, double* quaternion, double (*rotation)[3],
                double* translation, unsigned n)
{
    if (n < 3 || a == nullptr || b == nullptr) return false;

    double cA[3], cB[3], S[3][3] = {}, N[4][4];
    Centroid(a, weights, n, cA);
    Centroid(b, weights, n, cB);
    CrossCovariance(a, b, cA, cB, n, S);
    QuaternionMatrix(S, N);
    if (!AllFinite(&N[0][0], 16)) {
        VOALGO_LOG(VoAlgo::channels::PreRegistration(), Error, "VoAlgo::symsolvers::Procrustes",
                   L"Inf/NaN in Procrustes input; M=%u", n);
        return false;
    }

    const int exponent = ScaleForIteration(N);
    double destroyed[4][4], lambda[4], vectors[4][4], work[4];
    std::copy(&N[0][0], &N[0][0] + 16, &destroyed[0][0]);
    JacobiIteration(&destroyed[0][0], lambda, &vectors[0][0], 4, 20, work);
    PolishEigenvalues(N, vectors, lambda);
    const auto best = std::max_element(lambda, lambda + 4) - lambda; // the first of equal ones
    const bool unique = std::count(lambda, lambda + 4, lambda[best]) == 1;
    if (!unique) {
        VOALGO_LOG(VoAlgo::channels::PreRegistration(), Trace, "VoAlgo::symsolvers::Procrustes",
                   L"Ambiguous Procrustes result; M=%u, lambda = [%g,%g,%g,%g]; duplicate or degenerate points", n,
                   std::ldexp(lambda[0], -exponent), std::ldexp(lambda[1], -exponent), std::ldexp(lambda[2], -exponent),
                   std::ldexp(lambda[3], -exponent));
    }

    const double w = vectors[0][best], x = vectors[1][best], y = vectors[2][best], z = vectors[3][best];
    double scale = 1.0 / std::sqrt(w * w + x * x + y * y + z * z);
    if (w < 0) scale = -scale;
    const double q[4] = {w * scale, x * scale, y * scale, z * scale};
    std::copy(q, q + 4, quaternion);
    detail::RotationOfQuaternion(q[0], q[1], q[2], q[3], rotation);
    const auto moved = detail::Multiply(rotation, {cA[0], cA[1], cA[2]});
    for (unsigned k = 0; k < 3; ++k) translation[k] = cB[k] - moved[k];
    return unique;
}

void JacobiIteration(double* matrix, double* eigenvalues, double* eigenvectors, int n, int maxSweeps, double* work)
{
    // The diagonal of `matrix` keeps its values from the start of a sweep; the changes of the sweep are summed
    // separately and added at its end.
    double* change = work;
    std::fill(eigenvectors, eigenvectors + std::ptrdiff_t{n} * n, 0.0);
    for (int p = 0; p < n; ++p) {
        eigenvectors[p * n + p] = 1.0;
        eigenvalues[p] = matrix[p * n + p];
        change[p] = 0.0;
    }
    for (int sweep = 0; sweep < maxSweeps; ++sweep) {
        const double threshold = std::sqrt(OffDiagonalSumOfSquares(matrix, n)) / (4.0 * n);
        if (!(threshold >= 1e-15)) break; // also for NaN
        for (int p = 0; p < n; ++p) {
            for (int q = p + 1; q < n; ++q) {
                if (std::abs(matrix[p * n + q]) >= threshold)
                    Rotate(matrix, eigenvalues, eigenvectors, change, n, p, q);
            }
        }
        for (int p = 0; p < n; ++p) {
            matrix[p * n + p] += change[p];
            eigenvalues[p] = matrix[p * n + p];
            change[p] = 0.0;
        }
    }
}

void SortEigenV(double* eigenvalues, double* eigenvectors, int n, bool descending)
{
    const auto before = [descending](double a, double b) { return descending ? a > b : a < b; };
    for (int i = 1; i < n; ++i) {
        for (int k = i; k > 0 && before(eigenvalues[k], eigenvalues[k - 1]); --k) {
            std::swap(eigenvalues[k], eigenvalues[k - 1]);
            for (int row = 0; row < n; ++row) std::swap(eigenvectors[row * n + k], eigenvectors[row * n + k - 1]);
        }
    }
}

bool Orthonormalize(double (*m)[3])
{
    constexpr double Basis[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    double rows[9];
    for (int r = 0; r < 3; ++r) {
        const double norm = std::sqrt(m[r][0] * m[r][0] + m[r][1] * m[r][1] + m[r][2] * m[r][2]);
        for (int c = 0; c < 3; ++c) rows[3 * r + c] = m[r][c] / norm;
    }
    double quaternion[4], translation[3];
    return Procrustes(Basis, rows, nullptr, quaternion, m, translation, 3);
}

} // namespace VoAlgo::symsolvers
