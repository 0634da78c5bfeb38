// Shapes on the lattice of pixels; the reference shows these parts. Exits with 0 when every result is as expected.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

void Expect(bool isTrue, const char* what)
{
    if (!isTrue) throw std::runtime_error(std::string(what) + " gave a wrong result");
}

void Line()
{
    // [line]
    std::vector<std::uint8_t> image(64 * 48);
    VoAlgo::CLineRaster::ForEachPixel(3, 5, 20, 11, [&](int x, int y) { image[y * 64 + x] = 255; });

    using Connection = VoAlgo::CLineRaster::EConnection;
    VoAlgo::CLineRaster touched(-1000.5, 0.25, 1000, 47.75, Connection::Supercover); // real ends
    for (const auto& [x, y] : touched.ClipTo({0, 0, 64, 48})) image[y * 64 + x] = 128;
    // [line]
    Expect(image[5 * 64 + 3] == 255 && image[24 * 64] == 128, "the line");
}

void Distance()
{
    // [distance]
    std::vector<std::uint8_t> mask(640 * 480);
    mask[100 * 640 + 30] = mask[200 * 640 + 500] = 1;
    const VoAlgo::MaskView view(mask.data(), 640, 480); // or with the bytes from row to row
    std::vector<std::uint64_t> squared;
    std::vector<std::size_t> nearest;
    VoAlgo::DistanceTransform(view, squared, nearest);
    const std::uint64_t fromOrigin = squared[0]; // 100² + 30²
    // [distance]
    Expect(fromOrigin == 10'900 && nearest[0] == 100 * 640 + 30, "the distance");
}

void Partition()
{
    // [partition]
    VoAlgo::CIntPartition plane(VoAlgo::PixelRect{0, 0, 640, 480}, -1);
    plane.Set({10, 10, 110, 60}, 1);
    plane.Set({100, 50, 200, 90}, 2);                  // takes a corner from 1
    const auto [piece, value] = plane.Locate(105, 55); // 2
    const auto area = plane.GetAreas().at(1);          // 100·50 − 10·10
    // [partition]
    Expect(value == 2 && area == 4'900 && piece.Contains(105, 55), "the partition");
}

void Triangle()
{
    // [triangle]
    using VoAlgo::CTriangle2D;
    const CTriangle2D triangle({0, 0}, {8, 0}, {0, 6});
    const bool isLeftTurn = CTriangle2D::Orientation({0, 0}, {0.1, 0.3}, {0.2, 0.6 + 1e-16}) == 1; // exact
    const double radius = triangle.Circumcircle()->radius;                                         // 5

    double sum = 0; // of a brightness that is 0, 80 and 0 at the corners
    triangle.ForEachRun<1>({0, 0, 640, 480}, {{{0}, {80}, {0}}},
                           [&](auto, auto xBegin, auto xEnd, auto value, auto step) {
                               for (auto x = xBegin; x < xEnd; ++x, value[0] += step[0]) sum += value[0];
                           });
    // [triangle]
    Expect(isLeftTurn && radius == 5 && sum > 500 && sum < 800, "the triangle");
}

int main()
{
    Line();
    Distance();
    Partition();
    Triangle();
}
