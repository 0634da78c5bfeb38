#pragma once

#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/numerics/ctrafo.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>
#include <vector>

/// Arrays in and out. A wrong argument raises a TypeError or ValueError that begins with its name.
namespace voalgo::python {

namespace py = pybind11;
using Vec3 = kdtree::Vector<3>;
/// Row by row without gaps; shares the memory of the caller's array where that has the layout and the type.
using Doubles = py::array_t<double, py::array::c_style>;
using Floats = py::array_t<float, py::array::c_style | py::array::forcecast>;

/// An array of float32 or float64 in native byte order, of any strides; or a list of numbers. `columns` 0:
/// one-dimensional; negative: n×d for any d > 0; else n×columns.
py::array ReadNumbers(const py::object& argument, const char* name, py::ssize_t columns);
/// The same as doubles or floats; not copied when the array already has that form.
Doubles ReadDoubles(const py::object& argument, const char* name, py::ssize_t columns);
Floats ReadFloats(const py::object& argument, const char* name, py::ssize_t columns);
/// n×3 numbers as the library's vectors, read in one pass.
std::vector<Vec3> ReadVectors(const py::object& argument, const char* name);
///@{
/// Three finite numbers.
std::array<double, 3> ReadPosition(const py::object& argument, const char* name);
Vec3 ReadVector(const py::object& argument, const char* name);
///@}
///@{
/// A Trafo, or a 4×4 array of a rigid pose; finite.
VoAlgo::CbMatrix4Rd ReadPose(const py::object& argument, const char* name);
VoAlgo::CTrafo ReadTrafo(const py::object& argument, const char* name);
///@}
/// The pose that `MatrixOf` stored, even when it is not rigid or not finite.
VoAlgo::CbMatrix4Rd ReadStoredPose(const py::object& matrix);
/// Throws unless both have the same number of rows.
void RequireSameLength(std::size_t a, const char* nameA, std::size_t b, const char* nameB);

/// A read-only n×3 array on the memory of `vectors`, which `owner` keeps alive.
py::array ViewVectors(const std::vector<Vec3>& vectors, const py::handle& owner);
/// A packed n×3 array of float32.
py::array_t<float> CopyVectors(const std::vector<Vec3>& vectors);
/// The homogeneous 4×4 matrix.
py::array_t<double> MatrixOf(const VoAlgo::CbMatrix4Rd& pose);

} // namespace voalgo::python
