#pragma once

#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "arrays.h"
#include "prepare_cloud.h"

#include <memory>
#include <optional>

namespace voalgo::python {

/// Point sets are immutable; Python holds them without the const that pybind11's holders cannot carry.
using PointSet = prereg::CFPFHPointSet;
using PointSetPtr = std::shared_ptr<PointSet>;

/// Reads the normals that belong to the points; None gives none.
std::vector<Vec3> ReadNormals(const py::object& normals, const char* name, std::size_t numPoints);
std::optional<Vec3> ReadViewpoint(const py::object& viewpoint);

/// A scan as users give it, prepared as the command-line tool prepares its files: (n, 3) points, (n, 6) points with
/// normals, a pair (points, normals) or a PointSet. What is probably wrong with it becomes a UserWarning.
PreparedCloud ReadCloud(const py::object& argument, const char* name, const std::optional<Vec3>& viewpoint);

} // namespace voalgo::python
