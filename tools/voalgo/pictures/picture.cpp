#include "pictures/picture.h"

#include "pictures/splats.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace voalgo {

namespace {

constexpr int PanelWidth = 640, PanelHeight = 480, CaptionHeight = 30, Margin = 24;
constexpr Colour Background = {247, 247, 245}, Ink = {60, 60, 60}, Rule = {214, 214, 210};

/// An eye that sees most surfaces from the front, then rotated by `degrees` about the upright axis: y, or z if it would
/// look along y.
Frame EyeFor(const std::vector<ColouredCloud>& clouds, double degrees)
{
    Frame::Axis front = {0, 0, 0};
    for (const ColouredCloud& c : clouds)
        for (const auto& n : c.cloud->normals)
            for (unsigned k = 0; k < 3; ++k) front[k] += n[k];
    if (Dot(front, front) < 1e-6) front = {0, 0, 1};
    front = Normalised(front);
    const Frame::Axis upright = std::abs(front[1]) < 0.85 ? Frame::Axis{0, 1, 0} : Frame::Axis{0, 0, 1};
    const Frame::Axis right = Normalised(Cross(upright, front)), level = Cross(right, upright);
    const double angle = degrees * std::numbers::pi / 180.0;
    Frame::Axis view{};
    for (unsigned k = 0; k < 3; ++k) // keep part of the front view's elevation
        view[k] =
            std::cos(angle) * level[k] + std::sin(angle) * right[k] + (0.25 + 0.3 * Dot(front, upright)) * upright[k];
    Frame eye;
    eye.axis[2] = Normalised(view);
    eye.axis[0] = Normalised(Cross(upright, eye.axis[2]));
    eye.axis[1] = Cross(eye.axis[2], eye.axis[0]);
    return eye;
}

/// Draws the clouds from two sides, next to each other, at the same scale.
void DrawRow(Image& image, int top, const std::string& caption, const std::vector<ColouredCloud>& clouds,
             double spacing)
{
    const std::array<Frame, 2> eyes = {EyeFor(clouds, -30.0), EyeFor(clouds, 45.0)};
    const std::array<Field, 2> fields = {FieldOf(clouds, eyes[0]), FieldOf(clouds, eyes[1])};
    double scale = 1e9;
    for (const Field& f : fields)
        scale = std::min({scale, (PanelWidth - 2 * Margin) / std::max(2.0 * f.halfWidth, 1e-6),
                          (PanelHeight - 2 * Margin) / std::max(2.0 * f.halfHeight, 1e-6)});
    for (int side = 0; side < 2; ++side) {
        Image panel(2 * PanelWidth, 2 * PanelHeight, Background); // twice the size, for smooth edges
        const auto k = static_cast<std::size_t>(side);
        DrawSplats(panel, clouds, eyes[k], fields[k], 2.0 * scale, std::max(1.3 * spacing, 0.8 / scale));
        image.DrawHalved(side * PanelWidth, top + CaptionHeight, panel);
    }
    image.DrawText(16, top + 10, 2, caption, Ink);
}

void DrawLegend(Image& image)
{
    int x = image.Width() - 150;
    for (const auto& [name, colour] : {std::pair{"fix", FixColour}, {"flt", FltColour}}) {
        image.FillRectangle(x, 11, 14, 14, colour);
        x = image.DrawText(x + 20, 10, 2, name, Ink) + 20;
    }
}

} // namespace

void WritePicture(const std::string& path, const prereg::Scan& fix, const prereg::Scan& flt,
                  const std::optional<prereg::Scan>& moved, double spacing)
{
    constexpr int RowHeight = CaptionHeight + PanelHeight;
    Image image(2 * PanelWidth, (moved ? 2 : 1) * RowHeight, Background);
    DrawRow(image, 0, moved ? "before" : "as loaded: no registration found", {{&fix, FixColour}, {&flt, FltColour}},
            spacing);
    if (moved) {
        DrawRow(image, RowHeight, "after", {{&fix, FixColour}, {&*moved, FltColour}}, spacing);
        image.FillRectangle(0, RowHeight, image.Width(), 1, Rule);
    }
    DrawLegend(image);
    image.WritePng(path);
}

void WritePicture(const std::string& path, const std::string& caption, const std::vector<ColouredCloud>& clouds,
                  double spacing)
{
    Image image(2 * PanelWidth, CaptionHeight + PanelHeight, Background);
    DrawRow(image, 0, caption, clouds, spacing);
    image.WritePng(path);
}

} // namespace voalgo
