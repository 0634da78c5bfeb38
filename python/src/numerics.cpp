#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/clustering/cmeanshiftclusterer3d.h"
#include "VoAlgorithms/numerics/symsolvers.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string>

namespace voalgo::python {

using VoAlgo::CMeanShiftClusterer;
using VoAlgo::CMeanShiftClusterer3D;

namespace {

/// The outcome of a clustering, copied out of the clusterer.
struct Clusters {
    py::array_t<int> labels;
    py::array_t<float> centres;
    py::array_t<unsigned> sizes;
    float dunnIndex;
};

template <class Clusterer>
Clusters CopyClusters(const Clusterer& clusterer, std::size_t n, std::size_t d, float dunnIndex)
{
    const unsigned count = clusterer.GetNumClusters();
    Clusters clusters{py::array_t<int>(static_cast<py::ssize_t>(n)),
                      py::array_t<float>({static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(d)}),
                      py::array_t<unsigned>(static_cast<py::ssize_t>(count)), dunnIndex};
    int* labels = clusters.labels.mutable_data();
    for (unsigned i = 0; i < n; ++i) {
        const unsigned cluster = clusterer.GetCluster(i);
        labels[i] = cluster == Clusterer::None ? -1 : static_cast<int>(cluster);
    }
    float* centres = clusters.centres.mutable_data();
    for (unsigned c = 0; c < count; ++c) {
        clusters.sizes.mutable_data()[c] = clusterer.GetClusterSize(c);
        centres = std::copy_n(clusterer.GetClusterCenter(c), d, centres);
    }
    return clusters;
}

void RequireFinite(bool succeeded)
{
    if (!succeeded) throw py::value_error("points: must be finite");
}

/// At least one point; in three dimensions when columns is 3.
Floats ReadPoints(const py::object& points, py::ssize_t columns)
{
    Floats data = ReadFloats(points, "points", columns);
    if (data.shape(0) == 0) throw py::value_error("points: needs at least one");
    return data;
}

Clusters MeanShift(const py::object& points, const Real& bandwidth)
{
    const Floats data = ReadPoints(points, -1);
    const auto n = static_cast<std::size_t>(data.shape(0)), d = static_cast<std::size_t>(data.shape(1));
    CMeanShiftClusterer clusterer(data.data(), n, d, static_cast<float>(ReadPositive(bandwidth, "bandwidth")));
    bool succeeded = false;
    float dunnIndex = 0.0F;
    {
        const py::gil_scoped_release release;
        succeeded = clusterer.Run({});
        if (succeeded) dunnIndex = clusterer.ComputeDunnIndex({});
    }
    RequireFinite(succeeded);
    return CopyClusters(clusterer, n, d, dunnIndex);
}

Clusters MeanShift3D(const py::object& points, const Real& bandwidth)
{
    const Floats data = ReadPoints(points, 3);
    const auto n = static_cast<std::size_t>(data.shape(0));
    CMeanShiftClusterer3D clusterer(data.data(), n, static_cast<float>(ReadPositive(bandwidth, "bandwidth")));
    bool succeeded = false;
    float dunnIndex = 0.0F;
    {
        const py::gil_scoped_release release;
        succeeded = clusterer.Run();
        if (succeeded) dunnIndex = clusterer.ComputeDunnIndex();
    }
    RequireFinite(succeeded);
    return CopyClusters(clusterer, n, 3, dunnIndex);
}

/// The values of an optional argument with a value for each row.
std::optional<Doubles> ReadWeights(const py::object& weights, std::size_t n, const char* rows)
{
    if (weights.is_none()) return std::nullopt;
    Doubles values = ReadDoubles(weights, "weights", 0);
    RequireSameLength(n, rows, static_cast<std::size_t>(values.shape(0)), "weights");
    return values;
}

unsigned CountOf(const Doubles& rows, const char* name)
{
    if (rows.shape(0) > std::numeric_limits<int>::max()) throw py::value_error(std::string(name) + ": too many rows");
    return static_cast<unsigned>(rows.shape(0));
}

py::array_t<double> Homogeneous(const double (*rotation)[3], const double* translation)
{
    py::array_t<double> matrix({4, 4});
    auto m = matrix.mutable_unchecked<2>();
    for (unsigned r = 0; r < 4; ++r)
        for (unsigned c = 0; c < 4; ++c)
            m(r, c) = r == 3 ? (c == 3 ? 1.0 : 0.0) : (c == 3 ? translation[r] : rotation[r][c]);
    return matrix;
}

py::array_t<double> Procrustes(const py::object& a, const py::object& b, const py::object& weights)
{
    const Doubles from = ReadDoubles(a, "a", 3), to = ReadDoubles(b, "b", 3);
    const unsigned n = CountOf(from, "a");
    RequireSameLength(n, "a", static_cast<std::size_t>(to.shape(0)), "b");
    const std::optional<Doubles> w = ReadWeights(weights, n, "a");
    if (n < 3) throw py::value_error("a: needs at least 3 points, has " + std::to_string(n));
    double quaternion[4], rotation[3][3], translation[3];
    const double* each = w ? w->data() : nullptr;
    bool isOne = false;
    {
        const py::gil_scoped_release release;
        isOne = VoAlgo::symsolvers::Procrustes(from.data(), to.data(), each, quaternion, rotation, translation, n);
    }
    if (!isOne) throw py::value_error("a, b: do not determine the rotation: not finite, identical or on one line");
    return Homogeneous(rotation, translation);
}

py::array_t<double> PointToPlane(const py::object& src, const py::object& dst, const py::object& normals,
                                 const py::object& weights)
{
    const Doubles from = ReadDoubles(src, "src", 3), to = ReadDoubles(dst, "dst", 3);
    const Doubles at = ReadDoubles(normals, "normals", 3);
    const unsigned n = CountOf(from, "src");
    RequireSameLength(n, "src", static_cast<std::size_t>(to.shape(0)), "dst");
    RequireSameLength(n, "src", static_cast<std::size_t>(at.shape(0)), "normals");
    const std::optional<Doubles> w = ReadWeights(weights, n, "src");
    double angles[3], translation[3];
    const double* each = w ? w->data() : nullptr;
    bool isOne = false;
    {
        const py::gil_scoped_release release;
        isOne = VoAlgo::symsolvers::PointToPlaneUpdate(from.data(), to.data(), at.data(), each, angles, translation,
                                                       static_cast<int>(n));
    }
    if (!isOne)
        throw py::value_error(
            "src, dst, normals: do not determine the motion: not finite, too few, or a shape that can slide");
    const VoAlgo::Quaternion q(angles[0], angles[1], angles[2]);
    double rotation[3][3];
    for (unsigned c = 0; c < 3; ++c) {
        const std::array<double, 3> column = q.Rotate({c == 0 ? 1.0 : 0.0, c == 1 ? 1.0 : 0.0, c == 2 ? 1.0 : 0.0});
        for (unsigned r = 0; r < 3; ++r) rotation[r][c] = column[r];
    }
    return Homogeneous(rotation, translation);
}

} // namespace

void DefineNumerics(py::module_& m)
{
    py::class_<Clusters>(m, "Clusters", "The outcome of a clustering.")
        .def_readonly("labels", &Clusters::labels, "(n,) array of int32: the cluster of each point, -1 for none.")
        .def_readonly("centres", &Clusters::centres, "(k, d) array of float32.")
        .def_readonly("sizes", &Clusters::sizes, "(k,) array of uint32.")
        .def_readonly("dunn_index", &Clusters::dunnIndex,
                      R"(float: smallest distance between points of different clusters / largest within one; higher is
better, infinite when either does not exist.)")
        .def("__len__", [](const Clusters& c) { return c.sizes.size(); })
        .def(py::pickle([](const Clusters& c) { return py::make_tuple(c.labels, c.centres, c.sizes, c.dunnIndex); },
                        [](const py::tuple& s) {
                            return Clusters{s[0].cast<py::array_t<int>>(), s[1].cast<py::array_t<float>>(),
                                            s[2].cast<py::array_t<unsigned>>(), s[3].cast<float>()};
                        }))
        .def("__repr__", [](const Clusters& c) { return "<Clusters: " + std::to_string(c.sizes.size()) + ">"; });
    m.def("mean_shift", &MeanShift, py::arg("points"), py::arg("bandwidth"),
          R"(Mean shift with a flat kernel over points of any dimension, by Euclidean distance.

Deterministic. Every step visits every point: keep n in the thousands.

Parameters
----------
points : (n, d) array of float32 or float64
    At least one; computed in single precision.
bandwidth : float
    Radius of the kernel, in the unit of the points; greater than 0.

Returns
-------
Clusters
    In the order in which they were found; a point that reaches no other cluster is one of its own.)");
    m.def(
        "mean_shift_3d", &MeanShift3D, py::arg("points"), py::arg("bandwidth"),
        R"(Mean shift for points or unit vectors in three dimensions; a point that reaches no cluster gets the label -1.

Parameters
----------
points : (n, 3) array of float32 or float64
bandwidth : float
    Radius of the kernel; for unit vectors the chord 2 sin(angle / 2).

Returns
-------
Clusters)");
    m.def("procrustes", &Procrustes, py::arg("a"), py::arg("b"), py::arg("weights") = py::none(),
          R"(Fits b = R a + t to corresponding points in double precision (unit-quaternion method).

Arrays of float64 in C order are not copied.

Parameters
----------
a, b : (n, 3) arrays of float32 or float64
    Millimetres; at least three points, not all on one line.
weights : (n,) array, optional
    Weights of the centroids; the rotation is not weighted. Default: all 1.

Returns
-------
(4, 4) array of float64
    Homogeneous matrix that maps a onto b.

Raises
------
ValueError
    When the points do not determine the rotation.)");
    m.def("point_to_plane", &PointToPlane, py::arg("src"), py::arg("dst"), py::arg("normals"),
          py::arg("weights") = py::none(),
          R"(Finds the rigid motion that brings points onto the tangent planes of their partners, in double precision.

Minimises the sum of weights * ((R src + t - dst) . normal)^2 by Gauss-Newton steps from the identity.

Parameters
----------
src, dst, normals : (n, 3) arrays of float32 or float64
    Millimetres; the normals at dst.
weights : (n,) array, optional
    Default: all 1.

Returns
-------
(4, 4) array of float64

Raises
------
ValueError
    When the planes do not determine the motion.)");
}

} // namespace voalgo::python
