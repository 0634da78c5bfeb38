#pragma once

#include "exchange/files/write_ply.h"

#include <cstddef>
#include <string>
#include <vector>

namespace voalgo {

/// An RGB picture; (0, 0) is the top left pixel.
class Image {
public:
    Image(int width, int height, const Colour& background);

    [[nodiscard]] int Width() const { return width_; }
    [[nodiscard]] int Height() const { return height_; }
    [[nodiscard]] const Colour& At(int x, int y) const { return pixels_[index(x, y)]; }
    Colour& At(int x, int y) { return pixels_[index(x, y)]; }

    /// Fills the part of a rectangle that lies inside the picture.
    void FillRectangle(int x, int y, int width, int height, const Colour& colour);
    /// Draws ASCII text with `scale` pixels per dot of the font and returns the x at which it ends.
    int DrawText(int x, int y, int scale, const std::string& text, const Colour& colour);
    /// Draws another picture at half its size with its top left corner at (x, y); it must fit.
    void DrawHalved(int x, int y, const Image& picture);
    /// Writes a StagedFile; throws OutputError.
    void WritePng(const std::string& path) const;

private:
    [[nodiscard]] std::size_t index(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x);
    }

    int width_;
    int height_;
    std::vector<Colour> pixels_;
};

} // namespace voalgo
