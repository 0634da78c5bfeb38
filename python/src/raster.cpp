#include "VoAlgorithms/raster/clineraster.h"
#include "VoAlgorithms/raster/ctriangle2d.h"
#include "VoAlgorithms/raster/distancetransform.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace voalgo::python {

using namespace VoAlgo;

namespace {

std::int32_t ReadSize(py::ssize_t size, const char* name)
{
    if (size > std::numeric_limits<std::int32_t>::max())
        throw py::value_error(std::string(name) + ": more than 2147483647 pixels in a direction");
    return static_cast<std::int32_t>(size);
}

/// A two-dimensional array of bool or uint8 whose rows have no gaps between pixels.
py::array ReadMask(const py::object& argument, const char* name)
{
    const py::array mask = py::array::ensure(argument);
    if (!mask || mask.ndim() != 2 || mask.itemsize() != 1 || (mask.dtype().kind() != 'b' && mask.dtype().kind() != 'u'))
        throw py::type_error(std::string(name) + ": must be a two-dimensional array of bool or uint8");
    return mask;
}

MaskView ViewOf(const py::array& mask, const char* name)
{
    return {static_cast<const std::uint8_t*>(mask.data()), ReadSize(mask.shape(1), name), ReadSize(mask.shape(0), name),
            static_cast<std::ptrdiff_t>(mask.strides(0))};
}

/// An array of a mask's shape that owns a vector.
template <class T>
py::array_t<T> Own(std::vector<T>&& values, const MaskView& shape)
{
    auto owner = std::make_unique<std::vector<T>>(std::move(values));
    const T* data = owner->data();
    const py::capsule capsule(owner.release(), [](void* p) { delete static_cast<std::vector<T>*>(p); });
    return py::array_t<T>({py::ssize_t{shape.height}, py::ssize_t{shape.width}}, data, capsule);
}

template <class T, class Transform>
py::object Run(const MaskView& view, const Transform& transform)
{
    std::vector<T> values;
    {
        const py::gil_scoped_release release;
        transform(values);
    }
    return Own(std::move(values), view);
}

py::object Distances(const py::object& argument, const Text& metricArgument, const py::object& pixelSize,
                     const Whole& threadsArgument)
{
    py::array mask = ReadMask(argument, "mask");
    if (mask.shape(1) > 1 && mask.strides(1) != 1) mask = mask.attr("copy")();
    const MaskView view = ViewOf(mask, "mask");
    const std::string metric = ReadText(metricArgument, "metric");
    const unsigned threads = ReadCount(threadsArgument, "threads");
    if (!pixelSize.is_none()) {
        if (metric != "squared") throw py::value_error("pixel_size: only for the metric squared");
        const Doubles size = ReadDoubles(pixelSize, "pixel_size", 0);
        if (size.shape(0) != 2) throw py::value_error("pixel_size: must be width and height");
        const double width = size.data()[0], height = size.data()[1];
        return Run<double>(view, [&](auto& d) { DistanceTransform(view, width, height, d, threads); });
    }
    if (metric == "squared") return Run<std::uint64_t>(view, [&](auto& d) { DistanceTransform(view, d, threads); });
    if (metric == "signed") return Run<std::int64_t>(view, [&](auto& d) { SignedDistanceTransform(view, d, threads); });
    if (metric == "city block") return Run<std::uint32_t>(view, [&](auto& d) { CityBlockTransform(view, d); });
    if (metric == "chessboard") return Run<std::uint32_t>(view, [&](auto& d) { ChessboardTransform(view, d); });
    if (metric != "nearest")
        throw py::value_error("metric: must be squared, nearest, signed, city block or chessboard, is " + metric);
    std::vector<std::uint64_t> squared;
    return Run<std::size_t>(view, [&](auto& nearest) { DistanceTransform(view, squared, nearest, threads); });
}

CTriangle2D::Point ReadPoint(const py::object& argument, const char* name)
{
    const Doubles values = ReadDoubles(argument, name, 0);
    if (values.shape(0) != 2) throw py::value_error(std::string(name) + ": must be x and y");
    return {values.data()[0], values.data()[1]};
}

/// Places when a number is real, else pixels.
CLineRaster ReadLine(const py::object& start, const py::object& end, CLineRaster::EConnection connection)
{
    const auto isWhole = [](const py::object& o) { return py::array::ensure(o).dtype().kind() == 'i'; };
    const CTriangle2D::Point a = ReadPoint(start, "start"), b = ReadPoint(end, "end");
    if (!isWhole(start) || !isWhole(end)) return {a[0], a[1], b[0], b[1], connection};
    const auto whole = [](double v) { return static_cast<std::int64_t>(v); };
    return {whole(a[0]), whole(a[1]), whole(b[0]), whole(b[1]), connection};
}

py::array_t<std::int32_t> LinePixels(const py::object& start, const py::object& end, const Text& connectionArgument,
                                     const py::object& shape)
{
    using EConnection = CLineRaster::EConnection;
    const std::string connection = ReadText(connectionArgument, "connection");
    if (connection != "8" && connection != "4" && connection != "supercover")
        throw py::value_error("connection: must be 8, 4 or supercover, is " + connection);
    CLineRaster line = ReadLine(start, end,
                                connection == "8"   ? EConnection::Eight
                                : connection == "4" ? EConnection::Four
                                                    : EConnection::Supercover);
    if (!shape.is_none()) {
        const py::sequence size(shape);
        if (size.size() != 2) throw py::value_error("shape: must be height and width");
        line.ClipTo({0, 0, ReadCount(size[1], "shape"), ReadCount(size[0], "shape")});
    }
    std::vector<std::int32_t> pixels;
    line.ForEachPixel([&](std::int32_t x, std::int32_t y) { pixels.insert(pixels.end(), {x, y}); });
    return py::array_t<std::int32_t>({static_cast<py::ssize_t>(pixels.size() / 2), py::ssize_t{2}}, pixels.data());
}

void FillTriangle(const py::object& maskArgument, const py::object& a, const py::object& b, const py::object& c,
                  const Whole& value)
{
    py::array mask = ReadMask(maskArgument, "mask");
    if (!mask.is(maskArgument) || !mask.writeable() || (mask.shape(1) > 1 && mask.strides(1) != 1))
        throw py::value_error("mask: must be a writable array without gaps between the pixels of a row");
    const auto pixel = static_cast<std::uint8_t>(ReadWhole(value, "value", 0, 255));
    const TImageView<std::uint8_t> view(static_cast<std::uint8_t*>(mask.mutable_data()),
                                        ReadSize(mask.shape(1), "mask"), ReadSize(mask.shape(0), "mask"),
                                        static_cast<std::ptrdiff_t>(mask.strides(0)));
    CTriangle2D(ReadPoint(a, "a"), ReadPoint(b, "b"), ReadPoint(c, "c"))
        .ForEachRun({0, 0, view.width, view.height}, [&](std::int32_t y, std::int64_t xBegin, std::int64_t xEnd) {
            std::fill(view.Row(y) + xBegin, view.Row(y) + xEnd, pixel);
        });
}

} // namespace

