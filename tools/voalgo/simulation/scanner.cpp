#include "simulation/scanner.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace voalgo {

namespace {

/// The rays of one scan and the nearest surface along each. A ray has the direction (x, y, 1) in the eye's frame.
class RangeImage {
public:
    RangeImage(const Scanner& scanner, double offsetX, double offsetY)
        : width_(static_cast<int>(std::ceil(2.0 * scanner.reach / scanner.pitch)) + 1),
          step_(scanner.pitch / scanner.distance), left_(-(0.5 * width_ - offsetX) * step_),
          top_(-(0.5 * width_ - offsetY) * step_), hits_(index(width_, 0))
    {
    }

    struct Hit {
        double depth = std::numeric_limits<double>::infinity();
        Frame::Axis normal = {}; // in the eye's frame, unit length
    };

    /// Draws a triangle, given in the eye's frame.
    void Draw(const Frame::Axis (&corner)[3])
    {
        double x[3], y[3];
        for (unsigned i = 0; i < 3; ++i) {
            if (corner[i][2] <= 0.0) return; // behind the eye
            x[i] = (corner[i][0] / corner[i][2] - left_) / step_;
            y[i] = (corner[i][1] / corner[i][2] - top_) / step_;
        }
        const double area = (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]);
        if (area == 0.0) return;
        const Frame::Axis normal =
            Normalised(Cross(difference(corner[1], corner[0]), difference(corner[2], corner[0])));
        const double height = Dot(normal, corner[0]);
        const int firstRow = clampCell(std::ceil(std::min({y[0], y[1], y[2]})));
        const int lastRow = clampCell(std::floor(std::max({y[0], y[1], y[2]})));
        const int firstColumn = clampCell(std::ceil(std::min({x[0], x[1], x[2]})));
        const int lastColumn = clampCell(std::floor(std::max({x[0], x[1], x[2]})));
        for (int row = firstRow; row <= lastRow; ++row)
            for (int column = firstColumn; column <= lastColumn; ++column) {
                bool inside = true;
                for (unsigned i = 0; i < 3 && inside; ++i) {
                    const unsigned j = (i + 1) % 3;
                    const double side = (x[j] - x[i]) * (row - y[i]) - (column - x[i]) * (y[j] - y[i]);
                    inside = side * area >= 0.0;
                }
                if (!inside) continue;
                const double depth = height / Dot(normal, Ray(row, column));
                Hit& hit = hits_[index(row, column)];
                if (depth > 0.0 && depth < hit.depth) hit = {depth, normal};
            }
    }

    [[nodiscard]] int Width() const { return width_; }
    [[nodiscard]] const Hit& At(int row, int column) const { return hits_[index(row, column)]; }
    [[nodiscard]] Frame::Axis Ray(int row, int column) const
    {
        return {left_ + column * step_, top_ + row * step_, 1.0};
    }

private:
    static Frame::Axis difference(const Frame::Axis& a, const Frame::Axis& b)
    {
        return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    }
    [[nodiscard]] std::size_t index(int row, int column) const
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(column);
    }
    // Clamped cells outside the triangle fail the inside test.
    [[nodiscard]] int clampCell(double cell) const { return static_cast<int>(std::clamp(cell, 0.0, width_ - 1.0)); }

    int width_;
    double step_, left_, top_;
    std::vector<Hit> hits_;
};

} // namespace

Frame ScannerFrame(const Scanner& scanner, const Frame::Axis& viewDirection, double roll)
{
    Frame frame = FrameAlong(viewDirection, roll);
    for (unsigned i = 0; i < 3; ++i) frame.origin[i] = -scanner.distance * viewDirection[i];
    return frame;
}

prereg::Scan ScanMesh(const Mesh& mesh, const Scanner& scanner, const Frame& eye, std::mt19937& engine)
{
    std::uniform_real_distribution<double> offset(0.0, 1.0);
    const double offsetX = offset(engine), offsetY = offset(engine);
    RangeImage image(scanner, offsetX, offsetY);
    std::vector<Frame::Axis> local(mesh.vertices.size());
    for (std::size_t i = 0; i < local.size(); ++i) local[i] = eye.ToLocal(ToDouble(mesh.vertices[i]));
    for (const auto& t : mesh.triangles) image.Draw({local[t[0]], local[t[1]], local[t[2]]});

    const double minCosine = std::cos(scanner.maxIncidence * std::numbers::pi / 180.0);
    std::normal_distribution<double> noise(0.0, 1.0);
    prereg::Scan cloud;
    for (int row = 0; row < image.Width(); ++row)
        for (int column = 0; column < image.Width(); ++column) {
            const RangeImage::Hit& hit = image.At(row, column);
            if (!std::isfinite(hit.depth)) continue;
            const Frame::Axis ray = image.Ray(row, column);
            const double length = std::sqrt(Dot(ray, ray)), facing = -Dot(ray, hit.normal) / length;
            if (std::abs(facing) < minCosine) continue;
            const double z = hit.depth + scanner.noise * noise(engine) / length; // the noise lies along the ray
            const double sign = facing < 0.0 ? -1.0 : 1.0;
            cloud.points.push_back(ToFloat(eye.ToWorld({ray[0] * z, ray[1] * z, z})));
            cloud.normals.push_back(
                ToFloat(eye.Turn({sign * hit.normal[0], sign * hit.normal[1], sign * hit.normal[2]})));
        }
    return cloud;
}

} // namespace voalgo
