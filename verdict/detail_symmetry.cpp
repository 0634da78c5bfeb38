#include "verdict/detail_symmetry.h"

#include "numerics/principalaxes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

namespace prereg::detail {
namespace {

using VoAlgo::CTrafo;
using Vec3 = kdtree::Vector<3>;

/// The rotation by an angle about an axis through a point.
CTrafo RotationAbout(const Vec3& axis, double angle, const Vec3& centre)
{
    const double s = std::sin(0.5 * angle);
    VoAlgo::Quaternion q;
    q.w = std::cos(0.5 * angle);
    q.x = s * static_cast<double>(axis.x);
    q.y = s * static_cast<double>(axis.y);
    q.z = s * static_cast<double>(axis.z);
    const CTrafo turn(q, Vec3());
    return {q, centre - turn * centre};
}

/// Three perpendicular directions; the first one maximises the sum of (n · a)⁴ over the normals, the second one does so
/// among those perpendicular to it. By the tensor power method.
std::array<Vec3, 3> AxesOfNormals(const std::vector<Vec3>& normals)
{
    constexpr int Iterations = 30;
    const auto maximise = [&](Vec3 a, const Vec3& perpendicularTo) {
        for (int i = 0; i < Iterations; ++i) {
            Vec3 sum;
            for (const Vec3& n : normals) {
                const float c = n.Dot(a);
                sum += n * (c * c * c);
            }
            sum = sum - perpendicularTo * sum.Dot(perpendicularTo);
            if (!(sum.NormSq() > 0.0F)) break;
            a = sum / sum.Norm();
        }
        return a;
    };
    const Vec3 first = maximise(Vec3(0.64F, 0.6F, 0.48F), Vec3());
    const Vec3 start = first.Cross(std::fabs(first.x) < 0.6F ? Vec3(1, 0, 0) : Vec3(0, 1, 0));
    const Vec3 second = maximise(start / start.Norm(), first);
    return {first, second, first.Cross(second)};
}

Vec3 ToVector(const auto& v)
{
    return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

} // namespace

std::vector<CTrafo> LikelySymmetries(const CPointSet& scan)
{
    constexpr double FullTurn = 6.283185307179586;
    constexpr double Isotropic = 0.9; // share of the largest variance that the smallest one reaches
    const std::vector<Vec3>& points = scan.GetPoints();
    if (points.empty()) return {};
    const VoAlgo::PrincipalAxes axes =
        VoAlgo::ComputePrincipalAxes(points.size(), [&](std::size_t i) -> const Vec3& { return points[i]; });
    std::array<Vec3, 3> directions = {ToVector(axes.axis[0]), ToVector(axes.axis[1]), ToVector(axes.axis[2])};
    const auto [least, most] = std::minmax_element(std::begin(axes.variance), std::end(axes.variance));
    if (*least > Isotropic * *most) directions = AxesOfNormals(scan.GetNormals());
    std::vector<CTrafo> symmetries;
    for (const Vec3& axis : directions) {
        symmetries.push_back(RotationAbout(axis, FullTurn / 2.0, ToVector(axes.mean)));
        for (const double angle : {FullTurn / 3.0, FullTurn / 4.0})
            for (const double sign : {1.0, -1.0})
                symmetries.push_back(RotationAbout(axis, sign * angle, ToVector(axes.mean)));
    }
    return symmetries;
}

} // namespace prereg::detail
