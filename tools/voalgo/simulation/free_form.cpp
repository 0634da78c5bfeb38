#include "simulation/free_form.h"

#include "simulation/frame.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace voalgo {

namespace {

/// Raises or lowers the surface around one direction: amplitude · exp(−sharpness · (1 − cos angle)).
struct Bump {
    Frame::Axis direction;
    double amplitude;
    double sharpness;
};

/// Adds `count` bumps with half-widths between `fromDegrees` and `toDegrees` and heights of up to ±`amplitude`.
void AddBumps(std::vector<Bump>& bumps, std::mt19937& engine, unsigned count, double fromDegrees, double toDegrees,
              double amplitude)
{
    std::uniform_real_distribution<double> width(fromDegrees, toDegrees), height(0.4, 1.0), sign(-1.0, 1.0);
    for (unsigned i = 0; i < count; ++i) {
        const Frame::Axis direction = RandomDirection(engine);
        const double halfWidth = width(engine) * std::numbers::pi / 180.0;
        const double signedHeight = std::copysign(amplitude * height(engine), sign(engine));
        bumps.push_back({direction, signedHeight, std::numbers::ln2 / (1.0 - std::cos(halfWidth))});
    }
}

double Radius(const std::vector<Bump>& bumps, const Frame::Axis& u)
{
    double radius = 1.0;
    for (const Bump& bump : bumps) {
        const double exponent = bump.sharpness * (1.0 - Dot(u, bump.direction));
        if (exponent < 30.0) radius += bump.amplitude * std::exp(-exponent);
    }
    return std::max(radius, 0.25);
}

/// Adds one face of an octahedron, divided n times along each edge and projected onto the surface.
void AddOctant(Mesh& mesh, const Frame::Axis& sign, unsigned n, const std::vector<Bump>& bumps,
               const Frame::Axis& stretch)
{
    const auto first = static_cast<std::uint32_t>(mesh.vertices.size());
    const auto vertex = [&](unsigned i, unsigned j) { return first + i * (n + 1) - i * (i - 1) / 2 + j; };
    for (unsigned i = 0; i <= n; ++i)
        for (unsigned j = 0; j <= n - i; ++j) {
            const Frame::Axis u = Normalised({sign[0] * i, sign[1] * j, sign[2] * (n - i - j)});
            const double r = Radius(bumps, u);
            mesh.vertices.push_back(ToFloat({r * stretch[0] * u[0], r * stretch[1] * u[1], r * stretch[2] * u[2]}));
        }
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j < n - i; ++j) {
            mesh.triangles.push_back({vertex(i, j), vertex(i + 1, j), vertex(i, j + 1)});
            if (j + 1 < n - i) mesh.triangles.push_back({vertex(i + 1, j), vertex(i + 1, j + 1), vertex(i, j + 1)});
        }
}

} // namespace

Mesh FreeFormObject(unsigned seed, double size, std::size_t minTriangles)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> stretch(0.65, 1.0);
    const Frame::Axis axes = {1.0, stretch(engine), stretch(engine)};
    std::vector<Bump> bumps;
    AddBumps(bumps, engine, 8, 20.0, 40.0, 0.40); // the body
    AddBumps(bumps, engine, 7, 8.0, 16.0, 0.45);  // limbs and hollows
    AddBumps(bumps, engine, 60, 4.0, 9.0, 0.09);
    AddBumps(bumps, engine, 200, 1.8, 4.0, 0.025);

    const auto n = static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(minTriangles) / 8.0)));
    Mesh mesh;
    for (const double x : {1.0, -1.0})
        for (const double y : {1.0, -1.0})
            for (const double z : {1.0, -1.0}) AddOctant(mesh, {x, y, z}, std::max(n, 4U), bumps, axes);
    CentreAndScale(mesh, size);
    return mesh;
}

void CentreAndScale(Mesh& mesh, double size)
{
    if (mesh.vertices.empty()) return;
    kdtree::Vector<3> low = mesh.vertices.front(), high = low;
    for (const auto& v : mesh.vertices)
        for (unsigned i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], v[i]);
            high[i] = std::max(high[i], v[i]);
        }
    const kdtree::Vector<3> extent = high - low, middle = (low + high) * 0.5F;
    const float largest = std::max({extent.x, extent.y, extent.z});
    const float factor = size > 0.0 && largest > 0.0F ? static_cast<float>(size) / largest : 1.0F;
    for (auto& v : mesh.vertices) v = (v - middle) * factor;
}

} // namespace voalgo
