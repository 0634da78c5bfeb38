#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/verdict/registerscans.h"
#include "module.h"
#include "scalars.h"
#include "scan_argument.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
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
    const std::vector<Vec3> p = ReadVectors(points, "points"), n = ReadVectors(normals, "normals");
    RequireSameLength(p.size(), "points", n.size(), "normals");
    const std::vector<Vec3> at = ReadVectors(featurePoints, "feature_points");
    const std::vector<Vec3> along = ReadVectors(featureNormals, "feature_normals");
    RequireSameLength(at.size(), "feature_points", along.size(), "feature_normals");
    const std::vector<CPointFeatureHistogram> histograms = ReadHistograms(features, "features");
    RequireSameLength(at.size(), "feature_points", histograms.size(), "features");
    if (histograms.empty()) throw py::value_error("features: needs at least one");
    PointSetPtr set;
    {
        const py::gil_scoped_release release;
        set = std::make_shared<PointSet>(p, n, at, along, histograms);
    }
    if (set->Empty()) throw py::value_error("points, features: none is finite");
    return set;
}

PointSetPtr ComputeFeatures(const py::object& points, const py::object& normals, const Real& radius,
                            const Whole& minCurvatureQuality, const Real& workingSpacing, const Whole& threads)
{
    std::optional<double> spacing, featureRadius;
    if (!workingSpacing.is_none()) {
        spacing = ReadReal(workingSpacing, "working_spacing");
        if (!(*spacing >= 0.0)) throw py::value_error("working_spacing: must not be less than 0");
    }
    if (!radius.is_none()) featureRadius = ReadPositive(radius, "dFeatureRadius");
    const std::int64_t quality = ReadWhole(minCurvatureQuality, "uiMinCurvatureQuality", 0, 100);
    const unsigned numThreads = ReadCount(threads, "threads");
    prereg::Scan scan = ReadScan(points, normals);
    for (std::size_t i = 0; i < scan.points.size() && scan.origin != Position{}; ++i) { // a set's points have no origin
        const Position p = scan.At(i);
        scan.points[i] = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    }
    scan.origin = {};
    const prereg::PreparedScan prepared = Prepare(std::move(scan), "points", {}, true);
    RequirePoints(prepared);
    PointSetPtr set;
    {
        const py::gil_scoped_release release;
        prereg::RegistrationSettings settings = DeriveSettings(prepared.scan, prepared.scan);
        settings.workingSpacing = spacing.value_or(settings.workingSpacing);
        settings.config.dFeatureRadius = featureRadius.value_or(settings.config.dFeatureRadius);
        settings.config.uiMinCurvatureQuality = static_cast<std::uint32_t>(quality);
        set = std::const_pointer_cast<PointSet>(ComputePointSet(prepared.scan, settings, numThreads));
    }
    if (set->Empty())
        throw py::value_error("points: none becomes a feature; a lower uiMinCurvatureQuality or a larger "
                              "dFeatureRadius may find some");
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
        R"(Points with unit normals, and feature points with histograms; `compute_features` makes one. Immutable.

Its arrays are read-only views on its own memory. Points that are not finite or coincide with another one are dropped,
so there may be fewer than were given.

Parameters
----------
points, normals : (n, 3) arrays of float32 or float64
    Millimetres, stored in single precision. Normals have unit length; a zero normal marks a point without one.
feature_points, feature_normals : (m, 3) arrays
    Positions and normals of the features; at least one.
features : (m, 33) array
    One histogram per feature point.)")
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
                               "(m, 33) view of float32: 11 bins each for the angles alpha, phi and theta.")
        .def_property_readonly(
            "ellipsoid",
            [](const PointSet& s) {
                const prereg::Ellipsoid& e = s.GetEllipsoid();
                return CopyVectors({e[0], e[1], e[2], e[3]});
            },
            "(4, 3) array of float32: centre and ends of the semi-axes of the 95 % covariance ellipsoid, millimetres.")
        .def("__len__", &PointSet::Size)
        .def(
            "transformed",
            [](const PointSet& set, const py::object& pose) {
                const VoAlgo::CTrafo trafo = ReadTrafo(pose, "pose");
                const py::gil_scoped_release release;
                return std::make_shared<PointSet>(set.Transform(trafo));
            },
            py::arg("pose"), "The set moved by a pose (Trafo or 4x4 array), with the same histograms.")
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
            R"(Estimates the area of this set that another one covers, square millimetres.

Parameters
----------
flt : PointSet
pose : Trafo or (4, 4) array
    Maps `flt` into the frame of this set.
search_radius : float
    A point is covered when a moved point of `flt` lies within it, millimetres.
area_radius : float
    Radius of the neighbourhood in which the area per point is estimated, millimetres.

Returns
-------
float)")
        .def(
            "to_document", [](const PointSet& set) { return VoAlgo::bson::to_object(set); },
            "All arrays, as a Document.")
        .def_static("from_document", &SetOf, py::arg("document"), R"(Restores the set that `to_document` stored.

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
    m.def("compute_features", &ComputeFeatures, py::arg("points"), py::arg("normals") = py::none(), py::kw_only(),
          py::arg("dFeatureRadius") = py::none(), py::arg("uiMinCurvatureQuality") = 25,
          py::arg("working_spacing") = py::none(), py::arg("threads") = 0,
          R"(Computes the feature histograms of a scan. The result does not depend on the number of threads.

Histograms can only be compared when they were computed with the same radius and working spacing. State both for scans
of different spacing that are to be registered with each other.

Parameters
----------
points : (n, 3) array of float32 or float64, or a scan in any form that `register` takes
    Millimetres. Points that are not finite or coincide with another one are dropped.
normals : (n, 3) array, optional
    Default: those of the scan; estimated when it has none.
dFeatureRadius : float, optional
    Radius of the histograms, millimetres. Default: 12 times the point spacing.
uiMinCurvatureQuality : int, default 25
    Smallest curvature quality of a feature point, 0 to 100: feature radius / radius of curvature, in percent, at most
    100. A plane has 0.
working_spacing : float, optional
    Features are computed on the scan thinned to this spacing, millimetres; 0: not thinned. Default: twice the point
    spacing.
threads : int, default 0
    0: one per processor.

Returns
-------
PointSet

Raises
------
ValueError
    When no point is finite, or none becomes a feature.)");
}

} // namespace voalgo::python
