#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <array>
#include <cmath>
#include <random>

namespace voalgo {

/// A right-handed orthonormal frame in double precision: the pose of a scanner or of an object.
struct Frame {
    using Axis = std::array<double, 3>;

    Axis axis[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}; ///< unit length, in world coordinates
    Axis origin = {0, 0, 0};                          ///< in world coordinates

    /// Maps a direction from this frame to the world.
    [[nodiscard]] Axis Turn(const Axis& local) const
    {
        Axis world{};
        for (unsigned i = 0; i < 3; ++i)
            world[i] = axis[0][i] * local[0] + axis[1][i] * local[1] + axis[2][i] * local[2];
        return world;
    }
    /// Maps a point from this frame to the world.
    [[nodiscard]] Axis ToWorld(const Axis& local) const
    {
        Axis world = Turn(local);
        for (unsigned i = 0; i < 3; ++i) world[i] += origin[i];
        return world;
    }
    /// Maps a direction from the world to this frame.
    [[nodiscard]] Axis TurnBack(const Axis& world) const
    {
        Axis local{};
        for (unsigned k = 0; k < 3; ++k)
            local[k] = axis[k][0] * world[0] + axis[k][1] * world[1] + axis[k][2] * world[2];
        return local;
    }
    /// Maps a point from the world to this frame.
    [[nodiscard]] Axis ToLocal(const Axis& world) const
    {
        return TurnBack({world[0] - origin[0], world[1] - origin[1], world[2] - origin[2]});
    }
};

inline Frame::Axis ToDouble(const kdtree::Vector<3>& v)
{
    return {v.x, v.y, v.z};
}

inline kdtree::Vector<3> ToFloat(const Frame::Axis& v)
{
    return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

inline Frame::Axis Cross(const Frame::Axis& a, const Frame::Axis& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline double Dot(const Frame::Axis& a, const Frame::Axis& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline Frame::Axis Normalised(const Frame::Axis& a)
{
    const double length = std::sqrt(Dot(a, a));
    return {a[0] / length, a[1] / length, a[2] / length};
}

/// A random direction; all are equally likely.
inline Frame::Axis RandomDirection(std::mt19937& engine)
{
    std::normal_distribution<double> normal;
    const double x = normal(engine), y = normal(engine), z = normal(engine);
    return Normalised({x, y, z});
}

/// A frame at the origin whose axis 2 is the unit vector `direction`, rotated about it by `roll` (rad).
inline Frame FrameAlong(const Frame::Axis& direction, double roll)
{
    const Frame::Axis helper = std::abs(direction[2]) < 0.9 ? Frame::Axis{0, 0, 1} : Frame::Axis{1, 0, 0};
    const Frame::Axis u = Normalised(Cross(helper, direction)), v = Cross(direction, u);
    const double c = std::cos(roll), s = std::sin(roll);
    Frame frame;
    for (unsigned i = 0; i < 3; ++i) {
        frame.axis[0][i] = c * u[i] + s * v[i];
        frame.axis[1][i] = c * v[i] - s * u[i];
    }
    frame.axis[2] = direction;
    return frame;
}

} // namespace voalgo
