#include "VoAlgorithms/verdict/estimatenormals.h"
#include "VoAlgorithms/verdict/voxeldown.h"
#include "exchange/files/files.h"
#include "exchange/files/length_unit.h"
#include "exchange/files/read_cloud.h"
#include "exchange/files/write_ply.h"
#include "module.h"
#include "paths.h"
#include "scalars.h"
#include "scan_argument.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace voalgo::python {

using prereg::Scan;
/// Python sees a scan as immutable.
using ScanPtr = std::shared_ptr<Scan>;

namespace {

double ReadUnit(const Text& unit)
{
    const std::string name = ReadText(unit, "unit");
    if (const std::optional<LengthUnit> known = UnitOf(name)) return known->mm;
    throw py::value_error("unit: must be mm, cm or m, is " + name);
}

/// Half of a float's digits at the border of a scan around 0.
double ToleranceOf(const Scan& scan)
{
    Vec3 low, high;
    for (std::size_t i = 0; i < scan.points.size(); ++i)
        for (unsigned k = 0; k < 3; ++k) {
            low[k] = i == 0 ? scan.points[i][k] : std::min(low[k], scan.points[i][k]);
            high[k] = i == 0 ? scan.points[i][k] : std::max(high[k], scan.points[i][k]);
        }
    return 1e-7 * static_cast<double>((high - low).Norm());
}

ScanPtr MakeScan(const py::object& points, const py::object& normals, const py::object& viewpoint, const Text& name)
{
    auto scan = std::make_shared<Scan>(ReadScan(points, normals));
    if (!viewpoint.is_none()) scan->viewpoint = ReadViewpoint(viewpoint);
    scan->name = ReadText(name, "name");
    return scan;
}

ScanPtr Read(const py::object& path, const Text& unit, const py::object& viewpoint)
{
    const std::string file = ReadPath(path);
    const double mmPerUnit = ReadUnit(unit);
    std::optional<Position> from = ReadViewpoint(viewpoint);
    if (from)
        for (double& v : *from) v *= mmPerUnit;
    OpenAndClose(path, "rb");
    const py::gil_scoped_release release;
    auto scan = std::make_shared<Scan>(ReadCloud(file, mmPerUnit));
    scan->viewpoint = from;
    scan->name = file;
    return scan;
}

void Write(const py::object& path, const py::object& points, const py::object& normals, const Text& unit)
{
    const std::string file = ReadPath(path);
    if (Ending(file) != ".ply") throw py::value_error("path: must end in .ply, is " + file);
    const double mmPerUnit = ReadUnit(unit);
    const Scan scan = ReadScan(points, normals);
    WriteFile([&] { WritePly(file, scan, {mmPerUnit, ToleranceOf(scan)}); });
}

void RequireFinite(const std::vector<Vec3>& points)
{
    for (const Vec3& p : points)
        if (!p.IsValid()) throw py::value_error("points: must be finite");
}

py::tuple Thinned(const py::object& points, const py::object& normals, const Real& edge)
{
    const double side = ReadPositive(edge, "edge");
    const Scan scan = ReadScan(points, normals);
    RequireFinite(scan.points);
    Scan thinned;
    {
        const py::gil_scoped_release release;
        thinned = VoxelDown(scan, side);
    }
    return py::make_tuple(CopyCoordinates(thinned),
                          scan.normals.empty() ? py::object(py::none()) : py::object(CopyVectors(thinned.normals)));
}

py::array_t<float> EstimatedNormals(const py::object& points, const py::object& viewpoint, const Whole& neighbours)
{
    const unsigned count = ReadCount(neighbours, "neighbours", 3);
    Scan scan = ReadPoints(points, "points");
    scan.viewpoint = ReadViewpoint(viewpoint);
    RequireFinite(scan.points);
    std::vector<Vec3> normals;
    {
        const py::gil_scoped_release release;
        normals = prereg::EstimateNormals(scan.points, scan.LocalViewpoint(), count);
    }
    return CopyVectors(normals);
}

ScanPtr Transformed(const Scan& scan, const py::object& pose)
{
    const VoAlgo::CbMatrix4Rd matrix = ReadPose(pose, "pose");
    const py::gil_scoped_release release;
    const auto apply = [&](const Position& p) {
        const auto row = [&](unsigned r) {
            return matrix(r, 0) * p[0] + matrix(r, 1) * p[1] + matrix(r, 2) * p[2] + matrix(r, 3);
        };
        return Position{row(0), row(1), row(2)};
    };
    auto moved = std::make_shared<Scan>(scan);
    const VoAlgo::CTrafo rotation = VoAlgo::CTrafo(matrix).GetRotationPart();
    for (Vec3& p : moved->points) p = rotation * p;
    for (Vec3& n : moved->normals) n = rotation * n;
    moved->origin = apply(scan.origin);
    if (moved->viewpoint) moved->viewpoint = apply(*moved->viewpoint);
    return moved;
}

py::object ViewpointOf(const Scan& scan)
{
    if (!scan.viewpoint) return py::none();
    return py::array_t<double>(3, scan.viewpoint->data());
}

void DefineClass(py::module_& m)
{
    py::class_<Scan, ScanPtr>(m, "Scan", R"(Points of a scan, with normals if it has any. Immutable.

`points` and `normals` are read-only; copy an array to change it. A scan given in float64 keeps its digits however far
from 0 it lies: it is stored relative to its centre.

Parameters
----------
points : (n, 3) or (n, 6) array of float32 or float64
    Millimetres. Columns 4 to 6 are normals. Points that are not finite are kept here and dropped by `register`.
normals : (n, 3) array, optional
    Unit normals. Default: none; `register` then estimates them.
viewpoint : (3,) array, optional
    Position of the scanner, millimetres; estimated normals point towards it.
name : str, optional
    What messages and reports call the scan.)")
        .def(py::init(&MakeScan), py::arg("points"), py::arg("normals") = py::none(), py::kw_only(),
             py::arg("viewpoint") = py::none(), py::arg("name") = "")
        .def_property_readonly(
            "points",
            [](const py::object& self) {
                const Scan& scan = self.cast<const Scan&>();
                if (scan.origin == Position{}) return ViewVectors(scan.points, self);
                py::array copy = CopyCoordinates(scan);
                copy.attr("setflags")(py::arg("write") = false);
                return copy;
            },
            "(n, 3) read-only array, millimetres: a view of float32, or float64 for a scan that was given in float64.")
        .def_property_readonly(
            "normals",
            [](const py::object& self) -> py::object {
                const Scan& scan = self.cast<const Scan&>();
                if (scan.normals.empty()) return py::none();
                return ViewVectors(scan.normals, self);
            },
            "(n, 3) read-only view of float32, or None when the scan has no normals.")
        .def_property_readonly("viewpoint", &ViewpointOf,
                               "(3,) array of float64, millimetres, or None when it is unknown.")
        .def_property_readonly(
            "name", [](const Scan& scan) { return NameOf(scan); },
            "str: the path that the scan was read from, or the name it was given.")
        .def("transformed", &Transformed, py::arg("pose"), R"(The scan moved by a pose.

Parameters
----------
pose : Trafo or (4, 4) array

Returns
-------
Scan)")
        .def("__len__", [](const Scan& scan) { return scan.points.size(); })
        .def(py::pickle(
            [](const Scan& scan) {
                return py::make_tuple(CopyVectors(scan.points), CopyVectors(scan.normals), ViewpointOf(scan),
                                      py::bytes(scan.name), scan.origin);
            },
            [](const py::tuple& state) {
                auto scan = std::make_shared<Scan>();
                scan->points = ReadVectors(state[0], "points");
                scan->normals = ReadVectors(state[1], "normals");
                scan->viewpoint = ReadViewpoint(state[2]);
                scan->name = state[3].cast<std::string>();
                scan->origin = state[4].cast<Position>();
                return scan;
            }))
        .def("__repr__", [](const Scan& scan) {
            return "<Scan: " + std::to_string(scan.points.size()) + " points" +
                   (scan.normals.empty() ? "" : " with normals") + ">";
        });
}

} // namespace

