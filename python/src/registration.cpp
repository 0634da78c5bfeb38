#include "registration.h"

#include "arrays.h"
#include "exchange/files/files.h"
#include "exchange/report/outcome.h"
#include "exchange/report/page.h"
#include "module.h"
#include "paths.h"
#include "scan_argument.h"
#include "values.h"

#include <pybind11/stl.h>

#include <string>
#include <vector>

namespace voalgo::python {

using prereg::JudgedTrafo;
using prereg::PreparedScan;

namespace {

Outcome OutcomeOf(const Found& f)
{
    return {f.fix, f.flt, f.registration, f.preset, {}, f.readingSeconds};
}

std::vector<Result> ResultsOf(const Found& f, const std::vector<JudgedTrafo>& results)
{
    std::vector<Result> converted;
    for (const JudgedTrafo& result : results)
        converted.emplace_back(result, f.registration.fixOrigin, f.registration.fltOrigin);
    return converted;
}

py::dict DictOf(const Found& f)
{
    py::dict dict = ValueOf(ToJson(OutcomeOf(f)));
    const auto dicts = [](const std::vector<Result>& results) {
        py::list list;
        for (const Result& result : results) list.append(ToDict(result));
        return list;
    };
    dict["results"] = dicts(ResultsOf(f, f.registration.results));
    dict["refused"] = dicts(ResultsOf(f, f.registration.refused));
    dict["feature_seconds"] = f.registration.seconds.features;
    dict["search_seconds"] = f.registration.seconds.search;
    return dict;
}

void WriteReport(const Found& f, const py::object& path)
{
    const std::string file = ReadPath(path);
    if (!f.registration.fix) throw py::value_error("there is nothing to report: " + f.registration.Reason());
    WriteFile([&] { WriteText(file, ReportPage(OutcomeOf(f))); });
}

/// The first result, null when it is not to be trusted.
const JudgedTrafo* BestOf(const Found& f)
{
    return f.registration ? &f.registration.Best() : nullptr;
}

/// A property of the best result, None when there is none.
template <class Get>
auto OfBest(Get get)
{
    return [get](const Found& f) -> py::object {
        const JudgedTrafo* best = BestOf(f);
        if (best == nullptr) return py::none();
        return py::object(get(Result(*best, f.registration.fixOrigin, f.registration.fltOrigin)));
    };
}

PointSetPtr Mutable(const std::shared_ptr<const PointSet>& set)
{
    return std::const_pointer_cast<PointSet>(set);
}

/// Points that a point set holds are not stored twice.
py::tuple ScanState(const PreparedScan& p, const std::shared_ptr<const PointSet>& set)
{
    const bool isInSet = set && set->GetPoints() == p.scan.points && set->GetNormals() == p.scan.normals;
    const prereg::Scan stored = isInSet ? prereg::Scan() : p.scan;
    return py::make_tuple(isInSet, CopyVectors(stored.points), CopyVectors(stored.normals), py::bytes(p.scan.name),
                          p.read, p.notFinite, p.duplicates, p.scaledNormals, p.zeroNormals, p.implausibleNormals,
                          p.estimatedNormals, CopyVectors({p.low, p.high}), p.spacing, p.scan.origin);
}

PreparedScan ScanOf(const py::tuple& state, const std::shared_ptr<const PointSet>& set)
{
    PreparedScan p;
    const bool isInSet = state[0].cast<bool>();
    p.scan.points = isInSet ? set->GetPoints() : ReadVectors(state[1], "points");
    p.scan.normals = isInSet ? set->GetNormals() : ReadVectors(state[2], "normals");
    p.scan.name = state[3].cast<std::string>();
    std::size_t* const counts[] = {&p.read, &p.notFinite, &p.duplicates, &p.scaledNormals, &p.zeroNormals};
    for (std::size_t i = 0; i < std::size(counts); ++i) *counts[i] = state[4 + i].cast<std::size_t>();
    p.implausibleNormals = state[9].cast<bool>();
    p.estimatedNormals = state[10].cast<bool>();
    const std::vector<Vec3> box = ReadVectors(state[11], "box");
    p.low = box.at(0);
    p.high = box.at(1);
    p.spacing = state[12].cast<double>();
    p.scan.origin = state[13].cast<Position>();
    return p;
}

py::tuple FoundState(const Found& f)
{
    const prereg::Registration& r = f.registration;
    return py::make_tuple(StateOf(r), Mutable(r.fix), Mutable(r.flt), ScanState(f.fix, r.fix), ScanState(f.flt, r.flt),
                          f.preset, f.readingSeconds);
}

Found FoundOf(const py::tuple& state)
{
    Found f;
    f.registration = RegistrationOf(state[0]);
    f.registration.fix = state[1].cast<PointSetPtr>();
    f.registration.flt = state[2].cast<PointSetPtr>();
    f.fix = ScanOf(state[3], f.registration.fix);
    f.flt = ScanOf(state[4], f.registration.flt);
    f.preset = state[5].cast<std::string>();
    f.readingSeconds = state[6].cast<double>();
    return f;
}

std::string Represent(const Found& f)
{
    const JudgedTrafo* best = BestOf(f);
    return best != nullptr ? "<Registration: found, " + best->ToString(true) + ">"
                           : "<Registration: not found: " + f.registration.Reason() + ">";
}

} // namespace

void DefineRegistration(py::module_& m)
{
    py::class_<Found>(m, "Registration",
                      R"(The outcome of `register`. True when a pose was found that can be trusted.)")
        .def_property_readonly(
            "found", [](const Found& f) { return static_cast<bool>(f.registration); },
            "bool: whether the first result can be trusted.")
        .def_property_readonly("pose", OfBest([](const Result& r) { return MatrixOf(r.pose); }),
                               R"((4, 4) array of float64, or None when nothing was found: the trusted pose.

Maps flt into the frame of fix, p_fix = R p_flt + t, millimetres.)")
        .def_property_readonly("overlap", OfBest([](const Result& r) { return py::float_(r.fStop_OverlapRatio); }),
                               "float or None: share of flt that lies on fix in this pose, 0 to 1.")
        .def_property_readonly("rmse", OfBest([](const Result& r) { return py::float_(r.fStop_RMSE); }),
                               "float or None: root mean square distance of the matched points, millimetres.")
        .def_property_readonly("best", OfBest([](const Result& r) { return py::cast(r); }),
                               "Result or None: the trusted pose with all its figures and tests.")
        .def_property_readonly(
            "reason", [](const Found& f) { return f.registration.Reason(); },
            "str: why no pose can be trusted, even if there are results; empty when one can.")
        .def_property_readonly(
            "reason_code", [](const Found& f) { return CodeOf(f.registration.refusal.code); },
            R"(str: the same as a stable identifier; empty when found.

For example "ambiguous", "no_pose_accepted", "points_coplanar", "units_differ" or "cancelled".)")
        .def_property_readonly(
            "results", [](const Found& f) { return ResultsOf(f, f.registration.results); },
            "list of Result: the poses that passed the verification; first the one that explains most of flt.")
        .def_property_readonly(
            "refused", [](const Found& f) { return ResultsOf(f, f.registration.refused); },
            "list of Result: the poses that the search accepted and the verification refused.")
        .def_property_readonly(
            "statistics", [](const Found& f) { return ValueOf(ToJson(OutcomeOf(f))["statistics"]); },
            "dict: numbers of polygons, of proposals, of accepted and of failed ones, with the causes.")
        .def_property_readonly(
            "settings", [](const Found& f) { return ToDict(f.registration.settings); },
            "dict: all settings that were used; see `derive_settings`.")
        .def_property_readonly(
            "fix", [](const Found& f) { return Mutable(f.registration.fix); },
            R"(PointSet: fix as it was registered, relative to `fix_origin`; None when the features were never computed.

A pair of point sets can be registered again; the pose then maps the sets' own coordinates.)")
        .def_property_readonly(
            "flt", [](const Found& f) { return Mutable(f.registration.flt); },
            "PointSet: flt as it was registered, relative to `flt_origin`; None as for `fix`.")
        .def_property_readonly(
            "fix_origin", [](const Found& f) { return py::array_t<double>(3, f.registration.fixOrigin.data()); },
            "(3,) array of float64, millimetres: the coordinates of fix are ``fix.points + fix_origin``.")
        .def_property_readonly(
            "flt_origin", [](const Found& f) { return py::array_t<double>(3, f.registration.fltOrigin.data()); },
            "(3,) array of float64, millimetres: the same of flt.")
        .def_property_readonly(
            "feature_seconds", [](const Found& f) { return f.registration.seconds.features; },
            "float: time spent on the features.")
        .def_property_readonly(
            "search_seconds", [](const Found& f) { return f.registration.seconds.search; },
            "float: time spent on search and verification.")
        .def(
            "to_dict", [](const Found& f) { return DictOf(f); },
            R"(Everything but the point sets as plain values: what ``voalgo register --json`` prints, and more.

Returns
-------
dict
    In addition the refused poses, the objections, the ellipsoids and the times.)")
        .def("write_report", &WriteReport, py::arg("path"),
             R"(Writes the page that ``voalgo register --report`` writes: HTML that opens in any browser, offline.

It shows both scans in 3D, their distances in colour, every acceptance test and the causes of refusals.

Parameters
----------
path : str or path-like
    An existing file is replaced.

Raises
------
OSError
    When the file cannot be written.
ValueError
    When the scans were not registered, because they were at fault or the call was cancelled early.)")
        .def(py::pickle([](const Found& f) { return FoundState(f); }, &FoundOf))
        .def("__bool__", [](const Found& f) { return static_cast<bool>(f.registration); })
        .def("__repr__", &Represent);
}

} // namespace voalgo::python
