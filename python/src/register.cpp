#include "VoAlgorithms/verdict/registerscans.h"

#include "VoAlgorithms/prereg/cpointset.h"
#include "VoAlgorithms/verdict/localframes.h"
#include "VoAlgorithms/verdict/scanfault.h"
#include "configuration.h"
#include "module.h"
#include "platform/clock.h"
#include "registration.h"
#include "scalars.h"
#include "scan_argument.h"
#include "values.h"

#include <optional>
#include <string>

namespace voalgo::python {

using prereg::ConfigurationFPFH;
using prereg::ConfigurationICP;
using prereg::EPreset;
using prereg::JudgedTrafo;
using prereg::PreparedScan;
using prereg::RegistrationSettings;
using VoAlgo::CbMatrix4Rd;
using VoAlgo::CTrafo;

namespace {

EPreset ReadPreset(const Text& preset)
{
    const std::string name = ReadText(preset, "preset");
    if (const std::optional<EPreset> known = prereg::PresetOf(name)) return *known;
    std::string names;
    for (const std::string& each : prereg::PresetNames()) names += (names.empty() ? "" : ", ") + each;
    throw py::value_error("preset: must be one of " + names + ", is " + name);
}

std::optional<CbMatrix4Rd> ReadStart(const py::object& start)
{
    return start.is_none() ? std::nullopt : std::make_optional(ReadPose(start, "start"));
}

/// Between two steps: lets the interpreter raise KeyboardInterrupt, and calls the user's function. Its False cancels;
/// what it raises leaves the registration.
std::function<bool(const std::string&, double)> ReadProgress(const py::object& progress)
{
    if (!progress.is_none() && PyCallable_Check(progress.ptr()) == 0)
        throw py::type_error("progress: must be callable, is " + TypeOf(progress));
    return [&progress](const std::string& stage, double share) {
        const py::gil_scoped_acquire acquire;
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        return progress.is_none() || !progress(stage, share).is(py::bool_(false));
    };
}

/// The settings that the caller states, applied to those that follow from the scans.
std::function<void(ConfigurationFPFH&)> ReadOverrides(const py::object& config, const py::dict& keywords)
{
    ConfigurationFPFH unused;
    Apply(config, keywords, unused); // wrong ones are told before the scans are read
    return [&config, &keywords](ConfigurationFPFH& settings) {
        const py::gil_scoped_acquire acquire;
        Apply(config, keywords, settings);
    };
}

Found Register(const py::object& fix, const py::object& flt, const Text& preset, const py::object& config,
               const py::object& start, const py::object& viewpoint, const Whole& threads, const py::object& progress,
               const py::kwargs& keywords)
{
    prereg::RegistrationOptions options;
    options.preset = ReadPreset(preset);
    options.threads = ReadCount(threads, "threads");
    VoAlgo::CFunctionProgressMeter meter(ReadProgress(progress));
    options.progress = &meter;
    options.adjust = ReadOverrides(config, keywords);
    options.start = ReadStart(start);
    const std::optional<Position> from = ReadViewpoint(viewpoint);
    const VoAlgo::CStopwatch watch;
    Found found{ReadPrepared(fix, "fix", from), ReadPrepared(flt, "flt", from), ReadText(preset, "preset")};
    found.readingSeconds = watch.Seconds();
    const py::gil_scoped_release release;
    found.registration = RegisterScans(found.fix, found.flt, options);
    return found;
}

py::dict DerivedSettings(const py::object& fixArgument, const py::object& fltArgument, const Text& preset)
{
    const EPreset kind = ReadPreset(preset);
    const PreparedScan fix = ReadPrepared(fixArgument, "fix"), flt = ReadPrepared(fltArgument, "flt");
    if (const prereg::Refusal fault = FindFault(fix, flt)) throw py::value_error(fault.text);
    RegistrationSettings settings;
    {
        const py::gil_scoped_release release;
        settings = DeriveSettings(fix.scan, flt.scan, kind);
    }
    return ToDict(settings);
}

/// A scan without features.
class Surfels : public prereg::CPointSet {
public:
    explicit Surfels(const PreparedScan& scan) : CPointSet(scan.scan.points, scan.scan.normals) {}
};

Result RefineByIcp(const py::object& fixArgument, const py::object& fltArgument, const py::object& start,
                   const py::object& reference, const py::object& config, const py::kwargs& keywords)
{
    const CbMatrix4Rd from = ReadStart(start).value_or(CbMatrix4Rd());
    const CbMatrix4Rd limits = reference.is_none() ? from : ReadPose(reference, "reference");
    const PreparedScan fix = ReadPrepared(fixArgument, "fix"), flt = ReadPrepared(fltArgument, "flt");
    for (const PreparedScan* scan : {&fix, &flt}) RequirePoints(*scan);
    ConfigurationICP settings;
    {
        const py::gil_scoped_release release;
        settings = DeriveSettings(fix.scan, flt.scan).config.icpConfig;
    }
    Apply(config, keywords, settings);
    const py::gil_scoped_release release;
    const auto local = [&](const CbMatrix4Rd& pose) {
        return prereg::LocalPose(pose, fix.scan.origin, flt.scan.origin);
    };
    const CTrafo localLimits = local(limits);
    const prereg::ICPResult result =
        Surfels(fix).ComputeICPRegistration(settings, Surfels(flt), local(from), &localLimits);
    JudgedTrafo judged({result, 1}, prereg::Refusal(prereg::RefusalOf(result.resultType)));
    judged.tests = TestsOf(result, settings, prereg::EStage::Grading);
    return {judged, fix.scan.origin, flt.scan.origin};
}

constexpr const char* RegisterHelp =
    R"(Registers two scans that overlap somewhere and says whether the answer can be trusted.

The same as ``voalgo register``: settings follow from the scans, features propose poses, and the candidates are refined
and judged by the evidence of both scans. The same input gives the same bits, with any number of threads.

Parameters
----------
fix, flt : Scan, PointSet, (n, 3) or (n, 6) array, or (points, normals)
    The scan that stays and the scan that is moved; float32 or float64, millimetres. Far from 0, give float64. Columns 4 to 6 are normals.
    Missing normals are estimated. A PointSet with features is used as it is: its features are not computed again.
preset : {"auto", "dense", "scan", "thorough"}, default "auto"
    Kind of settings. "dense": fine detail and little noise; "scan": ordinary scans, as "auto"; "thorough": small
    overlaps and much clutter, slower.
config : dict, optional
    Settings that replace the derived ones, also as limits of the verification; `default_config` explains them.
start : Trafo or (4, 4) array, optional
    A pose that maps flt into fix: refine and verify it instead of searching.
viewpoint : (3,) array, optional
    Position of the scanner, millimetres, for scans that do not state their own; estimated normals point towards it.
threads : int, default 0
    Threads that compute features and refine poses; 0: one per processor.
progress : callable, optional
    Called between steps with the stage ("features" or "search") and the share of the whole that is done, 0 to 1. Return
    False to cancel; None and everything else go on. An exception ends the registration and reaches the caller.
**settings
    Like `config`, by name: ``register(fix, flt, uiNumPolygons=500, icpConfig={"dMaxRMSE": 0.2})``.

Returns
-------
Registration
    Refused, with its `reason` and `reason_code`, when no pose can be trusted. That includes scans that cannot
    determine a pose (too few points, all on a plane, units that differ) and a call that was cancelled.

Raises
------
TypeError
    For an unknown setting; the message names the most similar one.
ValueError
    For a setting or another argument out of range.
KeyboardInterrupt
    On Ctrl-C, within 50 polygons of the search. Computing the features of a scan, and clustering them
    (``dMaxPolygonDiameter < 0``), is not interrupted.)";

constexpr const char* IcpHelp =
    R"(Refines a pose by iterative closest points and tests the outcome, without the verification of `register`.

Parameters
----------
fix, flt : Scan, PointSet, (n, 3) or (n, 6) array, or (points, normals)
    As for `register`.
start : Trafo or (4, 4) array, default identity
    Maps flt into fix.
reference : Trafo or (4, 4) array, optional
    The pose that dMaxRotationDistance and dMaxMovement are measured from. Default: `start`.
config : dict, optional
    Settings that replace the derived ones; `default_icp_config` explains them. By default they follow from the
    spacing and the roughness of both scans: ``derive_settings(fix, flt)["config"]["icpConfig"]``.
**settings
    Like `config`, by name: ``icp(fix, flt, start, dPositionTolerance=2.0)``.

Returns
-------
Result
    True when all tests passed; otherwise `objection` says why not.

Raises
------
ValueError
    When a scan has no finite points, or for a setting out of range.
TypeError
    For an unknown setting; the message names the most similar one.)";

