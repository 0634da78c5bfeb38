#include "arrays.h"

#include "platform/finite.h"
#include "scalars.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace voalgo::python {

namespace {

std::string ShapeOf(const py::array& array)
{
    return py::str(array.attr("shape")).cast<std::string>();
}

bool IsWhole(const py::array& array)
{
    return array.dtype().kind() == 'i' || array.dtype().kind() == 'u';
}

bool IsNoNumber(const py::array& array)
{
    return array.dtype().kind() == 'O' || array.dtype().kind() == 'U' || array.dtype().kind() == 'S';
}

template <class T>
std::vector<Vec3> ReadRows(const py::array& array)
{
    const auto rows = py::array_t<T, 0>(array).template unchecked<2>();
    std::vector<Vec3> vectors(static_cast<std::size_t>(rows.shape(0)));
    for (py::ssize_t i = 0; i < rows.shape(0); ++i)
        vectors[static_cast<std::size_t>(i)] =
            Vec3(static_cast<float>(rows(i, 0)), static_cast<float>(rows(i, 1)), static_cast<float>(rows(i, 2)));
    return vectors;
}

/// Otherwise a scaled, mirrored or transposed matrix would pass as a wrong pose.
void RequireRigid(const Doubles& matrix, const std::string& name)
{
    constexpr double Tolerance = 1e-3;
    const auto m = matrix.unchecked<2>();
    for (py::ssize_t c = 0; c < 4; ++c)
        if (m(3, c) != (c == 3 ? 1.0 : 0.0)) throw py::value_error(name + ": the last row must be 0 0 0 1");
    for (py::ssize_t i = 0; i < 3; ++i)
        for (py::ssize_t j = 0; j < 3; ++j) {
            const double dot = m(i, 0) * m(j, 0) + m(i, 1) * m(j, 1) + m(i, 2) * m(j, 2);
            if (!(std::abs(dot - (i == j ? 1.0 : 0.0)) <= Tolerance))
                throw py::value_error(name + ": the upper left 3x3 is not a rotation");
        }
    const double determinant = m(0, 0) * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)) -
                               m(0, 1) * (m(1, 0) * m(2, 2) - m(1, 2) * m(2, 0)) +
                               m(0, 2) * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0));
    if (determinant < 0.0) throw py::value_error(name + ": the upper left 3x3 is a reflection, not a rotation");
}

Doubles ReadMatrix(const py::object& argument, const char* name)
{
    Doubles matrix = ReadDoubles(argument, name, 4);
    if (matrix.shape(0) != 4)
        throw py::value_error(std::string(name) + ": shape must be (4, 4), is " + ShapeOf(matrix));
    return matrix;
}

VoAlgo::CbMatrix4Rd PoseOf(const Doubles& matrix)
{
    VoAlgo::CbMatrix4Rd pose;
    std::copy(matrix.data(), matrix.data() + 16, pose.Data());
    return pose;
}

} // namespace

py::array ReadNumbers(const py::object& argument, const char* name, py::ssize_t columns)
{
    const std::string argumentName = name;
    py::array array = py::array::ensure(argument);
    const bool isArray = py::hasattr(argument, "dtype");
    if (!array || (!isArray && IsNoNumber(array)))
        throw py::type_error(argumentName + ": must be an array of float32 or float64, is " + TypeOf(argument));
    // Numbers in a list have no width: whole ones are as good as others.
    if (!isArray && IsWhole(array)) array = array.attr("astype")("float64");
    if (!py::isinstance<py::array_t<float, 0>>(array) && !py::isinstance<py::array_t<double, 0>>(array))
        throw py::type_error(argumentName + ": dtype must be float32 or float64, is " +
                             py::str(array.dtype()).cast<std::string>());
    if (columns == 0) {
        if (array.ndim() != 1) throw py::value_error(argumentName + ": shape must be (n,), is " + ShapeOf(array));
    } else if (array.ndim() != 2 || (columns > 0 ? array.shape(1) != columns : array.shape(1) == 0)) {
        throw py::value_error(argumentName + ": shape must be (n, " + (columns > 0 ? std::to_string(columns) : "d") +
                              "), is " + ShapeOf(array));
    }
    return array;
}

