#include "pictures/splats.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace voalgo {

namespace {

constexpr float Nothing = -std::numeric_limits<float>::infinity();

/// The brightness of a surface with the unit normal n in the eye's frame; without a normal it is medium.
double Brightness(const Frame::Axis& n)
{
    static const Frame::Axis Light = Normalised({-0.45, 0.55, 0.9});
    if (Dot(n, n) < 0.25) return 0.85;
    if (n[2] < 0.0) return 0.34 + 0.24 * std::max(0.0, -Dot(n, Light)); // seen from behind
    return 0.48 + 0.60 * std::max(0.0, Dot(n, Light));
}

Colour Shade(const Colour& colour, double brightness)
{
    Colour shaded{};
    for (std::size_t k = 0; k < 3; ++k)
        shaded[k] = static_cast<std::uint8_t>(std::clamp(colour[k] * brightness, 0.0, 255.0));
    return shaded;
}

/// For each pixel, how far towards the viewer the surface shown there lies, in pixels.
class DepthImage {
public:
    DepthImage(int width, int height)
        : width_(width), height_(height),
          depth_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), Nothing)
    {
    }

    [[nodiscard]] bool Contains(int x, int y) const { return x >= 0 && y >= 0 && x < width_ && y < height_; }
    [[nodiscard]] float& At(int x, int y)
    {
        return depth_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)];
    }
    /// How steeply the surroundings of a pixel rise towards the viewer.
    [[nodiscard]] double Overhang(int x, int y)
    {
        constexpr int Reach = 3;
        double sum = 0.0;
        for (const auto& [dx, dy] : {std::pair{Reach, 0}, {-Reach, 0}, {0, Reach}, {0, -Reach}}) {
            if (!Contains(x + dx, y + dy)) continue;
            const double step = At(x + dx, y + dy) - At(x, y);
            if (step > 0.0) sum += std::min(step / Reach, 6.0);
        }
        return sum;
    }

private:
    int width_;
    int height_;
    std::vector<float> depth_;
};

/// Draws a disc of `radius` pixels whose depth follows the slope of the surface, up to a limit.
void DrawDisc(Image& image, DepthImage& depth, const Frame::Axis& middle, const Frame::Axis& normal, double radius,
              const Colour& colour)
{
    const double lean = std::copysign(std::max(std::abs(normal[2]), 0.35), normal[2]);
    const double slopeX = -normal[0] / lean, slopeY = normal[1] / lean;
    const auto first = [&](double m) { return static_cast<int>(std::ceil(m - radius)); };
    const auto last = [&](double m) { return static_cast<int>(std::floor(m + radius)); };
    for (int y = first(middle[1]); y <= last(middle[1]); ++y)
        for (int x = first(middle[0]); x <= last(middle[0]); ++x) {
            const double dx = x - middle[0], dy = y - middle[1], distanceSq = dx * dx + dy * dy;
            if (!depth.Contains(x, y) || distanceSq > radius * radius) continue;
            // The rim sinks a little, so that a pixel shows the disc whose middle is nearest.
            const auto z = static_cast<float>(middle[2] + slopeX * dx + slopeY * dy - 0.5 * distanceSq / radius);
            if (z <= depth.At(x, y)) continue;
            depth.At(x, y) = z;
            image.At(x, y) = colour;
        }
}

} // namespace

Field FieldOf(const std::vector<ColouredCloud>& clouds, const Frame& eye)
{
    constexpr double Infinity = std::numeric_limits<double>::infinity();
    double low[2] = {Infinity, Infinity}, high[2] = {-Infinity, -Infinity};
    for (const ColouredCloud& c : clouds)
        for (const auto& p : c.cloud->points) {
            const Frame::Axis local = eye.ToLocal(ToDouble(p));
            for (unsigned k = 0; k < 2; ++k) {
                low[k] = std::min(low[k], local[k]);
                high[k] = std::max(high[k], local[k]);
            }
        }
    return {{0.5 * (low[0] + high[0]), 0.5 * (low[1] + high[1])}, 0.5 * (high[0] - low[0]), 0.5 * (high[1] - low[1])};
}

void DrawSplats(Image& image, const std::vector<ColouredCloud>& clouds, const Frame& eye, const Field& field,
                double scale, double radius)
{
    DepthImage depth(image.Width(), image.Height());
    for (const ColouredCloud& c : clouds)
        for (std::size_t i = 0; i < c.cloud->points.size(); ++i) {
            const Frame::Axis p = eye.ToLocal(ToDouble(c.cloud->points[i]));
            const Frame::Axis pixel = {0.5 * image.Width() + (p[0] - field.middle[0]) * scale,
                                       0.5 * image.Height() - (p[1] - field.middle[1]) * scale, p[2] * scale};
            const Frame::Axis normal = eye.TurnBack(ToDouble(c.cloud->normals[i]));
            DrawDisc(image, depth, pixel, normal, radius * scale, Shade(c.colour, Brightness(normal)));
        }
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) {
            if (depth.At(x, y) == Nothing) continue;
            image.At(x, y) = Shade(image.At(x, y), std::exp(-0.09 * depth.Overhang(x, y)));
        }
}

} // namespace voalgo
