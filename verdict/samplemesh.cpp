#include "VoAlgorithms/verdict/samplemesh.h"

#include "verdict/detail_orientation.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace prereg {
namespace {

using Point = std::array<double, 3>;

constexpr double MaxPoints = 5e5;
/// Measured on planes, balls and boxes: points that cannot be joined by another have this mean distance to the nearest
/// neighbour, relative to the distance kept, and number this many per square of the distance kept.
constexpr double SpacingPerRadius = 1.13, PointsPerRadiusSq = 0.69;
/// Candidates per point: with fewer, gaps of more than the radius stay.
constexpr double CandidatesPerPoint = 6.0;
/// Points whose normals differ by more than a right angle (and some rounding) belong to different sides of a wall.
constexpr float SameSideCosine = -0.1F;

void RequireSound(const TriangleMesh& mesh, double spacing)
{
    if (!(spacing > 0.0) || !std::isfinite(spacing)) throw std::invalid_argument("spacing: must be positive");
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i)
        for (const double x : mesh.vertices[i])
            if (!std::isfinite(x)) throw std::invalid_argument("vertex " + std::to_string(i) + ": must be finite");
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
        for (const std::uint32_t corner : mesh.triangles[t])
            if (corner >= mesh.vertices.size())
                throw std::invalid_argument("triangle " + std::to_string(t) + ": there is no vertex " +
                                            std::to_string(corner));
}

/// Corners of the bounding box of the triangles.
std::pair<Point, Point> BoxOf(const TriangleMesh& mesh)
{
    if (mesh.triangles.empty()) return {};
    Point low = mesh.vertices[mesh.triangles.front().front()], high = low;
    for (const auto& triangle : mesh.triangles)
        for (const std::uint32_t corner : triangle)
            for (unsigned i = 0; i < 3; ++i) {
                low[i] = std::min(low[i], mesh.vertices[corner][i]);
                high[i] = std::max(high[i], mesh.vertices[corner][i]);
            }
    return {low, high};
}

/// A triangle with an area, relative to the centre of the mesh.
struct Face {
    Point corner, u, v;       // two edges from the corner
    kdtree::Vector<3> normal; // unit length
    double area = 0.0;        // mm²
};

Face FaceOf(const TriangleMesh& mesh, std::size_t t, const Point& centre, bool reversed)
{
    const auto& [a, b, c] = mesh.triangles[t];
    Face face;
    for (unsigned i = 0; i < 3; ++i) {
        face.corner[i] = mesh.vertices[a][i] - centre[i];
        face.u[i] = mesh.vertices[b][i] - mesh.vertices[a][i];
        face.v[i] = mesh.vertices[c][i] - mesh.vertices[a][i];
    }
    const Point n = {face.u[1] * face.v[2] - face.u[2] * face.v[1], face.u[2] * face.v[0] - face.u[0] * face.v[2],
                     face.u[0] * face.v[1] - face.u[1] * face.v[0]};
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    const double edges = face.u[0] * face.u[0] + face.u[1] * face.u[1] + face.u[2] * face.u[2] + face.v[0] * face.v[0] +
                         face.v[1] * face.v[1] + face.v[2] * face.v[2];
    if (!(length > 1e-12 * edges)) return face; // a sliver's normal is rounding
    const double scale = (reversed ? -1.0 : 1.0) / length;
    face.normal = {static_cast<float>(n[0] * scale), static_cast<float>(n[1] * scale),
                   static_cast<float>(n[2] * scale)};
    face.area = 0.5 * length;
    return face;
}

/// A number in [0, 1) that looks random; the finaliser of splitmix64 (G. Steele et al., OOPSLA 2014).
double Scattered(std::uint64_t k)
{
    k += 0x9E3779B97F4A7C15ULL;
    k = (k ^ (k >> 30)) * 0xBF58476D1CE4E5B9ULL;
    k = (k ^ (k >> 27)) * 0x94D049BB133111EBULL;
    return static_cast<double>((k ^ (k >> 31)) >> 11) * 0x1p-53;
}

/// Throws darts until hardly any place is left that keeps its distance to all points. Multiples of the golden ratio
/// pick the faces, so that each part of the surface gets its share of the darts from the start; inside a face places
/// are random, since regular ones pack differently from face to face.
class Filling {
public:
    Filling(const std::vector<Face>& faces, double area, double radius)
        : faces_(faces), area_(area), radius_(static_cast<float>(radius))
    {
        const double points = PointsPerRadiusSq * area / (radius * radius);
        candidates_ = static_cast<std::size_t>(std::ceil(CandidatesPerPoint * std::max(points, 1.0)));
        std::size_t cells = 16;
        while (static_cast<double>(cells) < 2.0 * points) cells *= 2;
        first_.assign(cells, None);
        firstFaces();
    }

    Scan Run()
    {
        for (std::size_t k = 0; k < candidates_; ++k) {
            constexpr double GoldenRatio = 0.6180339887498949;
            const Face& face = faceAt(fraction((static_cast<double>(k) + 0.5) * GoldenRatio) * area_);
            double s = Scattered(2 * k), t = Scattered(2 * k + 1);
            if (s + t > 1.0) {
                s = 1.0 - s;
                t = 1.0 - t;
            }
            kdtree::Vector<3> p;
            for (unsigned i = 0; i < 3; ++i) p[i] = static_cast<float>(face.corner[i] + s * face.u[i] + t * face.v[i]);
            add(p, face.normal);
        }
        return std::move(scan_);
    }

private:
    static constexpr std::uint32_t None = 0xFFFFFFFF;
    using Cell = std::array<std::int64_t, 3>;