Doubles ReadDoubles(const py::object& argument, const char* name, py::ssize_t columns)
{
    return Doubles(ReadNumbers(argument, name, columns));
}

Floats ReadFloats(const py::object& argument, const char* name, py::ssize_t columns)
{
    return Floats(ReadNumbers(argument, name, columns));
}

std::vector<Vec3> ReadVectors(const py::object& argument, const char* name)
{
    const py::array array = ReadNumbers(argument, name, 3);
    return py::isinstance<py::array_t<float, 0>>(array) ? ReadRows<float>(array) : ReadRows<double>(array);
}

VoAlgo::CTrafo ReadTrafo(const py::object& argument, const char* name)
{
    const VoAlgo::CTrafo pose = ReadPose(argument, name);
    if (!pose) throw py::value_error(std::string(name) + ": is not finite");
    return pose;
}

VoAlgo::CbMatrix4Rd ReadPose(const py::object& argument, const char* name)
{
    VoAlgo::CbMatrix4Rd pose;
    if (py::isinstance<VoAlgo::CTrafo>(argument)) {
        pose = argument.cast<VoAlgo::CTrafo>();
    } else {
        const Doubles matrix = ReadMatrix(argument, name);
        RequireRigid(matrix, name);
        pose = PoseOf(matrix);
    }
    if (!VoAlgo::AllFinite(pose.Data(), 16)) throw py::value_error(std::string(name) + ": is not finite");
    return pose;
}

VoAlgo::CbMatrix4Rd ReadStoredPose(const py::object& matrix)
{
    return PoseOf(ReadMatrix(matrix, "pose"));
}

std::array<double, 3> ReadPosition(const py::object& argument, const char* name)
{
    const Doubles v = ReadDoubles(argument, name, 0);
    if (v.shape(0) != 3)
        throw py::value_error(std::string(name) + ": needs 3 values, has " + std::to_string(v.shape(0)));
    const std::array<double, 3> vector = {v.at(0), v.at(1), v.at(2)};
    if (!VoAlgo::AllFinite(vector.data(), 3)) throw py::value_error(std::string(name) + ": must be finite");
    return vector;
}

Vec3 ReadVector(const py::object& argument, const char* name)
{
    const std::array<double, 3> v = ReadPosition(argument, name);
    const Vec3 vector(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
    if (!vector.IsValid()) throw py::value_error(std::string(name) + ": must be finite");
    return vector;
}

void RequireSameLength(std::size_t a, const char* nameA, std::size_t b, const char* nameB)
{
    if (a != b)
        throw py::value_error(std::string(nameB) + ": has " + std::to_string(b) + " rows, but " + nameA + " has " +
                              std::to_string(a));
}

py::array ViewVectors(const std::vector<Vec3>& vectors, const py::handle& owner)
{
    static_assert(sizeof(Vec3) == 4 * sizeof(float));
    const auto n = static_cast<py::ssize_t>(vectors.size());
    py::array_t<float> view({n, py::ssize_t{3}}, {py::ssize_t{sizeof(Vec3)}, py::ssize_t{sizeof(float)}},
                            n > 0 ? &vectors[0].x : nullptr, owner);
    view.attr("setflags")(py::arg("write") = false);
    return view;
}

py::array_t<float> CopyVectors(const std::vector<Vec3>& vectors)
{
    py::array_t<float> array({static_cast<py::ssize_t>(vectors.size()), py::ssize_t{3}});
    float* out = array.mutable_data();
    for (const Vec3& v : vectors)
        for (unsigned k = 0; k < 3; ++k) *out++ = v[k];
    return array;
}

py::array_t<double> MatrixOf(const VoAlgo::CbMatrix4Rd& pose)
{
    py::array_t<double> matrix({4, 4});
    auto m = matrix.mutable_unchecked<2>();
    for (unsigned r = 0; r < 4; ++r)
        for (unsigned c = 0; c < 4; ++c) m(r, c) = pose(r, c);
    return matrix;
}

} // namespace voalgo::python
