#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "cloud_argument.h"
#include "errors.h"
#include "module.h"
#include "normals.h"
#include "registration.h"
#include "scalars.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

namespace voalgo::python {

using prereg::CPointFeatureHistogram;

namespace {

std::vector<CPointFeatureHistogram> ReadHistograms(const py::object& argument, const char* name)
{
    const Floats rows = ReadFloats(argument, name, CPointFeatureHistogram::NumBins);
    std::vector<CPointFeatureHistogram> histograms(static_cast<std::size_t>(rows.shape(0)));
    const float* bins = rows.data();
    for (CPointFeatureHistogram& h : histograms) {
        std::copy_n(bins, CPointFeatureHistogram::NumBins, h.bins);
        bins += CPointFeatureHistogram::NumBins;
    }
    return histograms;
}

PointSetPtr MakePointSet(const py::object& points, const py::object& normals, const py::object& featurePoints,
                         const py::object& featureNormals, const py::object& features)
{
    Cloud cloud{ReadVectors(points, "points"), ReadVectors(normals, "normals")};
    RequireSameLength(cloud.points.size(), "points", cloud.normals.size(), "normals");
    const Cloud at{ReadVectors(featurePoints, "feature_points"), ReadVectors(featureNormals, "feature_normals")};
    RequireSameLength(at.points.size(), "feature_points", at.normals.size(), "feature_normals");
    const std::vector<CPointFeatureHistogram> histograms = ReadHistograms(features, "features");
    RequireSameLength(at.points.size(), "feature_points", histograms.size(), "features");
    if (histograms.empty()) throw py::value_error("features: needs at least one");
    const py::gil_scoped_release release;
    auto set = std::make_shared<PointSet>(cloud.points, cloud.normals, at.points, at.normals, histograms);
    if (set->Empty()) throw InputError("points, features: none is finite");
    return set;
}

py::array_t<float> EstimatedNormals(const py::object& points, const py::object& viewpoint, const Whole& neighbours)
{
    const unsigned count = ReadCount(neighbours, "neighbours", 3);
    const std::vector<Vec3> vectors = ReadVectors(points, "points");
    const std::optional<Vec3> from = ReadViewpoint(viewpoint);
    for (const Vec3& p : vectors)
        if (!p.IsValid()) throw py::value_error("points: must be finite");
    std::vector<Vec3> normals;
    {
        const py::gil_scoped_release release;
        normals = EstimateNormals(vectors, from, count);
    }
    return CopyVectors(normals);
}

PointSetPtr FeaturesOf(const py::object& points, const py::object& normals, const Real& radius,
                       const Whole& minCurvatureQuality, const Real& workingSpacing, const Whole& threads)
{
    Cloud cloud{ReadVectors(points, "points"), {}};
    cloud.normals = ReadNormals(normals, "normals", cloud.points.size());
    Settings settings;
    if (!workingSpacing.is_none()) {
        settings.workingSpacing = ReadReal(workingSpacing, "working_spacing");
        if (!(settings.workingSpacing >= 0.0)) throw py::value_error("working_spacing: must not be less than 0");
    }
    if (!radius.is_none()) settings.config.dFeatureRadius = ReadPositive(radius, "dFeatureRadius");
    settings.config.uiMinCurvatureQuality =
        static_cast<std::uint32_t>(ReadWhole(minCurvatureQuality, "uiMinCurvatureQuality", 0, 100));
    settings.threads = ReadCount(threads, "threads");
    const py::gil_scoped_release release;
    const PreparedCloud prepared = PrepareCloud(std::move(cloud), "points", 1.0, std::nullopt);
    const Settings derived = DeriveSettings(prepared.cloud, prepared.cloud, Preset::Automatic);
    if (workingSpacing.is_none()) settings.workingSpacing = derived.workingSpacing;
    if (radius.is_none()) settings.config.dFeatureRadius = derived.config.dFeatureRadius;
    auto set = std::const_pointer_cast<PointSet>(ComputeFeatures(prepared.cloud, settings));
    if (set->Empty())
        throw InputError("points: none becomes a feature; a lower uiMinCurvatureQuality or a larger dFeatureRadius "
                         "may find some");
    return set;
}

py::array FeatureView(const py::object& self)
{
    constexpr auto Bins = static_cast<py::ssize_t>(CPointFeatureHistogram::NumBins);
    const auto& features = self.cast<const PointSet&>().GetFeatures();
    py::array_t<float> view({static_cast<py::ssize_t>(features.size()), Bins},
                            features.empty() ? nullptr : features[0].bins, self);
    view.attr("setflags")(py::arg("write") = false);
    return view;
}

PointSetPtr SetOf(const VoAlgo::bson::element::object& document)
{
    auto set = std::make_shared<PointSet>(VoAlgo::bson::from_object<PointSet>(document));
    if (set->Empty()) throw py::value_error("document: holds no points");
    return set;
}

/// A property that shows one of the set's arrays.
template <class Get>
auto Shows(Get get)
{
    return [get](const py::object& self) { return ViewVectors(get(self.cast<const PointSet&>()), self); };
}

void DefineClass(py::module_& m)
{
    py::class_<PointSet, PointSetPtr>(
        m, "PointSet",
        R"(Points with unit normals, and feature points with histograms; made by `compute_features`. Immutable.

The arrays it shows are read-only views on its own memory. Points that are not finite or lie where another one lies are
dropped, so there may be fewer than were given.

Parameters
----------
points, normals : (n, 3) arrays of float32 or float64
    Millimetres, kept in single precision; normals have unit length, a zero normal marks a point without one.
feature_points, feature_normals : (m, 3) arrays
    Where the features lie; at least one.
features : (m, 33) array
    A histogram for each feature point.)")
        .def(py::init(&MakePointSet), py::arg("points"), py::arg("normals"), py::kw_only(), py::arg("feature_points"),
             py::arg("feature_normals"), py::arg("features"))
        .def_property_readonly("points", Shows([](const PointSet& s) -> auto& { return s.GetPoints(); }),
                               "(n, 3) view of float32, millimetres.")
        .def_property_readonly("normals", Shows([](const PointSet& s) -> auto& { return s.GetNormals(); }),
                               "(n, 3) view of float32.")
        .def_property_readonly("feature_points", Shows([](const PointSet& s) -> auto& { return s.GetFeaturePoints(); }),
                               "(m, 3) view of float32, millimetres.")
        .def_property_readonly("feature_normals",
                               Shows([](const PointSet& s) -> auto& { return s.GetFeatureNormals(); }),
                               "(m, 3) view of float32.")
        .def_property_readonly("features", &FeatureView,
                               "(m, 33) view of float32: three blocks of 11 bins, the angles alpha, phi and theta.")
        .def_property_readonly(
            "ellipsoid",
            [](const PointSet& s) {
                const prereg::Ellipsoid& e = s.GetEllipsoid();
                return CopyVectors({e[0], e[1], e[2], e[3]});
            },
            "(4, 3) array of float32: centre and semi-axis ends of the 95 % covariance ellipsoid, millimetres.")
        .def("__len__", &PointSet::Size)
        .def(
            "transformed",
            [](const PointSet& set, const py::object& pose) {
                const VoAlgo::CTrafo trafo = ReadTrafo(pose, "pose");
                const py::gil_scoped_release release;
                return std::make_shared<PointSet>(set.Transform(trafo));
            },
            py::arg("pose"), "The set moved by a pose (Trafo or 4x4 array); histograms are kept.")
        .def(
            "overlap_area",
            [](const PointSet& set, const PointSet& flt, const py::object& pose, const Real& searchRadius,
               const Real& areaRadius) {
                const VoAlgo::CTrafo trafo = ReadTrafo(pose, "pose");
                const auto near = static_cast<float>(ReadPositive(searchRadius, "search_radius"));
                const auto around = static_cast<float>(ReadPositive(areaRadius, "area_radius"));
                const py::gil_scoped_release release;
                return set.EstimateOverlapArea(flt, trafo, near, around, std::numeric_limits<float>::infinity());
            },
            py::arg("flt"), py::arg("pose"), py::arg("search_radius"), py::arg("area_radius"),
            R"(Area of this set that another one covers, square millimetres.

Parameters
----------
flt : PointSet
pose : Trafo or (4, 4) array
    Maps `flt` into the frame of this set.
search_radius : float
    A point is covered when a moved point of `flt` lies within it, millimetres.
area_radius : float
    Neighbourhood of the local area estimate, millimetres.

Returns
-------
float)")
        .def(
            "to_document", [](const PointSet& set) { return VoAlgo::bson::to_object(set); },
            "All arrays as a Document.")
        .def_static("from_document", &SetOf, py::arg("document"), R"(The set that `to_document` stored.

Raises
------
ValueError
    When the document holds no points.)")
        .def(py::pickle([](const PointSet& set) { return VoAlgo::bson::to_object(set); }, &SetOf))
        .def("__repr__", [](const PointSet& s) {
            return "<PointSet: " + std::to_string(s.Size()) + " points, " + std::to_string(s.SizeFeatures()) +
                   " features>";
        });
}

} // namespace

void DefinePointSet(py::module_& m)
{
    DefineClass(m);
    m.def("estimate_normals", &EstimatedNormals, py::arg("points"), py::kw_only(), py::arg("viewpoint") = py::none(),
          py::arg("neighbours") = 16, R"(Unit normals of a surface cloud, from the neighbours of each point.

Parameters
----------
points : (n, 3) array of float32 or float64
    Millimetres; finite.
viewpoint : (3,) array, optional
    Where the scanner stood, millimetres: normals point towards it. Default: signs agree from neighbour to neighbour,
    and each connected piece points away from its own centroid.
neighbours : int, default 16
    Points of the local fit, the point itself included; at least 3.

Returns
-------
(n, 3) array of float32
    Zero where there is no normal.)");
    m.def("compute_features", &FeaturesOf, py::arg("points"), py::arg("normals") = py::none(), py::kw_only(),
          py::arg("dFeatureRadius") = py::none(), py::arg("uiMinCurvatureQuality") = 25,
          py::arg("working_spacing") = py::none(), py::arg("threads") = 0,
          R"(Computes the feature histograms of a cloud. The result does not depend on the number of threads.

Histograms are only comparable when they were made with the same radius and working spacing: state both when the
clouds that shall be registered are sampled differently.

Parameters
----------
points : (n, 3) array of float32 or float64
    Millimetres. Points that are not finite or lie where another one lies are dropped.
normals : (n, 3) array, optional
    Default: estimated.
dFeatureRadius : float, optional
    Radius of the histograms, millimetres. Default: 12 times the point spacing.
uiMinCurvatureQuality : int, default 25
    Smallest quality of a feature point, 0 to 100: 100 for a surface that bends on the radius or less, 0 for a plane.
working_spacing : float, optional
    The cloud is thinned to this spacing for the features, millimetres; 0: not thinned. Default: twice the point
    spacing.
threads : int, default 0
    0: as many as the machine has.

Returns
-------
PointSet

Raises
------
ValueError
    When no point becomes a feature.)");
}

} // namespace voalgo::python
