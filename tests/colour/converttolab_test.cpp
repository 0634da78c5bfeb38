#include "VoAlgorithms/colour/converttolab.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <span>
#include <utility>
#include <vector>

namespace {

using namespace VoAlgo::cs;

// All NaNs count as equal: their payload is not specified.
std::uint64_t Bits(double x)
{
    return x != x ? 1 : std::bit_cast<std::uint64_t>(x);
}

template <class Pixel>
void ExpectTheBitsOfTheClass(std::span<const Pixel> from)
{
    const std::size_t n = from.size();
    const Lab untouched(1, 2, 3);
    std::vector<Lab> to(n + 1, untouched);
    ASSERT_EQ(ConvertToLab(from, to), n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t k = 0; k < 3; ++k) ASSERT_EQ(Bits(to[i][k]), Bits(Lab(RGB(from[i]))[k])) << i << " " << k;
    ASSERT_EQ(to[n], untouched);
}

// Bright and dark colours together and apart in groups of four, values to clamp, and NaN: the wide kernel must take the
// right branch in each lane. All lengths up to several groups: no pixel is left out, and none is written beyond the
// end.
TEST(ConvertToLab, HasTheBitsOfTheClass)
{
    const double special[] = {0, -0.0, 255, 256, -1, 2.258, std::nan(""), 1e-30, 0x1p-1074, HUGE_VAL, -HUGE_VAL};
    std::mt19937 engine(1);
    std::uniform_real_distribution<double> any(-10, 265), dark(0, 5);
    std::vector<RGB> pixels(20001);
    std::vector<RGB::Packed> bytes(pixels.size());
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        for (std::size_t k = 0; k < 3; ++k) {
            const auto kind = engine() % 8;
            pixels[i][k] = kind == 0 ? special[engine() % std::size(special)] : (kind < 4 ? dark(engine) : any(engine));
        }
        bytes[i] = RGB::Packed(pixels[i]);
    }
    for (std::size_t n = 0; n <= pixels.size(); n += n < 20 ? 1 : pixels.size() - 20) {
        ExpectTheBitsOfTheClass(std::span(std::as_const(pixels)).first(n));
        ExpectTheBitsOfTheClass(std::span(std::as_const(bytes)).first(n));
    }
    std::vector<Lab> few(3);
    EXPECT_EQ(ConvertToLab(pixels, few), 3U);
}

} // namespace
