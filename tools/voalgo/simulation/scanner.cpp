#include "simulation/scanner.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>

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

/// A smooth random function of the place in the image with mean 0 and standard deviation 1: normally distributed values
/// at the corners of square cells, blended between them.
class SmoothField {
public:
    SmoothField(double length, double reach, std::mt19937& engine)
        : length_(length), reach_(reach), width_(static_cast<std::size_t>(std::ceil(2.2 * reach / length)) + 2)
    {
        std::normal_distribution<double> normal;
        values_.resize(width_ * width_);
        for (double& value : values_) value = normal(engine);
    }

    /// x and y are in mm at the object; the middle of the image is 0.
    [[nodiscard]] double At(double x, double y) const
    {
        const double u = place(x), v = place(y), s = u - std::floor(u), t = v - std::floor(v);
        const double* corner = &values_[static_cast<std::size_t>(v) * width_ + static_cast<std::size_t>(u)];
        const double value =
            (1 - t) * ((1 - s) * corner[0] + s * corner[1]) + t * ((1 - s) * corner[width_] + s * corner[width_ + 1]);
        return value / std::sqrt(((1 - s) * (1 - s) + s * s) * ((1 - t) * (1 - t) + t * t));
    }

private:
    [[nodiscard]] double place(double x) const
    {
        return std::clamp((x + 1.1 * reach_) / length_, 0.0, static_cast<double>(width_) - 1.001);
    }

    double length_, reach_;
    std::size_t width_;
    std::vector<double> values_;
};

/// The value that a normally distributed number exceeds with the given probability.
double NormalLimit(double probability)
{
    double low = -6.0, high = 6.0;
    for (int i = 0; i < 50; ++i) {
        const double middle = 0.5 * (low + high);
        (0.5 * std::erfc(middle / std::numbers::sqrt2) > probability ? low : high) = middle;
    }
    return low;
}

/// Errors of the range beside independent noise. Each draws random numbers only where it is wanted.
class Errors {
public:
    Errors(const Scanner& scanner, std::mt19937& engine) : scanner_(scanner)
    {
        if (scanner.noise > 0.0 && scanner.correlation > scanner.pitch)
            noise_.emplace(scanner.correlation, scanner.reach, engine);
        if (scanner.warp > 0.0) warp_.emplace(0.7 * scanner.reach, scanner.reach, engine);
        if (scanner.holes > 0.0) holes_.emplace(0.12 * scanner.reach, scanner.reach, engine);
        holesAbove_ = NormalLimit(scanner.holes);
    }

    [[nodiscard]] bool IsHole(const Frame::Axis& ray) const
    {
        return holes_ && holes_->At(ray[0] * scanner_.distance, ray[1] * scanner_.distance) > holesAbove_;
    }
    /// The error along the ray, mm; `independent` is the noise of a ray that shares none.
    [[nodiscard]] double Of(const Frame::Axis& ray, double independent) const
    {
        const double x = ray[0] * scanner_.distance, y = ray[1] * scanner_.distance;
        return scanner_.noise * (noise_ ? noise_->At(x, y) : independent) +
               (warp_ ? scanner_.warp * warp_->At(x, y) : 0.0);
    }
    [[nodiscard]] double Rounded(double depth) const
    {
        return scanner_.quantum > 0.0 ? scanner_.quantum * std::round(depth / scanner_.quantum) : depth;
    }

private:
    const Scanner& scanner_;
    std::optional<SmoothField> noise_, warp_, holes_;
    double holesAbove_ = 0.0;
};

/// The depth of a ray beside a step in depth, drawn between both sides for a share of such rays.
double Smeared(const RangeImage& image, int row, int column, const Scanner& scanner, std::mt19937& engine)
{
    const double depth = image.At(row, column).depth;
    if (scanner.smear <= 0.0 || column + 1 >= image.Width()) return depth;
    const double next = image.At(row, column + 1).depth;
    if (!std::isfinite(next) || std::abs(next - depth) < 5.0 * scanner.pitch) return depth;
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    const bool smeared = uniform(engine) < scanner.smear;
    const double between = uniform(engine);
    return smeared ? depth + between * (next - depth) : depth;
}

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
    const Errors errors(scanner, engine);
    prereg::Scan cloud;
    for (int row = 0; row < image.Width(); ++row)
        for (int column = 0; column < image.Width(); ++column) {
            const RangeImage::Hit& hit = image.At(row, column);
            if (!std::isfinite(hit.depth)) continue;
            const Frame::Axis ray = image.Ray(row, column);
            const double length = std::sqrt(Dot(ray, ray)), facing = -Dot(ray, hit.normal) / length;
            if (std::abs(facing) < minCosine || errors.IsHole(ray)) continue;
            const double depth = Smeared(image, row, column, scanner, engine);
            const double z = errors.Rounded(depth + errors.Of(ray, noise(engine)) / length); // errors lie along the ray
            const double sign = facing < 0.0 ? -1.0 : 1.0;
            cloud.points.push_back(ToFloat(eye.ToWorld({ray[0] * z, ray[1] * z, z})));
            cloud.normals.push_back(
                ToFloat(eye.Turn({sign * hit.normal[0], sign * hit.normal[1], sign * hit.normal[2]})));
        }
    return cloud;
}

} // namespace voalgo
