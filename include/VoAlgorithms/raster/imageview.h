#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace VoAlgo {

/// A borrowed image of row-major pixels, as other libraries hold them; row y starts y·strideBytes bytes after `data`.
/// Pixel (x, y) is the unit square [x, x+1) × [y, y+1), y down, and its centre stands for it.
template <class Pixel>
struct TImageView {
    Pixel* data = nullptr;          ///< the pixel (0, 0)
    std::int32_t width = 0;         ///< pixels of a row; none for 0 or less
    std::int32_t height = 0;        ///< rows; none for 0 or less
    std::ptrdiff_t strideBytes = 0; ///< from a row to the next; negative for images that are stored bottom up

    /// No pixels.
    TImageView() = default;
    /// Rows that follow each other without gaps.
    TImageView(Pixel* first, std::int32_t columns, std::int32_t rows)
        : TImageView(first, columns, rows, columns * std::ptrdiff_t{sizeof(Pixel)})
    {
    }
    /// Rows `stride` bytes apart.
    TImageView(Pixel* first, std::int32_t columns, std::int32_t rows, std::ptrdiff_t stride)
        : data(first), width(columns), height(rows), strideBytes(stride)
    {
    }

    /// Whether there are no pixels.
    [[nodiscard]] bool IsEmpty() const { return width <= 0 || height <= 0; }
    /// Number of pixels.
    [[nodiscard]] std::size_t Size() const
    {
        return IsEmpty() ? 0 : static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
    /// The first pixel of row y; unchecked.
    [[nodiscard]] Pixel* Row(std::int32_t y) const
    {
        using Byte = std::conditional_t<std::is_const_v<Pixel>, const std::byte, std::byte>;
        return reinterpret_cast<Pixel*>(reinterpret_cast<Byte*>(data) + y * strideBytes);
    }
    /// Pixel (x, y); unchecked.
    [[nodiscard]] Pixel& operator()(std::int32_t x, std::int32_t y) const { return Row(y)[x]; }
};

/// A mask: what is not 0 belongs to it.
using MaskView = TImageView<const std::uint8_t>;

} // namespace VoAlgo
