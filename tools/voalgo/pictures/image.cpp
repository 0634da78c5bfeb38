#include "pictures/image.h"

#include "exchange/files/files.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb_easy_font.h>
#include <stb_image_write.h>

#include <algorithm>
#include <new>

namespace voalgo {

Image::Image(int width, int height, const Colour& background)
    : width_(width), height_(height),
      pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), background)
{
}

void Image::FillRectangle(int x, int y, int width, int height, const Colour& colour)
{
    for (int row = std::max(y, 0); row < std::min(y + height, height_); ++row)
        for (int column = std::max(x, 0); column < std::min(x + width, width_); ++column) At(column, row) = colour;
}

int Image::DrawText(int x, int y, int scale, const std::string& text, const Colour& colour)
{
    struct Corner {
        float x, y, z;
        std::uint8_t rgba[4];
    };
    std::string copy = text; // the font's interface is not const
    constexpr std::size_t MaxCornersPerCharacter = 240;
    std::vector<Corner> corners(MaxCornersPerCharacter * text.size());
    const int quads = stb_easy_font_print(0.0F, 0.0F, copy.data(), nullptr, corners.data(),
                                          static_cast<int>(corners.size() * sizeof(Corner)));
    for (std::size_t i = 0; i < 4 * static_cast<std::size_t>(quads); i += 4) {
        const Corner& topLeft = corners[i];
        const Corner& bottomRight = corners[i + 2];
        const auto left = static_cast<int>(topLeft.x), top = static_cast<int>(topLeft.y);
        FillRectangle(x + scale * left, y + scale * top, scale * (static_cast<int>(bottomRight.x) - left),
                      scale * (static_cast<int>(bottomRight.y) - top), colour);
    }
    return x + scale * stb_easy_font_width(copy.data());
}

void Image::DrawHalved(int x, int y, const Image& picture)
{
    for (int row = 0; row < picture.height_ / 2; ++row)
        for (int column = 0; column < picture.width_ / 2; ++column)
            for (std::size_t k = 0; k < 3; ++k) {
                const int sum = picture.At(2 * column, 2 * row)[k] + picture.At(2 * column + 1, 2 * row)[k] +
                                picture.At(2 * column, 2 * row + 1)[k] + picture.At(2 * column + 1, 2 * row + 1)[k];
                At(x + column, y + row)[k] = static_cast<std::uint8_t>((sum + 2) / 4);
            }
}

void Image::WritePng(const std::string& path) const
{
    std::string bytes;
    const auto append = [](void* to, void* data, int size) {
        static_cast<std::string*>(to)->append(static_cast<const char*>(data), static_cast<std::size_t>(size));
    };
    if (stbi_write_png_to_func(append, &bytes, width_, height_, 3, pixels_.data(), 3 * width_) == 0)
        throw std::bad_alloc();
    WriteText(path, bytes);
}

} // namespace voalgo
