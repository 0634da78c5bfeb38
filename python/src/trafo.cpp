#include "arrays.h"
#include "module.h"

#include <array>
#include <string>

namespace voalgo::python {

using VoAlgo::CTrafo;

namespace {

std::vector<Vec3> Applied(const CTrafo& pose, std::vector<Vec3> vectors, bool rotateOnly)
{
    for (Vec3& v : vectors) v = rotateOnly ? pose.Rotate(v) : pose * v;
    return vectors;
}

CTrafo FromQuaternion(const py::object& quaternion, const py::object& translation)
{
    const Doubles q = ReadDoubles(quaternion, "quaternion", 0);
    if (q.shape(0) != 4) throw py::value_error("quaternion: needs 4 values w x y z");
    const VoAlgo::Quaternion unit = VoAlgo::Quaternion(q.at(0), q.at(1), q.at(2), q.at(3)).GetNormalized();
    if (!unit) throw py::value_error("quaternion: has no direction");
    return {unit, ReadVector(translation, "translation")};
}

std::string Represent(const CTrafo& pose)
{
    return "Trafo(" + py::repr(MatrixOf(pose).attr("tolist")()).cast<std::string>() + ")";
}

} // namespace

void DefineTrafo(py::module_& m)
{
    py::class_<CTrafo>(m, "Trafo",
                       R"(A rigid pose p' = R p + t in single precision; lengths in millimetres, angles in radians.

Every function that takes a pose accepts a Trafo or a 4x4 array.

Parameters
----------
matrix : (4, 4) array of float32 or float64, optional
    Homogeneous matrix: a rotation, a translation and the last row 0 0 0 1. Default: the identity.

Raises
------
ValueError
    When the upper left 3x3 is not a rotation (within 1e-3), the last row is not 0 0 0 1, or a number is not finite.)")
        .def(py::init<>())
        .def(py::init([](const py::object& matrix) { return ReadTrafo(matrix, "matrix"); }), py::arg("matrix"))
        .def_static("from_quaternion", &FromQuaternion, py::arg("quaternion"), py::arg("translation"),
                    R"(Makes a pose of a rotation and a translation.

Parameters
----------
quaternion : (4,) array
    w, x, y, z, of any nonzero length.
translation : (3,) array
    Millimetres.)")
        .def_property_readonly(
            "matrix", [](const CTrafo& pose) { return MatrixOf(pose); },
            "(4, 4) array of float64: the homogeneous matrix, a copy.")
        .def_property_readonly(
            "quaternion",
            [](const CTrafo& pose) {
                const VoAlgo::Quaternion q = pose.GetQuaternion();
                return py::array_t<double>(4, std::array{q.w, q.x, q.y, q.z}.data());
            },
            "(4,) array of float64: the rotation as w, x, y, z with w >= 0.")
        .def(
            "apply",
            [](const CTrafo& pose, const py::object& points) {
                return CopyVectors(Applied(pose, ReadVectors(points, "points"), false));
            },
            py::arg("points"), R"(Moves points: R p + t.

Parameters
----------
points : (n, 3) array of float32 or float64
    Millimetres.

Returns
-------
(n, 3) array of float32)")
        .def(
            "rotate",
            [](const CTrafo& pose, const py::object& vectors) {
                return CopyVectors(Applied(pose, ReadVectors(vectors, "vectors"), true));
            },
            py::arg("vectors"), R"(Rotates directions, such as normals: R v.

Parameters
----------
vectors : (n, 3) array of float32 or float64

Returns
-------
(n, 3) array of float32)")
        .def(
            "inverse", [](const CTrafo& pose) { return pose.GetInverse(); }, "The inverse pose.")
        .def(
            "rotation_distance",
            [](const CTrafo& pose, const py::object& other) {
                return pose.GetRotationDistance(ReadTrafo(other, "other"));
            },
            py::arg("other"), "Angle of the rotation that takes one pose to the other, 0 to pi, radians.")
        .def(
            "__matmul__", [](const CTrafo& pose, const py::object& other) { return pose * ReadTrafo(other, "other"); },
            "The pose that applies `other` first, then this one.")
        .def(
            "__eq__", [](const CTrafo& a, const CTrafo& b) { return a == b; }, py::is_operator())
        .def(
            "__bool__", [](const CTrafo& pose) { return static_cast<bool>(pose); },
            "False when a component is not finite.")
        .def(
            "__array__",
            [](const CTrafo& pose, const py::object& dtype) -> py::object {
                return dtype.is_none() ? py::object(MatrixOf(pose)) : MatrixOf(pose).attr("astype")(dtype);
            },
            py::arg("dtype") = py::none())
        .def(py::pickle([](const CTrafo& pose) -> py::object { return MatrixOf(pose); }, &ReadStoredPose))
        .def("__repr__", &Represent)
        .attr("__hash__") = py::none();
}

} // namespace voalgo::python
