#include "cloud_argument.h"

#include <string>

namespace voalgo::python {

namespace {

Cloud ReadRawCloud(const py::object& argument, const char* name)
{
    const std::string argumentName = name;
    if (py::isinstance<PointSet>(argument)) {
        const auto& set = argument.cast<const PointSet&>();
        return {set.GetPoints(), set.GetNormals()};
    }
    if (py::isinstance<py::tuple>(argument)) {
        const auto pair = argument.cast<py::tuple>();
        if (pair.size() != 2)
            throw py::value_error(argumentName + ": a tuple must be (points, normals), has " +
                                  std::to_string(pair.size()) + " members");
        Cloud cloud{ReadVectors(pair[0], (argumentName + "[0]").c_str()), {}};
        cloud.normals = ReadNormals(pair[1], (argumentName + "[1]").c_str(), cloud.points.size());
        return cloud;
    }
    const py::array array = py::array::ensure(argument);
    if (!array || array.ndim() != 2 || array.shape(1) != 6) return {ReadVectors(argument, name), {}};
    const py::slice rows(0, array.shape(0), 1);
    const auto columns = [&](py::ssize_t first) {
        return py::object(array[py::make_tuple(rows, py::slice(first, first + 3, 1))]);
    };
    return {ReadVectors(columns(0), name), ReadVectors(columns(3), name)};
}

} // namespace

std::vector<Vec3> ReadNormals(const py::object& normals, const char* name, std::size_t numPoints)
{
    if (normals.is_none()) return {};
    std::vector<Vec3> vectors = ReadVectors(normals, name);
    RequireSameLength(numPoints, "the points", vectors.size(), name);
    return vectors;
}

std::optional<Vec3> ReadViewpoint(const py::object& viewpoint)
{
    if (viewpoint.is_none()) return std::nullopt;
    return ReadVector(viewpoint, "viewpoint");
}

PreparedCloud ReadCloud(const py::object& argument, const char* name, const std::optional<Vec3>& viewpoint)
{
    Cloud raw = ReadRawCloud(argument, name);
    PreparedCloud prepared;
    Remarks remarks;
    {
        const py::gil_scoped_release release;
        prepared = PrepareCloud(std::move(raw), name, 1.0, viewpoint);
        remarks = Describe(prepared);
    }
    for (const std::string& warning : remarks.warnings) {
        const std::string text = warning.substr(0, warning.find(" (--unit)")); // an option of the tool alone
        if (PyErr_WarnEx(PyExc_UserWarning, (std::string(name) + ": " + text).c_str(), 1) != 0)
            throw py::error_already_set();
    }
    return prepared;
}

} // namespace voalgo::python
