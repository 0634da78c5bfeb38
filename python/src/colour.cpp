#include "VoAlgorithms/colour/converttolab.h"
#include "VoAlgorithms/colour/din99o.h"
#include "VoAlgorithms/colour/hsl.h"
#include "VoAlgorithms/colour/hsv.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <cmath>
#include <cstdint>
#include <span>
#include <string>

namespace voalgo::python {

using namespace VoAlgo::cs;

namespace {

using Pixel = void (*)(const double* from, double* to);

struct Conversion {
    const char* from;
    const char* to;
    Pixel pixel;
};

template <class Colour>
void Store(const Colour& colour, double* to)
{
    for (std::size_t k = 0; k < 3; ++k) to[k] = colour[k];
}

template <class From, class To>
void Construct(const double* c, double* to)
{
    Store(To(From(c[0], c[1], c[2])), to);
}

template <class From>
void ConvertToRgb(const double* c, double* to)
{
    Store(From(c[0], c[1], c[2]).ToRGB(), to);
}

XYZ FromSrgb(const double* c)
{
    return XYZ::FromSRGB(RGB(c[0], c[1], c[2]));
}

constexpr Conversion Conversions[] = {
    {"RGB", "XYZ", &Construct<RGB, XYZ>},
    {"RGB", "Lab", &Construct<RGB, Lab>},
    {"RGB", "HSV", &Construct<RGB, HSV>},
    {"RGB", "HSL", &Construct<RGB, HSL>},
    {"sRGB", "XYZ", [](const double* c, double* to) { Store(FromSrgb(c), to); }},
    {"sRGB", "Lab", [](const double* c, double* to) { Store(Lab(FromSrgb(c)), to); }},
    {"sRGB", "DIN99o", [](const double* c, double* to) { Store(DIN99o(Lab(FromSrgb(c))), to); }},
    {"XYZ", "RGB", &ConvertToRgb<XYZ>},
    {"XYZ", "sRGB", [](const double* c, double* to) { Store(XYZ(c[0], c[1], c[2]).ToSRGB(), to); }},
    {"XYZ", "Lab", &Construct<XYZ, Lab>},
    {"Lab", "RGB", &ConvertToRgb<Lab>},
    {"Lab", "sRGB", [](const double* c, double* to) { Store(Lab(c[0], c[1], c[2]).ToXYZ().ToSRGB(), to); }},
    {"Lab", "XYZ", [](const double* c, double* to) { Store(Lab(c[0], c[1], c[2]).ToXYZ(), to); }},
    {"Lab", "DIN99o", &Construct<Lab, DIN99o>},
    {"DIN99o", "Lab", [](const double* c, double* to) { Store(DIN99o(c[0], c[1], c[2]).ToLab(), to); }},
    {"DIN99o", "sRGB",
     [](const double* c, double* to) { Store(DIN99o(c[0], c[1], c[2]).ToLab().ToXYZ().ToSRGB(), to); }},
    {"HSV", "RGB", &ConvertToRgb<HSV>},
    {"HSL", "RGB", &ConvertToRgb<HSL>},
};

Pixel Find(const std::string& from, const std::string& to)
{
    std::string known;
    for (const Conversion& c : Conversions) {
        if (from == c.from && to == c.to) return c.pixel;
        known += std::string(known.empty() ? "" : ", ") + c.from + " to " + c.to;
    }
    throw py::value_error("source, target: no conversion from " + from + " to " + to + "; there are " + known);
}

/// Images usually hold bytes.
Doubles ReadColours(const py::object& argument, const char* name)
{
    const py::array array = py::array::ensure(argument);
    if (!array || !py::isinstance<py::array_t<std::uint8_t, 0>>(array)) return ReadDoubles(argument, name, 3);
    return ReadDoubles(array.attr("astype")("float64"), name, 3);
}

py::array_t<double> Convert(const py::object& colours, const Text& sourceArgument, const Text& targetArgument)
{
    const std::string source = ReadText(sourceArgument, "source"), target = ReadText(targetArgument, "target");
    static_assert(sizeof(RGB) == 3 * sizeof(double) && sizeof(Lab) == 3 * sizeof(double));
    const Pixel pixel = Find(source, target);
    const Doubles from = ReadColours(colours, "colours");
    py::array_t<double> to({from.shape(0), py::ssize_t{3}});
    const auto n = static_cast<std::size_t>(from.shape(0));
    const double* in = from.data();
    double* out = to.mutable_data();
    const py::gil_scoped_release release;
    if (source == "RGB" && target == "Lab")
        ConvertToLab(std::span(reinterpret_cast<const RGB*>(in), n), std::span(reinterpret_cast<Lab*>(out), n));
    else
        for (std::size_t i = 0; i < n; ++i) pixel(in + 3 * i, out + 3 * i);
    return to;
}

py::array_t<double> Difference(const py::object& a, const py::object& b, const Text& formulaArgument)
{
    const std::string formula = ReadText(formulaArgument, "formula");
    const bool isCie = formula == "CIEDE2000";
    if (!isCie && formula != "DIN99o") throw py::value_error("formula: must be CIEDE2000 or DIN99o, is " + formula);
    const Doubles first = ReadDoubles(a, "a", 3), second = ReadDoubles(b, "b", 3);
    RequireSameLength(static_cast<std::size_t>(first.shape(0)), "a", static_cast<std::size_t>(second.shape(0)), "b");
    py::array_t<double> differences(first.shape(0));
    const double* p = first.data();
    const double* q = second.data();
    double* out = differences.mutable_data();
    const py::gil_scoped_release release;
    for (const double* end = out + first.shape(0); out != end; ++out, p += 3, q += 3) {
        const Lab x(p[0], p[1], p[2]), y(q[0], q[1], q[2]);
        *out = isCie ? std::sqrt(x.DistanceSq_CIEDE2000(y)) : DIN99o(x).Distance(DIN99o(y));
    }
    return differences;
}

} // namespace

void DefineColour(py::module_& m)
{
    m.def("convert_colours", &Convert, py::arg("colours"), py::arg("source"), py::arg("target"),
          R"(Converts colours from one space to another; white is D65.

Ranges: "RGB" (linear) and "sRGB" (gamma-coded, IEC 61966-2-1) 0 to 255, "XYZ" 0 to 100, "Lab" and "DIN99o" L 0 to 100,
"HSV" hue 0 to 360 degrees, S and V 0 to 1. "HSL" is irregular: RGB to HSL takes RGB of 0 to 1 and gives S and L of 0
to 1, whereas HSL to RGB takes S and L in percent and gives RGB of 0 to 1.

Parameters
----------
colours : (n, 3) array of float64, float32 or uint8
    float64 in C order is not copied.
source, target : str
    RGB to XYZ, Lab, HSV, HSL; sRGB to XYZ, Lab, DIN99o; XYZ to RGB, sRGB, Lab; Lab to RGB, sRGB, XYZ, DIN99o;
    DIN99o to Lab, sRGB; HSV to RGB; HSL to RGB.

Returns
-------
(n, 3) array of float64)");
    m.def("colour_difference", &Difference, py::arg("a"), py::arg("b"), py::arg("formula") = "CIEDE2000",
          R"(Computes the perceived differences of Lab colours, row by row.

Parameters
----------
a, b : (n, 3) arrays of float64 or float32
    L*a*b* under D65.
formula : {"CIEDE2000", "DIN99o"}, default "CIEDE2000"

Returns
-------
(n,) array of float64)");
}

} // namespace voalgo::python
