#include "VoAlgorithms/numerics/symsolvers.h"

#include "VoAlgorithms/numerics/quaternion.h"
#include "numerics/detail_cholesky.h"
#include "numerics/detail_rotation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

namespace VoAlgo::symsolvers {

namespace {

/// A·x = g for six unknowns; of the symmetric A the lower triangle.
struct NormalEquations {
    double A[6][6] = {};
    double g[6] = {};

    /// Adds w·J·Jᵀ and w·r·J.
    void Add(const double (&J)[6], double r, double w)
    {
        for (int row = 0; row < 6; ++row) {
            const double wJ = w * J[row];
            for (int col = 0; col <= row; ++col) A[row][col] += wJ * J[col];
            g[row] += wJ * r;
        }
    }

    /// Factors A and replaces g by the solution; false when A is not positive definite or the solution not finite.
    bool Solve()
    {
        if (!detail::CholeskyFactor(A)) return false;
        detail::CholeskySolve(A, g);
        return std::all_of(g, g + 6, [](double v) { return std::isfinite(v); });
    }
};

using Vector3d = std::array<double, 3>;

Vector3d Cross(const Vector3d& a, const double* b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// One pair of the small-angle problem: J = (s × n, n), r = (d − s)·n.
void AddPair(NormalEquations& equations, const double* s, const double* d, const double* n, double w)
{
    const double r = (d[0] - s[0]) * n[0] + (d[1] - s[1]) * n[1] + (d[2] - s[2]) * n[2];
    const double J[6] = {
        n[2] * s[1] - n[1] * s[2], n[0] * s[2] - n[2] * s[0], n[1] * s[0] - n[0] * s[1], n[0], n[1], n[2]};
    equations.Add(J, r, w);
}

double WeightOf(const double* weights, int i)
{
    return weights != nullptr ? weights[i] : 1.0;
}

/// The mean of n points and, about it, the largest coordinate.
std::pair<Vector3d, double> CentreAndExtent(const double* points, int n)
{
    Vector3d centre{};
    for (int i = 0; i < 3 * n; ++i) centre[static_cast<unsigned>(i % 3)] += points[i];
    for (double& c : centre) c /= n;
    double extent = 0;
    for (int i = 0; i < 3 * n; ++i)
        extent = std::max(extent, std::abs(points[i] - centre[static_cast<unsigned>(i % 3)]));
    return {centre, extent};
}

Vector3d Moved(const double (*R)[3], const double* p, const Vector3d& centre, const Vector3d& t)
{
    const Vector3d rotated = detail::Multiply(R, {p[0] - centre[0], p[1] - centre[1], p[2] - centre[2]});
    return {rotated[0] + t[0], rotated[1] + t[1], rotated[2] + t[2]};
}

bool AllWithin(const double* values, int n, double limit)
{
    return std::all_of(values, values + n, [limit](double v) { return std::abs(v) <= limit; });
}

} // namespace

bool PointToPlaneUpdateLS(const double* src, const double* dst, const double* normals, const double* weights,
                          double* rotationVector, double* translation, int n, bool oneWeight)
{
    if (src == nullptr || dst == nullptr || normals == nullptr || n < 6) return false;
    NormalEquations equations;
    for (int i = 0; i < n; ++i) {
        const std::ptrdiff_t at = std::ptrdiff_t{3} * i;
        AddPair(equations, src + at, dst + at, normals + at, WeightOf(weights, oneWeight ? 0 : i));
    }
    if (!equations.Solve()) return false;
    std::copy(equations.g, equations.g + 3, rotationVector);
    std::copy(equations.g + 3, equations.g + 6, translation);
    return true;
}

bool PointToPlaneUpdate(const double* src, const double* dst, const double* normals, const double* weights,
                        double* eulerAngles, double* translation, int n)
{
    if (src == nullptr || dst == nullptr || normals == nullptr || n < 6) return false;
    // About the centre of dst rotation and translation separate well, wherever the points lie.
    const auto [centre, extent] = CentreAndExtent(dst, n);
    Quaternion rotation;
    Vector3d t{};
    double R[3][3];
    for (int step = 0; step < 50; ++step) {
        detail::RotationOfQuaternion(rotation.w, rotation.x, rotation.y, rotation.z, R);
        NormalEquations equations;
        for (int i = 0; i < n; ++i) {
            const std::ptrdiff_t at = std::ptrdiff_t{3} * i;
            const Vector3d p = Moved(R, src + at, centre, t);
            const double d[3] = {dst[at] - centre[0], dst[at + 1] - centre[1], dst[at + 2] - centre[2]};
            AddPair(equations, p.data(), d, normals + at, WeightOf(weights, i));
        }
        if (!equations.Solve()) return false;
        const double* x = equations.g;
        // To first order the rotation by the vector (x₀, x₁, x₂).
        const Quaternion turn = Quaternion(1.0, x[0] / 2, x[1] / 2, x[2] / 2).GetNormalized();
        rotation = (turn * rotation).GetNormalized();
        t = turn.Rotate(t);
        for (unsigned k = 0; k < 3; ++k) t[k] += x[3 + k];
        if (!AllWithin(x, 3, 1e-10) || !AllWithin(x + 3, 3, 1e-10 * extent)) continue;

        const Vector3d angles = rotation.GetEulerAngles();
        const Vector3d turnedCentre = rotation.Rotate(centre);
        std::copy(angles.begin(), angles.end(), eulerAngles);
        for (unsigned k = 0; k < 3; ++k) translation[k] = t[k] + (centre[k] - turnedCentre[k]);
        return true;
    }
    return false;
}

bool PointToPlaneCovariance(const double* src, const double* dst, const double* normals, const double* weights,
                            const double* pose, int n, double* covariance)
{
    if (src == nullptr || dst == nullptr || normals == nullptr || pose == nullptr || n < 7) return false;
    // A small change of an angle turns the moved points about its axis: γ about z, β about Rz·y, α about Rz·Ry·x.
    const double cb = std::cos(pose[1]), sb = std::sin(pose[1]), cc = std::cos(pose[2]), sc = std::sin(pose[2]);
    const double axes[3][3] = {{cc * cb, sc * cb, -sb}, {-sc, cc, 0}, {0, 0, 1}};
    const Quaternion rotation(pose[0], pose[1], pose[2]);
    double R[3][3];
    detail::RotationOfQuaternion(rotation.w, rotation.x, rotation.y, rotation.z, R);

    NormalEquations equations;
    double sumOfSquares = 0;
    for (int i = 0; i < n; ++i) {
        const double *s = src + std::ptrdiff_t{3} * i, *d = dst + std::ptrdiff_t{3} * i;
        const double* normal = normals + std::ptrdiff_t{3} * i;
        const Vector3d turned = detail::Multiply(R, {s[0], s[1], s[2]});
        double r = 0;
        for (unsigned k = 0; k < 3; ++k) r += (turned[k] + pose[3 + k] - d[k]) * normal[k];
        const Vector3d moments = detail::Multiply(axes, Cross(turned, normal));
        const double J[6] = {moments[0], moments[1], moments[2], normal[0], normal[1], normal[2]};
        const double w = WeightOf(weights, i);
        equations.Add(J, r, w);
        sumOfSquares += w * r * r;
    }
    const double variance = sumOfSquares / (n - 6);
    if (!detail::CholeskyFactor(equations.A) || !std::isfinite(variance)) return false;
    for (int col = 0; col < 6; ++col) {
        double x[6] = {};
        x[col] = variance;
        detail::CholeskySolve(equations.A, x);
        for (int row = col; row < 6; ++row) covariance[6 * row + col] = covariance[6 * col + row] = x[row];
    }
    return true;
}

} // namespace VoAlgo::symsolvers
