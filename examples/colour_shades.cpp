// Sorts a table of tooth shades by their perceived difference from a measured colour: colour_shades [RED GREEN BLUE],
// in sRGB bytes. Prints the CIEDE2000 difference of each shade, nearest first; differences below about 1 are barely
// visible.
#include <VoAlgorithms/VoAlgorithms.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace cs = VoAlgo::cs;

struct Shade {
    const char* name;
    cs::RGB::Packed color; // sRGB, as a camera gives it
    double difference = 0;
};

cs::RGB::Packed Bytes(double red, double green, double blue)
{
    return cs::RGB::Packed().FromRGB(red, green, blue);
}

// Lab(RGB) takes linear components; gamma-coded ones are converted through XYZ.
cs::Lab LabOfSRGB(const cs::RGB& color)
{
    return cs::XYZ::FromSRGB(color);
}

int main(int argc, char** argv)
{
    if (argc != 1 && argc != 4) {
        std::fprintf(stderr, "usage: colour_shades [RED GREEN BLUE]\n");
        return 64;
    }
    const cs::RGB measured =
        argc == 4 ? cs::RGB(std::atof(argv[1]), std::atof(argv[2]), std::atof(argv[3])) : cs::RGB(222, 205, 176);
    std::vector<Shade> shades = {
        {"bleached", Bytes(241, 236, 224)}, {"ivory", Bytes(229, 214, 186)}, {"cream", Bytes(222, 206, 170)},
        {"sand", Bytes(212, 190, 150)},     {"honey", Bytes(201, 172, 124)}, {"grey ivory", Bytes(211, 203, 182)},
        {"rose", Bytes(219, 194, 171)},     {"umber", Bytes(176, 146, 104)},
    };

    const cs::Lab reference = LabOfSRGB(measured);
    for (Shade& shade : shades) shade.difference = std::sqrt(reference.DistanceSq_CIEDE2000(LabOfSRGB(shade.color)));
    std::sort(shades.begin(), shades.end(), [](const Shade& a, const Shade& b) { return a.difference < b.difference; });
    for (const Shade& shade : shades)
        std::printf("%5.2f  %-10s  #%06x\n", shade.difference, shade.name, cs::RGB(shade.color).ToARGB() & 0xFFFFFFU);
}