void DefineScan(py::module_& m)
{
    DefineClass(m);
    m.def("read", &Read, py::arg("path"), py::arg("unit") = "mm", py::arg("viewpoint") = py::none(),
          R"(Reads a scan from a file.

The kind of file follows from its ending: .ply, .obj and .stl, or text with x y z and perhaps nx ny nz on each line
(.xyz, .xyzn, .txt, .asc, .csv). The scan of a mesh is its vertices, with the normals of the surface.

Parameters
----------
path : str or path-like
unit : {"mm", "cm", "m"}, default "mm"
    Unit of the file; the scan is in millimetres.
viewpoint : (3,) array, optional
    Position of the scanner, in the unit of the file; estimated normals point towards it.

Returns
-------
Scan
    Points in the order of the file, including those that are not finite.

Raises
------
OSError
    When the file cannot be opened.
ValueError
    When it cannot be understood or holds no points; the message names the file and the line.)");
    m.def("write", &Write, py::arg("path"), py::arg("points"), py::arg("normals") = py::none(), py::kw_only(),
          py::arg("unit") = "mm", R"(Writes points, with their normals if there are any, as binary PLY.

Parameters
----------
path : str or path-like
    Ends in .ply. An existing file is replaced.
points : (n, 3) array, or a scan in any form that `register` takes
    Millimetres; stored in double precision where single precision would move a point noticeably.
normals : (n, 3) array, optional
unit : {"mm", "cm", "m"}, default "mm"
    Unit of the file.

Raises
------
OSError
    When the file cannot be written.)");
    m.def("voxel_down", &Thinned, py::arg("points"), py::arg("normals"), py::arg("edge"),
          R"(Thins a cloud to one point per cube of a grid: the mean of its points and the unit mean of its normals.

Parameters
----------
points : (n, 3) array of float32 or float64
    Finite.
normals : (n, 3) array or None
edge : float
    Edge of the cubes, in the unit of the points; greater than 0.

Returns
-------
points : (m, 3) array of float32, or of float64 for points of float64
normals : (m, 3) array of float32, or None
    A zero normal where the normals of a cube cancel out.)");
    m.def("estimate_normals", &EstimatedNormals, py::arg("points"), py::kw_only(), py::arg("viewpoint") = py::none(),
          py::arg("neighbours") = 16, R"(Estimates the unit normals of a surface from the neighbours of each point.

Parameters
----------
points : (n, 3) array of float32 or float64
    Millimetres; finite.
viewpoint : (3,) array, optional
    Position of the scanner, millimetres: normals point towards it. Default: neighbouring normals agree, and those of
    each connected piece point away from its centroid.
neighbours : int, default 16
    Points of each local fit, the point itself included; at least 3.

Returns
-------
(n, 3) array of float32
    Zero where the neighbours define no plane.)");
}

} // namespace voalgo::python
