#pragma once

#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/verdict/preparedscan.h"
#include "VoAlgorithms/verdict/scan.h"
#include "arrays.h"

#include <array>
#include <memory>
#include <optional>

namespace voalgo::python {

/// Point sets are immutable; Python holds them without the const that pybind11's holders cannot carry.
using PointSet = prereg::CFPFHPointSet;
using PointSetPtr = std::shared_ptr<PointSet>;

using Position = std::array<double, 3>;

std::optional<Position> ReadViewpoint(const py::object& viewpoint);

/// n×3 points: floats as they are, doubles relative to an origin.
prereg::Scan ReadPoints(const py::object& argument, const char* name);
/// The coordinates: of float32 for origin 0, else of float64.
py::array CopyCoordinates(const prereg::Scan& scan);

/// A scan in any form that users give one: (n, 3) points, (n, 6) points with normals, a pair (points, normals), a Scan
/// or a PointSet. Nothing is checked but the form.
prereg::Scan ReadScan(const py::object& argument, const char* name);
/// The same, or points with their normals when the latter are not None.
prereg::Scan ReadScan(const py::object& points, const py::object& normals);

/// Prepares a scan as a registration does. `viewpoint` counts when the scan has none of its own. What is probably wrong
/// with the scan becomes a UserWarning.
prereg::PreparedScan Prepare(prereg::Scan scan, const char* name, const std::optional<Position>& viewpoint = {},
                             bool keepOrigin = false);
/// ReadScan and Prepare; a PointSet brings its features along.
prereg::PreparedScan ReadPrepared(const py::object& argument, const char* name,
                                  const std::optional<Position>& viewpoint = {});
/// Raises ValueError when no point is finite.
void RequirePoints(const prereg::PreparedScan& scan);

} // namespace voalgo::python
