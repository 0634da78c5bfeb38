#include "registration_dicts.h"

#include "arrays.h"
#include "configuration.h"

#include <cmath>
#include <limits>
#include <type_traits>

namespace voalgo::python {

using namespace pybind11::literals;

namespace {

py::object NumberOrNone(double value)
{
    return std::isnan(value) ? py::object(py::none()) : py::object(py::float_(value));
}

double NumberOrNaN(const py::object& number)
{
    return number.is_none() ? std::numeric_limits<double>::quiet_NaN() : number.cast<double>();
}

const char* NameOf(AcceptanceTest::Outcome outcome)
{
    switch (outcome) {
    case AcceptanceTest::Outcome::Passed:
        return "passed";
    case AcceptanceTest::Outcome::Failed:
        return "failed";
    default:
        return "not run";
    }
}

/// The library's figures of a result.
template <class Result, class Visit>
void VisitFigures(Result& r, Visit visit)
{
    visit("resultType", r.resultType);
    visit("clusterSize", r.clusterSize);
    visit("fStart_OverlapRatio", r.fStart_OverlapRatio);
    visit("iStart_NumberOfInliers", r.iStart_NumberOfInliers);
    visit("fStart_RMSE", r.fStart_RMSE);
    visit("fStart_MismatchesPerMatchRatio", r.fStart_MismatchesPerMatchRatio);
    visit("fStop_OverlapRatio", r.fStop_OverlapRatio);
    visit("fStop_OverlapArea", r.fStop_OverlapArea);
    visit("iStop_NumberOfInliers", r.iStop_NumberOfInliers);
    visit("fStop_RMSE", r.fStop_RMSE);
    visit("fStop_MismatchesPerMatchRatio", r.fStop_MismatchesPerMatchRatio);
    visit("iStop_Iterations", r.iStop_Iterations);
    visit("fStop_SmallBigRatio", r.fStop_SmallBigRatio);
}

AcceptanceTest TestOf(const py::dict& dict)
{
    AcceptanceTest t;
    t.name = dict["name"].cast<std::string>();
    t.setting = dict["setting"].cast<std::string>();
    t.unit = dict["unit"].cast<std::string>();
    t.value = NumberOrNaN(dict["value"]);
    t.limit = NumberOrNaN(dict["limit"]);
    t.isAtMost = dict["isAtMost"].cast<bool>();
    for (const auto outcome : {AcceptanceTest::Outcome::Passed, AcceptanceTest::Outcome::Failed})
        if (dict["outcome"].cast<std::string>() == NameOf(outcome)) t.outcome = outcome;
    t.stage = dict["stage"].cast<std::string>();
    return t;
}

template <class T>
py::list ToDicts(const std::vector<T>& items)
{
    py::list dicts;
    for (const T& item : items) dicts.append(ToDict(item));
    return dicts;
}

} // namespace

py::dict ToDict(const Settings& s)
{
    const Verification& v = s.verification;
    return py::dict("workingSpacing"_a = s.workingSpacing, "config"_a = ToDict(s.config),
                    "verification"_a = py::dict("strictness"_a = v.strictness, "roughness"_a = v.roughness,
                                                "maxTurn"_a = v.maxTurn, "minStability"_a = v.minStability,
                                                "minClusterSize"_a = v.minClusterSize, "icpConfig"_a = ToDict(v.icp)));
}

py::dict ToDict(const AcceptanceTest& t)
{
    return py::dict("name"_a = t.name, "setting"_a = t.setting, "unit"_a = t.unit, "value"_a = NumberOrNone(t.value),
                    "limit"_a = NumberOrNone(t.limit), "isAtMost"_a = t.isAtMost, "outcome"_a = NameOf(t.outcome),
                    "stage"_a = t.stage);
}

py::dict ToDict(const JudgedTrafo& r)
{
    const auto& e = r.ellipsoid;
    py::dict dict("pose"_a = MatrixOf(r.trafo).attr("tolist")(), "objection"_a = r.objection,
                  "ellipsoid"_a = CopyVectors({e[0], e[1], e[2], e[3]}).attr("tolist")(), "tests"_a = ToDicts(r.tests));
    VisitFigures(r, [&](const char* key, const auto& figure) { dict[key] = figure; });
    return dict;
}

JudgedTrafo ResultOf(const py::dict& dict)
{
    JudgedTrafo r({}, dict["objection"].cast<std::string>());
    VisitFigures(r, [&](const char* key, auto& figure) { figure = dict[key].cast<std::decay_t<decltype(figure)>>(); });
    r.trafo = ReadStoredPose(dict["pose"]);
    const std::vector<Vec3> e = ReadVectors(dict["ellipsoid"], "ellipsoid");
    r.ellipsoid = {e.at(0), e.at(1), e.at(2), e.at(3)};
    for (const py::handle test : dict["tests"]) r.tests.push_back(TestOf(test.cast<py::dict>()));
    return r;
}

py::dict ToDict(const prereg::CFPFHPreRegistration::Statistics& s)
{
    py::list failures;
    for (const auto& [type, count] : s.failures)
        failures.append(
            py::dict("resultType"_a = type, "count"_a = count, "cause"_a = CauseText(static_cast<std::int32_t>(type))));
    return py::dict("uiNumPolygons"_a = s.uiNumPolygons, "uiNumProposals"_a = s.uiNumProposals,
                    "uiNumSuccessful"_a = s.uiNumSuccessful, "uiNumFailed"_a = s.uiNumFailed, "failures"_a = failures);
}

py::dict ToDict(const Registration& r, const py::dict& statistics, const py::dict& settings)
{
    return py::dict("found"_a = r.reason.empty(), "reason"_a = r.reason, "results"_a = ToDicts(r.results),
                    "refused"_a = ToDicts(r.refused), "statistics"_a = statistics, "settings"_a = settings,
                    "feature_seconds"_a = r.featureSeconds, "search_seconds"_a = r.searchSeconds);
}

Registration RegistrationOf(const py::dict& dict)
{
    Registration r;
    for (const py::handle result : dict["results"]) r.results.push_back(ResultOf(result.cast<py::dict>()));
    for (const py::handle result : dict["refused"]) r.refused.push_back(ResultOf(result.cast<py::dict>()));
    r.reason = dict["reason"].cast<std::string>();
    r.featureSeconds = dict["feature_seconds"].cast<double>();
    r.searchSeconds = dict["search_seconds"].cast<double>();
    return r;
}

} // namespace voalgo::python
