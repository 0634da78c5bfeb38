#include "scan_argument.h"

#include "VoAlgorithms/verdict/scanfault.h"

#include <string>
#include <utility>

namespace voalgo::python {

namespace {

std::vector<Vec3> ReadNormals(const py::object& normals, const char* name, std::size_t numPoints)
{
    if (normals.is_none()) return {};
    std::vector<Vec3> vectors = ReadVectors(normals, name);
    RequireSameLength(numPoints, "the points", vectors.size(), name);
    return vectors;
}

prereg::Scan ReadPair(const py::tuple& pair, const std::string& name)
{
    if (pair.size() != 2)
        throw py::value_error(name + ": a tuple must be (points, normals), has " + std::to_string(pair.size()) +
                              " members");
    prereg::Scan scan = ReadPoints(pair[0], (name + "[0]").c_str());
    scan.normals = ReadNormals(pair[1], (name + "[1]").c_str(), scan.points.size());
    return scan;
}

} // namespace

std::optional<Position> ReadViewpoint(const py::object& viewpoint)
{
    if (viewpoint.is_none()) return std::nullopt;
    return ReadPosition(viewpoint, "viewpoint");
}

prereg::Scan ReadPoints(const py::object& argument, const char* name)
{
    const py::array array = ReadNumbers(argument, name, 3);
    if (py::isinstance<py::array_t<float, 0>>(array)) return {ReadVectors(array, name), {}};
    const Doubles doubles(array);
    return prereg::Scan::From(doubles.data(), static_cast<std::size_t>(doubles.shape(0)));
}

py::array CopyCoordinates(const prereg::Scan& scan)
{
    if (scan.origin == Position{}) return CopyVectors(scan.points);
    py::array_t<double> array({static_cast<py::ssize_t>(scan.points.size()), py::ssize_t{3}});
    double* out = array.mutable_data();
    for (std::size_t i = 0; i < scan.points.size(); ++i)
        for (const double v : scan.At(i)) *out++ = v;
    return array;
}

prereg::Scan ReadScan(const py::object& argument, const char* name)
{
    if (py::isinstance<prereg::Scan>(argument)) return argument.cast<const prereg::Scan&>();
    if (py::isinstance<PointSet>(argument)) {
        const auto& set = argument.cast<const PointSet&>();
        return {set.GetPoints(), set.GetNormals()};
    }
    if (py::isinstance<py::tuple>(argument)) return ReadPair(argument.cast<py::tuple>(), name);
    const py::array array = py::array::ensure(argument);
    if (!array || array.ndim() != 2 || array.shape(1) != 6) return ReadPoints(argument, name);
    const py::slice rows(0, array.shape(0), 1);
    const auto columns = [&](py::ssize_t first) {
        return py::object(array[py::make_tuple(rows, py::slice(first, first + 3, 1))]);
    };
    prereg::Scan scan = ReadPoints(columns(0), name);
    scan.normals = ReadVectors(columns(3), name);
    return scan;
}

prereg::Scan ReadScan(const py::object& points, const py::object& normals)
{
    if (normals.is_none()) return ReadScan(points, "points");
    prereg::Scan scan = ReadPoints(points, "points");
    scan.normals = ReadNormals(normals, "normals", scan.points.size());
    return scan;
}

prereg::PreparedScan Prepare(prereg::Scan scan, const char* name, const std::optional<Position>& viewpoint,
                             bool keepOrigin)
{
    if (scan.name.empty()) scan.name = name;
    if (!scan.viewpoint) scan.viewpoint = viewpoint;
    prereg::PreparedScan prepared;
    prereg::Remarks remarks;
    {
        const py::gil_scoped_release release;
        prepared = prereg::PrepareScan(std::move(scan), keepOrigin);
        if (!prepared.scan.points.empty()) remarks = Describe(prepared);
    }
    for (const std::string& warning : remarks.warnings)
        if (PyErr_WarnEx(PyExc_UserWarning, (prepared.scan.name + ": " + warning).c_str(), 1) != 0)
            throw py::error_already_set();
    return prepared;
}

prereg::PreparedScan ReadPrepared(const py::object& argument, const char* name,
                                  const std::optional<Position>& viewpoint)
{
    if (py::isinstance<PointSet>(argument))
        if (auto set = argument.cast<PointSetPtr>(); set->SizeFeatures() > 0)
            return prereg::PreparedFrom(std::move(set), name);
    return Prepare(ReadScan(argument, name), name, viewpoint);
}

void RequirePoints(const prereg::PreparedScan& scan)
{
    if (scan.scan.points.empty()) throw py::value_error(scan.scan.name + ": " + FindFault(scan).text);
}

} // namespace voalgo::python
