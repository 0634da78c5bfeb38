#include "registration.h"

#include "check_cloud.h"
#include "cloud_argument.h"
#include "configuration.h"
#include "module.h"
#include "registration_dicts.h"
#include "scalars.h"

#include <pybind11/stl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace voalgo::python {

namespace {

/// A registration with its statistics and the settings that led to it.
struct Outcome {
    Registration registration;
    py::dict statistics;
    py::dict settings;
};

Preset PresetOf(const Text& preset)
{
    const std::string name = ReadText(preset, "preset");
    if (name == "auto") return Preset::Automatic;
    if (name == "dense") return Preset::Dense;
    if (name == "scan") return Preset::Scan;
    if (name == "thorough") return Preset::Thorough;
    throw py::value_error("preset: must be auto, dense, scan or thorough, is " + name);
}

/// Both scans in the form that the registration takes, checked as the command-line tool checks its files.
struct Scans {
    PreparedCloud fix;
    PreparedCloud flt;

    Scans(const py::object& fixArgument, const py::object& fltArgument, const py::object& viewpoint)
        : fix(ReadCloud(fixArgument, "fix", ReadViewpoint(viewpoint))),
          flt(ReadCloud(fltArgument, "flt", ReadViewpoint(viewpoint)))
    {
        for (const PreparedCloud* cloud : {&fix, &flt}) RequireShape(*cloud);
        RequireSameUnit(fix, flt);
    }