std::string SettingsHelp()
{
    return R"(Derives the settings of a registration from both scans, as `register` does.

They follow from the size of the object, the spacing of the points and the roughness of the surface.

Parameters
----------
fix, flt : Scan, PointSet, (n, 3) or (n, 6) array, or (points, normals)
    As for `register`.
preset : {"auto", "dense", "scan", "thorough"}, default "auto"

Returns
-------
dict
    "resolution": denser scans are thinned to this spacing before the search, millimetres. "workingSpacing": features
    are computed on scans thinned to this spacing, millimetres; 0: not thinned.
    "config": settings of the search, see `default_config`. "verification": settings of the final verification.

Raises
------
ValueError
    When a scan cannot determine a pose.

Notes
-----
The verification grades the refined pose with its own "icpConfig". Besides, it has

)" + DescribeFields(prereg::Verification());
}

std::string ConfigHelp()
{
    return "The library's fixed settings of a registration. `register` derives better ones from the scans.\n\n" +
           DescribeFields(ConfigurationFPFH()) + prereg::IcpKey +
           " : dict\n    Settings of every refinement; see `default_icp_config`.";
}

std::string IcpConfigHelp()
{
    return "The library's fixed settings of a refinement. `register` and `icp` derive better ones from the scans.\n\n" +
           DescribeFields(ConfigurationICP());
}

} // namespace

void DefineRegister(py::module_& m)
{
    m.def("register", &Register, py::arg("fix"), py::arg("flt"), py::kw_only(), py::arg("preset") = "auto",
          py::arg("config") = py::none(), py::arg("start") = py::none(), py::arg("viewpoint") = py::none(),
          py::arg("threads") = 0, py::arg("progress") = py::none(), RegisterHelp);
    m.def("icp", &RefineByIcp, py::arg("fix"), py::arg("flt"), py::arg("start") = py::none(), py::kw_only(),
          py::arg("reference") = py::none(), py::arg("config") = py::none(), IcpHelp);
    m.def("derive_settings", &DerivedSettings, py::arg("fix"), py::arg("flt"), py::kw_only(),
          py::arg("preset") = "auto", SettingsHelp().c_str());
    m.def(
        "default_config", [] { return ToDict(ConfigurationFPFH()); }, ConfigHelp().c_str());
    m.def(
        "default_icp_config", [] { return ToDict(ConfigurationICP()); }, IcpConfigHelp().c_str());
}

} // namespace voalgo::python
