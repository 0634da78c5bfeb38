#include "VoAlgorithms/colour/lab.h"

#include <cmath>
#include <numbers>

namespace VoAlgo::cs {
namespace {

constexpr double DegreesPerRadian = 180 / std::numbers::pi;

double CosDegrees(double angle)
{
    return std::cos(angle / DegreesPerRadian);
}

double SinDegrees(double angle)
{
    return std::sin(angle / DegreesPerRadian);
}

double Norm(double x, double y)
{
    return std::sqrt(x * x + y * y);
}

/// √(C⁷ ÷ (C⁷ + 25⁷))
double ChromaWeight(double chroma)
{
    const double cube = chroma * chroma * chroma;
    const double power7 = cube * cube * chroma;
    return std::sqrt(power7 / (power7 + 6103515625.0));
}

/// 0 ≤ h′ < 360, 0 for grey (7)
double HueDegrees(double a, double b)
{
    if (a == 0 && b == 0) return 0;
    const double h = std::atan2(b, a) * DegreesPerRadian;
    return h < 0 ? h + 360 : h;
}

/// Δh′ (10); for colours with chroma
double HueDifference(double h1, double h2)
{
    const double d = h2 - h1;
    return d > 180 ? d - 360 : (d < -180 ? d + 360 : d);
}

/// h̄′ (14); for colours with chroma
double MeanHue(double h1, double h2)
{
    const double sum = h1 + h2;
    if (std::abs(h1 - h2) <= 180) return sum / 2;
    return (sum < 360 ? sum + 360 : sum - 360) / 2;
}

} // namespace

double Lab::DistanceSq_CIEDE2000(const Lab& other) const noexcept
{
    const double G = 0.5 * (1 - ChromaWeight((Norm(a, b) + Norm(other.a, other.b)) / 2)); // (4)
    const double a1 = (1 + G) * a, a2 = (1 + G) * other.a;                                // (5)
    const double C1 = Norm(a1, b), C2 = Norm(a2, other.b), h1 = HueDegrees(a1, b), h2 = HueDegrees(a2, other.b);
    const bool grey = C1 * C2 == 0;

    const double dL = other.L - L, dC = C2 - C1;                                                 // (8), (9)
    const double dH = grey ? 0 : 2 * std::sqrt(C1 * C2) * SinDegrees(HueDifference(h1, h2) / 2); // (11)

    const double meanL = (L + other.L) / 2, meanC = (C1 + C2) / 2, h = grey ? h1 + h2 : MeanHue(h1, h2);
    const double T = 1 - 0.17 * CosDegrees(h - 30) + 0.24 * CosDegrees(2 * h) + 0.32 * CosDegrees(3 * h + 6) -
                     0.2 * CosDegrees(4 * h - 63); // (15)
    const double turn = (h - 275) / 25;
    const double RT = -SinDegrees(60 * std::exp(-turn * turn)) * 2 * ChromaWeight(meanC); // (16), (17), (21)
    const double lightness = (meanL - 50) * (meanL - 50);
    const double SL = 1 + 0.015 * lightness / std::sqrt(20 + lightness); // (18)
    const double SC = 1 + 0.045 * meanC, SH = 1 + 0.015 * meanC * T;     // (19), (20)

    const double l = dL / SL, c = dC / SC, s = dH / SH;
    return l * l + c * c + s * s + RT * c * s; // (22), squared
}

} // namespace VoAlgo::cs