void DefineRaster(py::module_& m)
{
    m.def("distance_transform", &Distances, py::arg("mask"), py::kw_only(), py::arg("metric") = "squared",
          py::arg("pixel_size") = py::none(), py::arg("threads") = 1,
          R"(Distances of all pixels to the nearest one of a mask that is not 0, between centres; exact.

Parameters
----------
mask : (height, width) array of bool or uint8
    Not copied, whatever the bytes from row to row.
metric : str
    "squared": squared Euclidean distances, uint64, 2**64 - 1 for an empty mask. "nearest": the index of the nearest
    pixel, uint64, of equally near ones that with the smallest x, then y; 2**64 - 1 when there is none. "signed": int64,
    on the mask minus the squared distance to the nearest 0. "city block", "chessboard": steps, uint32, 2**32 - 1 for an
    empty mask.
pixel_size : (width, height), optional
    Of unequal pixels: squared distances as float64.
threads : int
    0: as many as the machine has; without influence on the result.

Returns
-------
(height, width) array)");
    m.def("line_pixels", &LinePixels, py::arg("start"), py::arg("end"), py::kw_only(), py::arg("connection") = "8",
          py::arg("shape") = py::none(),
          R"(The pixels of a straight line, in order.

Parameters
----------
start, end : (x, y)
    Integers name pixels; real numbers are places, where pixel (x, y) is the square from there to (x + 1, y + 1).
connection : str
    "8", "4" or "supercover" (all pixels that the line touches).
shape : (height, width), optional
    Of an image, to leave out what is outside.

Returns
-------
(n, 2) array of int32
    x and y; empty when an end is no pixel of 32-bit coordinates, which is logged.)");
    m.def("fill_triangle", &FillTriangle, py::arg("mask"), py::arg("a"), py::arg("b"), py::arg("c"),
          py::arg("value") = 1,
          R"(Sets the pixels of a mask whose centres lie in a triangle; the mask is changed in place.

Centres on the border belong to it where this is a left or a top edge, so that triangles side by side set each pixel
once.)");
    m.def(
        "orientation",
        [](const py::object& a, const py::object& b, const py::object& c) {
            return CTriangle2D::Orientation(ReadPoint(a, "a"), ReadPoint(b, "b"), ReadPoint(c, "c"));
        },
        py::arg("a"), py::arg("b"), py::arg("c"),
        "1 when a, b, c turn left where y points up, -1 when right, 0 on one line; exact for all finite numbers.");
    m.def(
        "in_circle",
        [](const py::object& a, const py::object& b, const py::object& c, const py::object& d) {
            return CTriangle2D::InCircle(ReadPoint(a, "a"), ReadPoint(b, "b"), ReadPoint(c, "c"), ReadPoint(d, "d"));
        },
        py::arg("a"), py::arg("b"), py::arg("c"), py::arg("d"),
        "1 when d lies within the circle of a, b, c of orientation 1, -1 outside, 0 on it; exact for all finite "
        "numbers. The opposite for orientation -1.");
}

} // namespace voalgo::python
