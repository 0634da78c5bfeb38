#include "VoAlgorithms/colour/curvetext.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace voalgo::python {

using namespace VoAlgo::cs;

namespace {

CurveText Make(const py::object& pointsArgument, const py::object& rangeArgument, const Text& channel, const Text& unit)
{
    const Doubles points = ReadDoubles(pointsArgument, "points", 2);
    const Doubles range = ReadDoubles(rangeArgument, "range", 0);
    if (range.shape(0) != 2) throw py::value_error("range: must be two numbers");
    std::vector<CChannelTransferCurve::Point> places;
    for (py::ssize_t i = 0; i < points.shape(0); ++i) places.push_back({points.at(i, 0), points.at(i, 1)});
    try {
        return {CChannelTransferCurve({range.at(0), range.at(1)}, places), ReadText(channel, "channel"),
                ReadText(unit, "unit")};
    } catch (const std::invalid_argument& wrong) {
        throw py::value_error(std::string("points: ") + wrong.what());
    }
}

py::array_t<double> Points(const CurveText& text)
{
    const auto n = static_cast<py::ssize_t>(text.curve.NumPoints());
    py::array_t<double> points({n, py::ssize_t{2}});
    for (py::ssize_t i = 0; i < n; ++i) {
        const CChannelTransferCurve::Point point = text.curve.GetPoint(static_cast<std::size_t>(i));
        points.mutable_at(i, 0) = point.x;
        points.mutable_at(i, 1) = point.y;
    }
    return points;
}

py::array_t<double> Values(const CurveText& text, const py::object& x)
{
    const Doubles from = ReadDoubles(x, "x", 0);
    py::array_t<double> to(from.shape(0));
    const double* in = from.data();
    double* out = to.mutable_data();
    const py::gil_scoped_release release;
    for (const double* end = in + from.shape(0); in != end; ++in, ++out) *out = text.curve(*in);
    return to;
}

} // namespace

void DefineTransferCurve(py::module_& m)
{
    py::class_<CurveText>(m, "TransferCurve", R"(A curve through control points for one colour channel.

A piecewise cubic, monotone between neighbouring points and constant outside of them.)")
        .def(py::init(&Make), py::arg("points"), py::arg("range") = py::make_tuple(0.0, 1.0), py::arg("channel") = "",
             py::arg("unit") = "", R"(Makes a curve.

Parameters
----------
points : (n, 2) array of float64
    Control points x, y, from left to right, inside the range.
range : two numbers, default (0, 1)
    The range of x and of y.
channel, unit : str
    What the text form says of the channel.)")
        .def_static(
            "from_text",
            [](const Text& text) {
                try {
                    return ReadCurve(ReadText(text, "text"));
                } catch (const std::invalid_argument& wrong) {
                    throw py::value_error(std::string("text: ") + wrong.what());
                }
            },
            py::arg("text"), "Reads the text form; a ValueError names line and column of a fault.")
        .def("to_text", &WriteCurve, "The text form, from which from_text gets the same bits.")
        .def("__call__", &Values, py::arg("x"), "The values at an array of x, as float64.")
        .def_property_readonly("points", &Points, "(n, 2) array of float64: the control points.")
        .def_property_readonly(
            "range",
            [](const CurveText& text) { return py::make_tuple(text.curve.Range().min, text.curve.Range().max); },
            "The range of x and of y.")
        .def_readonly("channel", &CurveText::channel, "Name of the channel.")
        .def_readonly("unit", &CurveText::unit, "Unit of the channel.");
}

} // namespace voalgo::python
