#pragma once

#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/numerics/ctrafo.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace test_support {

using Vec3 = kdtree::Vector<3>;

struct Cloud {
    std::vector<Vec3> points;
    std::vector<Vec3> normals;

    void Add(const Vec3& point, const Vec3& normal)
    {
        points.push_back(point);
        normals.push_back(normal);
    }
    [[nodiscard]] std::size_t Size() const { return points.size(); }
};

template <class T>
bool SameBits(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

/// Seeded random values for tests: std:: distributions over one engine.
class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}

    float Uniform(float low, float high) { return std::uniform_real_distribution<float>(low, high)(engine_); }
    std::size_t Index(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(engine_); }
    Vec3 InCube(float half) { return {Uniform(-half, half), Uniform(-half, half), Uniform(-half, half)}; }
    Vec3 Direction()
    {
        while (true) {
            const Vec3 v = InCube(1.0F);
            if (v.NormSq() <= 1.0F && v.NormSq() > 0.01F) return v / v.Norm();
        }
    }
    VoAlgo::CTrafo Pose(float angle, float shift)
    {
        const Vec3 axis = Direction();
        const auto q = VoAlgo::Quaternion::FromAxisAngle({axis.x, axis.y, axis.z}, static_cast<double>(angle));
        return {q, shift * Direction()};
    }
    std::mt19937& Engine() { return engine_; }

private:
    std::mt19937 engine_;
};

inline Cloud Moved(const Cloud& cloud, const VoAlgo::CTrafo& pose)
{
    Cloud moved;
    for (std::size_t i = 0; i < cloud.Size(); ++i) moved.Add(pose * cloud.points[i], pose.Rotate(cloud.normals[i]));
    return moved;
}

/// n points spread evenly over the unit sphere (Fibonacci spiral), turned at random; calls visit(direction).
template <class Visit>
void ForSphere(std::size_t n, unsigned seed, Visit visit)
{
    const VoAlgo::CTrafo turn = Random(seed).Pose(1.0F + static_cast<float>(seed), 0.0F);
    for (std::size_t i = 0; i < n; ++i) {
        const double z = 1.0 - (2.0 * static_cast<double>(i) + 1.0) / static_cast<double>(n);
        const double angle = 2.399963229728653 * static_cast<double>(i);
        const double r = std::sqrt(1.0 - z * z);
        visit(turn * Vec3(static_cast<float>(r * std::cos(angle)), static_cast<float>(r * std::sin(angle)),
                          static_cast<float>(z)));
    }
}

inline Cloud Sphere(std::size_t n, float radius, unsigned seed = 1)
{
    Cloud cloud;
    ForSphere(n, seed, [&](const Vec3& u) { cloud.Add(radius * u, u); });
    return cloud;
}

/// A flat square grid z = 0 of side×side points around the origin.
inline Cloud Plane(int side, float spacing)
{
    Cloud cloud;
    for (int i = 0; i < side; ++i)
        for (int k = 0; k < side; ++k)
            cloud.Add({spacing * (static_cast<float>(i) - 0.5F * static_cast<float>(side - 1)),
                       spacing * (static_cast<float>(k) - 0.5F * static_cast<float>(side - 1)), 0.0F},
                      {0.0F, 0.0F, 1.0F});
    return cloud;
}

/// A closed free-form body of about 10 mm radius: a star-shaped surface with `shape`-dependent bumps, exact normals.
/// `samplingSeed` places the samples: two seeds sample the same body at different points.
inline Cloud Body(std::size_t n, unsigned shape, unsigned samplingSeed,
                  const std::function<bool(const Vec3&)>& keep = nullptr)
{
    constexpr float Radius = 10.0F;
    struct Bump {
        Vec3 at;
        float height, width;
    };
    Random random(shape);
    std::vector<Bump> bumps;
    for (int i = 0; i < 14; ++i)
        bumps.push_back({random.Direction(), random.Uniform(-0.15F, 0.3F), random.Uniform(0.02F, 0.12F)});
    Cloud cloud;
    ForSphere(n, samplingSeed, [&](const Vec3& u) {
        float r = Radius;
        Vec3 gradient; // of r by direction
        for (const Bump& b : bumps) {
            const float h = Radius * b.height * std::exp((u.Dot(b.at) - 1.0F) / b.width);
            r += h;
            gradient += (h / b.width) * b.at;
        }
        const Vec3 outwards = u - (gradient - u * gradient.Dot(u)) / r;
        const Vec3 p = r * u;
        if (!keep || keep(p)) cloud.Add(p, outwards / outwards.Norm());
    });
    return cloud;
}

/// Reads a binary little-endian PLY of vertices "x y z nx ny nz" in floats, the format of the sample scans.
inline Cloud ReadSampleScan(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::size_t n = 0;
    for (std::string line; std::getline(file, line) && line != "end_header";)
        if (line.rfind("element vertex ", 0) == 0) n = std::stoul(line.substr(15));
    Cloud cloud;
    for (float v[6]; cloud.Size() < n && file.read(reinterpret_cast<char*>(v), sizeof(v));)
        cloud.Add({v[0], v[1], v[2]}, {v[3], v[4], v[5]});
    if (n == 0 || cloud.Size() != n) throw std::runtime_error("cannot read " + path);
    return cloud;
}

/// The bytes of a file.
inline std::string FileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace test_support
