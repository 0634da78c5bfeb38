#include "registration_dicts.h"

#include "arrays.h"
#include "configuration.h"

#include <cmath>

namespace voalgo::python {

using namespace pybind11::literals;

namespace {

py::object NumberOrNone(double value)
{
    return std::isnan(value) ? py::object(py::none()) : py::object(py::float_(value));
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
    return py::dict(
        "pose"_a = MatrixOf(r.trafo).attr("tolist")(), "resultType"_a = r.resultType, "objection"_a = r.objection,
        "clusterSize"_a = r.clusterSize, "fStart_OverlapRatio"_a = r.fStart_OverlapRatio,
        "iStart_NumberOfInliers"_a = r.iStart_NumberOfInliers, "fStart_RMSE"_a = r.fStart_RMSE,
        "fStart_MismatchesPerMatchRatio"_a = r.fStart_MismatchesPerMatchRatio,
        "fStop_OverlapRatio"_a = r.fStop_OverlapRatio, "fStop_OverlapArea"_a = r.fStop_OverlapArea,
        "iStop_NumberOfInliers"_a = r.iStop_NumberOfInliers, "fStop_RMSE"_a = r.fStop_RMSE,
        "fStop_MismatchesPerMatchRatio"_a = r.fStop_MismatchesPerMatchRatio, "iStop_Iterations"_a = r.iStop_Iterations,
        "fStop_SmallBigRatio"_a = r.fStop_SmallBigRatio, "tests"_a = ToDicts(r.tests));
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

py::dict ToDict(const Registration& r, const py::dict& settings)
{
    return py::dict("found"_a = r.reason.empty(), "reason"_a = r.reason, "results"_a = ToDicts(r.results),
                    "refused"_a = ToDicts(r.refused), "statistics"_a = ToDict(r.statistics), "settings"_a = settings,
                    "feature_seconds"_a = r.featureSeconds, "search_seconds"_a = r.searchSeconds);
}

} // namespace voalgo::python
