#include "VoAlgorithms/verdict/localframes.h"

namespace prereg {
namespace {

using Position = std::array<double, 3>;

/// Replaces the translation t by t + R·into + onto.
VoAlgo::CbMatrix4Rd Shifted(VoAlgo::CbMatrix4Rd pose, const Position& into, const Position& onto)
{
    for (unsigned r = 0; r < 3; ++r) {
        const double turned = pose(r, 0) * into[0] + pose(r, 1) * into[1] + pose(r, 2) * into[2];
        pose(r, 3) += turned + onto[r];
    }
    return pose;
}

Position Negated(const Position& p)
{
    return {-p[0], -p[1], -p[2]};
}

/// The pose with a rotation that is orthonormal in double precision: far from 0, the float's error would move points.
VoAlgo::CbMatrix4Rd InDouble(const VoAlgo::CTrafo& pose)
{
    VoAlgo::CbMatrix4Rd m = pose;
    const VoAlgo::Quaternion q = pose.GetQuaternion().GetNormalized();
    const double rotation[3][3] = {
        {1.0 - 2.0 * (q.y * q.y + q.z * q.z), 2.0 * (q.x * q.y - q.w * q.z), 2.0 * (q.x * q.z + q.w * q.y)},
        {2.0 * (q.x * q.y + q.w * q.z), 1.0 - 2.0 * (q.x * q.x + q.z * q.z), 2.0 * (q.y * q.z - q.w * q.x)},
        {2.0 * (q.x * q.z - q.w * q.y), 2.0 * (q.y * q.z + q.w * q.x), 1.0 - 2.0 * (q.x * q.x + q.y * q.y)}};
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 3; ++c) m(r, c) = rotation[r][c];
    return m;
}

} // namespace

VoAlgo::CbMatrix4Rd PoseOfCoordinates(const VoAlgo::CTrafo& local, const Position& fixOrigin, const Position& fltOrigin)
{
    return Shifted(InDouble(local), Negated(fltOrigin), fixOrigin);
}

VoAlgo::CTrafo LocalPose(const VoAlgo::CbMatrix4Rd& pose, const Position& fixOrigin, const Position& fltOrigin)
{
    return Shifted(pose, fltOrigin, Negated(fixOrigin));
}

} // namespace prereg