    [[nodiscard]] Settings SettingsFor(Preset preset, const py::object& config, const py::dict& keywords) const
    {
        Settings settings;
        {
            const py::gil_scoped_release release;
            settings = DeriveSettings(fix.cloud, flt.cloud, preset);
        }
        const prereg::ConfigurationFPFH derived = settings.config;
        Apply(config, keywords, settings.config);
        settings.verification.Follow(derived, settings.config);
        for (const PreparedCloud* cloud : {&fix, &flt}) RequirePoints(*cloud, settings.config.icpConfig.uiNumSamples);
        return settings;
    }
};

/// The set itself when it has features, else null.
std::shared_ptr<const PointSet> GivenFeatures(const py::object& argument)
{
    if (!py::isinstance<PointSet>(argument)) return nullptr;
    auto set = argument.cast<PointSetPtr>();
    return set->SizeFeatures() > 0 ? set : nullptr;
}

/// Between two steps: gives the interpreter the chance to raise KeyboardInterrupt, and tells the user's function.
Progress Reporting(const py::object& progress)
{
    return [&progress](const char* stage, double share) {
        const py::gil_scoped_acquire acquire;
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (!progress.is_none()) progress(stage, share);
    };
}

Outcome RegisterClouds(const py::object& fix, const py::object& flt, const Text& preset, const py::object& config,
                       const py::object& start, const py::object& viewpoint, const Whole& threads,
                       const py::object& progress, const py::kwargs& keywords)
{
    const Preset kind = PresetOf(preset);
    const unsigned numThreads = ReadCount(threads, "threads");
    if (!progress.is_none() && PyCallable_Check(progress.ptr()) == 0)
        throw py::type_error("progress: must be callable, is " + TypeOf(progress));
    const std::optional<VoAlgo::CTrafo> from =
        start.is_none() ? std::nullopt : std::make_optional(ReadTrafo(start, "start"));
    const Scans scans(fix, flt, viewpoint);
    Settings settings = scans.SettingsFor(kind, config, keywords);
    settings.threads = numThreads;
    std::shared_ptr<const PointSet> fixSet = GivenFeatures(fix), fltSet = GivenFeatures(flt);
    const Progress report = Reporting(progress);

    Registration registration;
    {
        const py::gil_scoped_release release;
        const auto begin = std::chrono::steady_clock::now();
        report("features", 0.0);
        if (!fixSet) fixSet = ComputeFeatures(scans.fix.cloud, settings);
        report("features", 0.5);
        if (!fltSet) fltSet = ComputeFeatures(scans.flt.cloud, settings);
        const std::chrono::duration<double> featureTime = std::chrono::steady_clock::now() - begin;
        registration = from ? Refine(fixSet, fltSet, settings, *from) : Register(fixSet, fltSet, settings, report);
        registration.featureSeconds = featureTime.count();
    }
    return {registration, ToDict(registration.statistics), ToDict(settings)};
}

py::dict DerivedSettings(const py::object& fix, const py::object& flt, const Text& preset)
{
    const Preset kind = PresetOf(preset);
    return ToDict(Scans(fix, flt, py::none()).SettingsFor(kind, py::none(), py::dict()));
}

/// A scan without features.
class Surfels : public prereg::CPointSet {
public:
    explicit Surfels(const PreparedCloud& scan) : CPointSet(scan.cloud.points, scan.cloud.normals) {}
};

JudgedTrafo RefineByIcp(const py::object& fixArgument, const py::object& fltArgument, const py::object& start,
                        const py::object& reference, const py::object& config, const py::kwargs& keywords)
{
    const PreparedCloud fixScan = ReadCloud(fixArgument, "fix", std::nullopt);
    const PreparedCloud fltScan = ReadCloud(fltArgument, "flt", std::nullopt);
    prereg::ConfigurationICP settings;
    Apply(config, keywords, settings);
    const VoAlgo::CTrafo from = start.is_none() ? VoAlgo::CTrafo() : ReadTrafo(start, "start");
    const VoAlgo::CTrafo limits = reference.is_none() ? from : ReadTrafo(reference, "reference");
    const py::gil_scoped_release release;
    const Surfels fix(fixScan), flt(fltScan);
    const prereg::ICPResult result = fix.ComputeICPRegistration(settings, flt, from, &limits);
    JudgedTrafo judged({result, 1}, result.resultType == 0 ? "" : result.ToString(true));
    judged.tests = TestsOf(result, settings, "refinement");
    return judged;
}

void DefineResult(py::module_& m)
{
    py::class_<JudgedTrafo>(m, "Result", R"(A pose with all figures of its refinement, and whether it may be handed out.

Attributes have the names of the library's record. True when nothing speaks against the pose.)")
        .def_readonly("trafo", &JudgedTrafo::trafo, "Trafo: maps flt coordinates into the frame of fix.")
        .def_readonly("objection", &JudgedTrafo::objection, "str: what speaks against the pose; empty: nothing.")
        .def_property_readonly(
            "tests",
            [](const JudgedTrafo& r) {
                py::list tests;
                for (const AcceptanceTest& test : r.tests) tests.append(ToDict(test));
                return tests;
            },
            "list of dict: the acceptance tests as far as they came, with value, limit and outcome.")
        .def_readonly("clusterSize", &JudgedTrafo::clusterSize, "int: proposals that led to the pose.")
        .def_readonly("resultType", &JudgedTrafo::resultType, R"(int: outcome of the refinement.

-1 undefined, 0 success, 1 initial overlap too small, 2 too few inliers initially, 3 too many mismatches during the
iteration, 4 overlap too small during it, 5 too few inliers during it, 6 final pose too far away, 7 too many mismatches
or too small a small/big ratio at the end, 8 overlap too small, 9 RMSE too large.)")
        .def_readonly("fStart_OverlapRatio", &JudgedTrafo::fStart_OverlapRatio, "float: pairs / samples, first pass.")
        .def_readonly("iStart_NumberOfInliers", &JudgedTrafo::iStart_NumberOfInliers, "int: first pass.")
        .def_readonly("fStart_RMSE", &JudgedTrafo::fStart_RMSE, "float: of the inliers, first pass, millimetres.")
        .def_readonly("fStart_MismatchesPerMatchRatio", &JudgedTrafo::fStart_MismatchesPerMatchRatio,
                      "float: first pass.")
        .def_readonly("fStop_OverlapRatio", &JudgedTrafo::fStop_OverlapRatio, "float: final matches / samples.")
        .def_readonly("fStop_OverlapArea", &JudgedTrafo::fStop_OverlapArea,
                      "float: square millimetres; -1 when not estimated.")
        .def_readonly("iStop_NumberOfInliers", &JudgedTrafo::iStop_NumberOfInliers, "int: of the best pose.")
        .def_readonly("fStop_RMSE", &JudgedTrafo::fStop_RMSE, "float: of the best pose, millimetres.")
        .def_readonly("fStop_MismatchesPerMatchRatio", &JudgedTrafo::fStop_MismatchesPerMatchRatio,
                      "float: final evaluation.")
        .def_readonly("iStop_Iterations", &JudgedTrafo::iStop_Iterations,
                      "int: iteration whose pose was kept, or at which the run failed.")
        .def_readonly("fStop_SmallBigRatio", &JudgedTrafo::fStop_SmallBigRatio, "float: final evaluation.")
        .def_property_readonly(
            "ellipsoid",
            [](const JudgedTrafo& r) {
                return CopyVectors({r.ellipsoid[0], r.ellipsoid[1], r.ellipsoid[2], r.ellipsoid[3]});
            },
            "(4, 3) array of float32: flt's ellipsoid moved by the pose, millimetres; zero unless resultType is 0.")
        .def(
            "to_dict", [](const JudgedTrafo& r) { return ToDict(r); },
            "All of it as plain values, as JSON takes them; the pose as four rows of four numbers under \"pose\".")
        .def("__bool__", [](const JudgedTrafo& r) { return r.objection.empty(); })
        .def(
            "__eq__", [](const JudgedTrafo& a, const JudgedTrafo& b) { return ToDict(a).equal(ToDict(b)); },
            py::is_operator())
        .def(py::pickle([](const JudgedTrafo& r) { return ToDict(r); }, &ResultOf))
        .def("__str__", [](const JudgedTrafo& r) { return r.ToString(false); })
        .def("__repr__", [](const JudgedTrafo& r) {
            return "<Result: " + (r.objection.empty() ? r.ToString(true) : "refused: " + r.objection) + ">";
        });
}

py::tuple StateOf(const Outcome& o)
{
    const Registration& r = o.registration;
    return py::make_tuple(ToDict(r, o.statistics, o.settings), std::const_pointer_cast<PointSet>(r.fix),
                          std::const_pointer_cast<PointSet>(r.flt));
}

Outcome OutcomeOf(const py::tuple& state)
{
    const auto figures = state[0].cast<py::dict>();
    Outcome o{RegistrationOf(figures), figures["statistics"], figures["settings"]};
    o.registration.fix = state[1].cast<PointSetPtr>();
    o.registration.flt = state[2].cast<PointSetPtr>();
    return o;
}

void DefineOutcome(py::module_& m)
{
    py::class_<Outcome>(m, "Registration",
                        R"(What `register` found out. True when there is a pose to be trusted: `best`.)")
        .def_property_readonly(
            "found", [](const Outcome& o) { return o.registration.reason.empty(); },
            "bool: whether the first result is to be trusted.")
        .def_property_readonly(
            "reason", [](const Outcome& o) { return o.registration.reason; },
            "str: why no result is to be trusted, also when there are several; empty when found.")
        .def_property_readonly(
            "best",
            [](const Outcome& o) -> std::optional<JudgedTrafo> {
                if (!o.registration.reason.empty()) return std::nullopt;
                return o.registration.results.front();
            },
            "Result or None: the pose to be trusted.")
        .def_property_readonly(
            "results", [](const Outcome& o) { return o.registration.results; },
            "list of Result: those that passed the verification, first what explains most of flt.")
        .def_property_readonly(
            "refused", [](const Outcome& o) { return o.registration.refused; },
            "list of Result: accepted by the search, but not by the verification.")
        .def_property_readonly(
            "statistics", [](const Outcome& o) { return o.statistics; },
            "dict: polygons, proposals, accepted and refused ones, and the causes.")
        .def_property_readonly(
            "settings", [](const Outcome& o) { return o.settings; },
            "dict: all settings that were used, see `derive_settings`.")
        .def_property_readonly(
            "fix", [](const Outcome& o) { return std::const_pointer_cast<PointSet>(o.registration.fix); },
            "PointSet: the fixed scan as it was registered.")
        .def_property_readonly(
            "flt", [](const Outcome& o) { return std::const_pointer_cast<PointSet>(o.registration.flt); },
            "PointSet: the moved scan as it was registered, in its own frame.")
        .def_property_readonly(
            "feature_seconds", [](const Outcome& o) { return o.registration.featureSeconds; },
            "float: time of the feature computation.")
        .def_property_readonly(
            "search_seconds", [](const Outcome& o) { return o.registration.searchSeconds; },
            "float: time of the search.")
        .def(
            "to_dict", [](const Outcome& o) { return ToDict(o.registration, o.statistics, o.settings); },
            "All of it but the point sets as plain values, as JSON takes them.")
        .def(py::pickle(&StateOf, &OutcomeOf))
        .def("__bool__", [](const Outcome& o) { return o.registration.reason.empty(); })
        .def("__repr__", [](const Outcome& o) {
            const Registration& r = o.registration;
            return r.reason.empty() ? "<Registration: found, " + r.results.front().ToString(true) + ">"
                                    : "<Registration: not found: " + r.reason + ">";
        });
}

} // namespace

void DefineRegistration(py::module_& m)
{
    DefineResult(m);
    DefineOutcome(m);
    m.def("register", &RegisterClouds, py::arg("fix"), py::arg("flt"), py::kw_only(), py::arg("preset") = "auto",
          py::arg("config") = py::none(), py::arg("start") = py::none(), py::arg("viewpoint") = py::none(),
          py::arg("threads") = 0, py::arg("progress") = py::none(),
          R"(Registers two scans that overlap somewhere, and says whether the answer is to be trusted.

Does what `voalgo register` does: derives the settings from the spacing of the points, computes features, searches,
verifies each result from both sides. Same input, same bits, whatever the number of threads.

Parameters
----------
fix, flt : (n, 3) array, (n, 6) array, (points, normals) or PointSet
    The scan that stays and the one that is moved, float32 or float64, millimetres. Columns 4 to 6 are normals; where
    they are missing they are estimated. A PointSet with features is taken as it is, so that its features need not be
    computed again.
preset : {"auto", "dense", "scan", "thorough"}, default "auto"
    Kind of settings: fine detail with little noise; ordinary scans (the default); small overlaps and much clutter.
config : dict, optional
    Settings that override the derived ones, also as limits of the verification; see `default_config` for the names.
start : Trafo or (4, 4) array, optional
    Refine and verify this pose (maps flt into fix) instead of searching.
viewpoint : (3,) array, optional
    Where the scanner stood, millimetres; for the signs of estimated normals.
threads : int, default 0
    Threads of the feature computation; 0: as many as the machine has.
progress : callable, optional
    Called with the name of the stage and the share done, 0 to 1. What it raises ends the registration.
**settings
    As `config`, by name: ``register(fix, flt, uiNumPolygons=500, icpConfig={"dMaxRMSE": 0.2})``.

Returns
-------
Registration

Raises
------
ValueError
    For scans that tell no pose: too few points, all on a plane, units that differ.
TypeError
    For a setting that does not exist, with the nearest known name.
KeyboardInterrupt
    Within 50 polygons of the search. The computation of the features of one scan, and their clustering
    (``dMaxPolygonDiameter < 0``), are not interrupted.)");
    m.def("icp", &RefineByIcp, py::arg("fix"), py::arg("flt"), py::arg("start") = py::none(), py::kw_only(),
          py::arg("reference") = py::none(), py::arg("config") = py::none(),
          R"(Refines a pose by iterative closest points and grades the outcome, without the verification of `register`.

Parameters
----------
fix, flt : (n, 3) array, (n, 6) array, (points, normals) or PointSet
    As for `register`.
start : Trafo or (4, 4) array, default identity
    Maps flt into fix.
reference : Trafo or (4, 4) array, optional
    Pose against which dMaxRotationDistance and dMaxMovement are measured. Default: `start`.
config : dict, optional
    Settings; see `default_icp_config`. The defaults fit scans with a spacing of some tenths of a millimetre.
**settings
    As `config`, by name: ``icp(fix, flt, start, dPositionTolerance=2.0)``.

Returns
-------
Result
    True when all tests passed; else `objection` names the one that did not.

Raises
------
ValueError
    For scans without finite points, a setting out of range.
TypeError
    For a setting that does not exist, with the nearest known name.)");
    m.def("derive_settings", &DerivedSettings, py::arg("fix"), py::arg("flt"), py::kw_only(),
          py::arg("preset") = "auto",
          R"(The settings that `register` derives from the spacing and the roughness of both scans.

Parameters
----------
fix, flt : (n, 3) array, (n, 6) array, (points, normals) or PointSet
    As for `register`.
preset : {"auto", "dense", "scan", "thorough"}, default "auto"

Returns
-------
dict
    "workingSpacing" (mm: features are computed on clouds thinned to it), "config" (see `default_config`) and
    "verification": "icpConfig" (limits of the refinements from both sides), "strictness" (the small/big limit rises by
    this per roughness that the RMSE exceeds it), "roughness" (mm), "maxTurn" (largest turn between the poses of both
    sides, rad), "minStability", "minClusterSize" (fewest proposals that must have led to the pose).)");
    m.def(
        "default_config", [] { return ToDict(prereg::ConfigurationFPFH()); },
        R"(The library's defaults of a registration; lengths in mm, angles in rad. `register` derives its own.

uiNumPolygons : 20
    Seeding attempts.
uiNumPolygonVertices : 10
    Vertices of a polygon; at least 3.
uiNumNeighbors : 10
    Similar features looked up in fix for each vertex.
dMaxPolygonDiameter : -1
    Largest polygon diameter, mm; < 0: vertices from the feature clusters.
dMaxPolygonVertexError : 1.0
    Largest accepted side-length error of a matched vertex, mm.
uiMinCurvatureQuality : 25
    Smallest curvature quality of a feature point, 0 to 100.
dFeatureRadius : 1.5
    Radius of the feature histograms, mm.
dFeatureClusteringBandwidth : -1
    Bandwidth of the feature clustering; <= 0: k-means instead.
dTrafoClusteringBandwidth : 5.0
    Bandwidth of the position clustering of accepted poses, mm.
dOrientationClusteringBandwidth : -1
    Bandwidth of the orientation clustering, rad; <= 0: off.
uiTrafoClusteringQuorum : 5
    Cluster size of the best result that ends the search; 0: never.
icpConfig : dict
    Settings of every refinement, see `default_icp_config`.)");
    m.def(
        "default_icp_config", [] { return ToDict(prereg::ConfigurationICP()); },
        R"(The library's defaults of a refinement; lengths in mm, angles in rad.

uiMaxNumIterations : 10
    Largest number of update iterations; 0 skips the iteration.
dMinQueryRadius : 0.3
    Smallest pairing radius, mm; also the "small" radius.
dInitialQueryRadiusScaling : 10
    First pairing radius = this x dPositionTolerance.
uiNumSamples : 500
    Random samples per pairing pass and final evaluation.
dPositionTolerance : 0.8
    Search radius of the final evaluation, mm.
dNormalAngleTolerance : 0.349 (20 degrees)
    Largest angle between the normals of a pair, rad.
dMaxErrorRatio : 0.03
    Mismatch limit; <= 0 disables both mismatch tests.
dMaxRotationDistance : -1
    Largest turn from the reference pose, rad; <= 0 disables.
dMaxMovement : -1
    Largest movement of the ellipsoid, mm; <= 0 disables.
dMinOverlapRatio : 0.1
    Smallest accepted final overlap ratio.
dMaxRMSE : 0.1
    Largest accepted RMSE, mm.
dMinOverlapArea : 0
    Smallest accepted overlap area, mm^2; <= 0 disables.
dMinSmallBigRatio : 0.6
    Smallest accepted small/big ratio; <= 0 skips the test.
dSmallBigQueryRadiusScaling : 10
    "Big" radius = this x dMinQueryRadius.
dInlierScaling : 5
    Inlier threshold in robust standard deviations.)");
}

} // namespace voalgo::python