    static double fraction(double x) { return x - std::floor(x); }

    /// For equal steps of the accumulated area, the face that each begins in.
    void firstFaces()
    {
        ends_.reserve(faces_.size());
        double sum = 0.0;
        for (const Face& face : faces_) ends_.push_back(sum += face.area);
        guide_.reserve(faces_.size());
        std::size_t face = 0;
        for (std::size_t i = 0; i < faces_.size(); ++i) {
            const double begin = area_ * static_cast<double>(i) / static_cast<double>(faces_.size());
            while (face + 1 < faces_.size() && ends_[face] <= begin) ++face;
            guide_.push_back(face);
        }
    }

    [[nodiscard]] const Face& faceAt(double area) const
    {
        const auto step = static_cast<std::size_t>(area / area_ * static_cast<double>(guide_.size()));
        std::size_t face = guide_[std::min(step, guide_.size() - 1)];
        while (face + 1 < faces_.size() && ends_[face] <= area) ++face;
        return faces_[face];
    }

    [[nodiscard]] std::size_t slotOf(const Cell& cell) const
    {
        const auto hash = static_cast<std::uint64_t>(cell[0]) * 0x9E3779B97F4A7C15ULL ^
                          static_cast<std::uint64_t>(cell[1]) * 0xC2B2AE3D27D4EB4FULL ^
                          static_cast<std::uint64_t>(cell[2]) * 0x165667B19E3779F9ULL;
        return static_cast<std::size_t>(hash ^ (hash >> 29)) & (first_.size() - 1);
    }

    /// Cells that share a slot share a list; only the distance decides.
    [[nodiscard]] bool isTaken(const Cell& cell, const kdtree::Vector<3>& p, const kdtree::Vector<3>& normal) const
    {
        for (std::uint32_t i = first_[slotOf(cell)]; i != None; i = next_[i])
            if ((scan_.points[i] - p).NormSq() < radius_ * radius_ && scan_.normals[i].Dot(normal) > SameSideCosine)
                return true;
        return false;
    }

    void add(const kdtree::Vector<3>& p, const kdtree::Vector<3>& normal)
    {
        Cell cell{}, other{}; // cells are two radii wide: along each axis, one neighbour is near
        for (unsigned i = 0; i < 3; ++i) {
            const float place = p[i] / (2.0F * radius_), floor = std::floor(place);
            cell[i] = static_cast<std::int64_t>(floor);
            other[i] = cell[i] + (place - floor < 0.5F ? -1 : 1);
        }
        for (unsigned k = 0; k < 8; ++k) // first the own cell, which most often decides
            if (isTaken({(k & 1) != 0 ? other[0] : cell[0], (k & 2) != 0 ? other[1] : cell[1],
                         (k & 4) != 0 ? other[2] : cell[2]},
                        p, normal))
                return;
        std::uint32_t& first = first_[slotOf(cell)];
        next_.push_back(first);
        first = static_cast<std::uint32_t>(scan_.points.size());
        scan_.points.push_back(p);
        scan_.normals.push_back(normal);
    }

    const std::vector<Face>& faces_;
    double area_;
    float radius_;
    std::size_t candidates_ = 0;
    std::vector<double> ends_; // accumulated area
    std::vector<std::size_t> guide_;
    std::vector<std::uint32_t> first_; // of the points in the cells of a slot
    std::vector<std::uint32_t> next_;
    Scan scan_;
};

} // namespace

double DiagonalOf(const TriangleMesh& mesh)
{
    const auto [low, high] = BoxOf(mesh);
    return std::hypot(high[0] - low[0], high[1] - low[1], high[2] - low[2]);
}

SampledMesh SampleMesh(const TriangleMesh& mesh, double spacing)
{
    RequireSound(mesh, spacing);
    SampledMesh result;
    result.triangles = mesh.triangles.size();
    const auto [low, high] = BoxOf(mesh);
    const Point centre = {0.5 * (low[0] + high[0]), 0.5 * (low[1] + high[1]), 0.5 * (low[2] + high[2])};
    const detail::Orientation orientation = detail::OrientTriangles(mesh);
    result.closed = orientation.closed;
    result.consistent = orientation.consistent;

    std::vector<Face> faces;
    double area = 0.0;
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        const bool reversed = orientation.reversed[t] != 0;
        const Face face = FaceOf(mesh, t, centre, reversed);
        if (face.area == 0.0) {
            ++result.degenerate;
            continue;
        }
        result.turned += reversed ? 1 : 0;
        area += face.area;
        faces.push_back(face);
    }
    if (faces.empty()) return result;
    const double radius = std::max(spacing / SpacingPerRadius, std::sqrt(PointsPerRadiusSq * area / MaxPoints));
    result.spacing = radius * SpacingPerRadius;
    result.scan = Filling(faces, area, radius).Run();
    result.scan.meshSpacing = result.spacing;
    result.scan.origin = centre;
    return result;
}

} // namespace prereg
