#include "VoAlgorithms/raster/distancetransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using VoAlgo::MaskView;

/// Distances by trying all pixels; of equally near ones the first by x, then y, is the nearest.
struct Tried {
    std::uint64_t squared = VoAlgo::InfiniteDistanceSq;
    std::size_t nearest = VoAlgo::NoPixel;
    std::uint32_t cityBlock = UINT32_MAX, chessboard = UINT32_MAX;
    double weighted = HUGE_VAL; // pixels of 0.75 × 2
};

Tried Try(const MaskView& mask, std::int32_t x, std::int32_t y, bool isSet)
{
    Tried best;
    for (std::int32_t i = 0; i < mask.width; ++i)
        for (std::int32_t j = 0; j < mask.height; ++j) {
            if ((mask(i, j) != 0) != isSet) continue;
            const std::int64_t dx = std::abs(i - x), dy = std::abs(j - y);
            const auto squared = static_cast<std::uint64_t>(dx * dx + dy * dy);
            if (squared < best.squared)
                best.nearest =
                    static_cast<std::size_t>(j) * static_cast<std::size_t>(mask.width) + static_cast<std::size_t>(i);
            best.squared = std::min(best.squared, squared);
            best.cityBlock = std::min(best.cityBlock, static_cast<std::uint32_t>(dx + dy));
            best.chessboard = std::min(best.chessboard, static_cast<std::uint32_t>(std::max(dx, dy)));
            best.weighted = std::min(best.weighted,
                                     0.75 * 0.75 * static_cast<double>(dx * dx) + 4.0 * static_cast<double>(dy * dy));
        }
    return best;
}

class DistanceTransformTest : public testing::Test {
protected:
    void expectAll(const MaskView& mask, unsigned numThreads)
    {
        VoAlgo::DistanceTransform(mask, alone_, numThreads);
        VoAlgo::DistanceTransform(mask, squared_, nearest_, numThreads);
        VoAlgo::DistanceTransform(mask, 0.75, 2, weighted_, numThreads);
        VoAlgo::SignedDistanceTransform(mask, signed_, numThreads);
        VoAlgo::PixelsWithin(mask, 5, within_, numThreads);
        VoAlgo::CityBlockTransform(mask, cityBlock_);
        VoAlgo::ChessboardTransform(mask, chessboard_);
        ASSERT_EQ(alone_.size(), mask.Size());
        std::size_t i = 0;
        for (std::int32_t y = 0; y < mask.height; ++y)
            for (std::int32_t x = 0; x < mask.width; ++x, ++i) {
                const Tried toMask = Try(mask, x, y, true);
                ASSERT_EQ(alone_[i], toMask.squared);
                ASSERT_EQ(squared_[i], toMask.squared);
                ASSERT_EQ(nearest_[i], toMask.nearest);
                ASSERT_EQ(weighted_[i], toMask.weighted);
                ASSERT_EQ(cityBlock_[i], toMask.cityBlock);
                ASSERT_EQ(chessboard_[i], toMask.chessboard);
                ASSERT_EQ(within_[i], toMask.squared <= 5);
                const auto limited = [](std::uint64_t v) {
                    return static_cast<std::int64_t>(std::min<std::uint64_t>(v, INT64_MAX));
                };
                ASSERT_EQ(signed_[i],
                          mask(x, y) != 0 ? -limited(Try(mask, x, y, false).squared) : limited(toMask.squared));
            }
    }

    std::vector<std::uint64_t> alone_, squared_;
    std::vector<std::size_t> nearest_;
    std::vector<double> weighted_;
    std::vector<std::int64_t> signed_;
    std::vector<std::uint8_t> within_;
    std::vector<std::uint32_t> cityBlock_, chessboard_;
};

TEST_F(DistanceTransformTest, EqualsTryingAllPixelsForAllMasksOf4By4)
{
    for (unsigned bits = 0; bits < 1U << 16; ++bits) {
        std::array<std::uint8_t, 16> pixels;
        for (unsigned k = 0; k < 16; ++k) pixels[k] = static_cast<std::uint8_t>(bits >> k & 1);
        ASSERT_NO_FATAL_FAILURE(expectAll({pixels.data(), 4, 4}, 1)) << bits;
    }
}

// Sizes around whole vectors, near and far rows, gaps between rows and rows stored upwards, any number of threads.
TEST_F(DistanceTransformTest, EqualsTryingAllPixelsOfLargerMasksWithAnyThreads)
{
    std::mt19937 engine(1);
    for (const std::int32_t width : {1, 31, 32, 33, 70})
        for (const std::int32_t height : {1, 40})
            for (const unsigned rarity : {2U, 9U, 200U}) {
                const std::int32_t stride = width + 5;
                std::vector<std::uint8_t> pixels(static_cast<std::size_t>(stride * height));
                for (std::uint8_t& pixel : pixels) pixel = engine() % rarity == 0 ? 255 : 0;
                ASSERT_NO_FATAL_FAILURE(expectAll({pixels.data(), width, height, stride}, 1 + rarity % 3))
                    << width << ' ' << height << ' ' << rarity;
                const std::uint8_t* lastRow = pixels.data() + (height - 1) * stride;
                ASSERT_NO_FATAL_FAILURE(expectAll({lastRow, width, height, -stride}, 0));
            }
}

// Squares beyond 32 bits in both directions.
TEST_F(DistanceTransformTest, LongImagesDoNotOverflow)
{
    constexpr std::int32_t Length = 200'000;
    std::vector<std::uint8_t> pixels(2 * Length);
    pixels[3] = pixels[2 * Length - 7] = 1;
    for (const bool isWide : {true, false}) {
        const MaskView mask{pixels.data(), isWide ? Length : 2, isWide ? 2 : Length};
        VoAlgo::DistanceTransform(mask, squared_, nearest_);
        VoAlgo::DistanceTransform(mask, alone_);
        ASSERT_EQ(alone_, squared_);
        for (const std::int32_t i : {0, 5, 99'997, 99'998, 99'999, 100'000, 150'000, Length - 1})
            for (const std::int32_t k : {0, 1}) {
                const std::int32_t x = isWide ? i : k, y = isWide ? k : i;
                const Tried tried = Try(mask, x, y, true);
                ASSERT_EQ(squared_[static_cast<std::size_t>(y * mask.width + x)], tried.squared) << i;
                ASSERT_EQ(nearest_[static_cast<std::size_t>(y * mask.width + x)], tried.nearest) << i;
            }
    }
    VoAlgo::DistanceTransform(MaskView{}, squared_, nearest_);
    EXPECT_TRUE(squared_.empty() && nearest_.empty());
    EXPECT_THROW(VoAlgo::DistanceTransform(MaskView{}, 1, 0, weighted_), std::invalid_argument);
}

} // namespace
