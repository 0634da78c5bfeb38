#include "report.h"

#include "VoAlgorithms/version.h"
#include "acceptance.h"
#include "config_json.h"
#include "console.h"
#include "number.h"
#include "pose_file.h"

#include <cstdio>

namespace voalgo {

namespace {

using Json = nlohmann::ordered_json;
using Result = prereg::CFPFHPreRegistration::VerifiedTrafo;
using Statistics = prereg::CFPFHPreRegistration::Statistics;

Json ToJson(const Statistics& s)
{
    Json causes = Json::array();
    for (const auto& [type, count] : s.failures)
        causes.push_back(
            {{"resultType", type}, {"count", count}, {"cause", CauseText(static_cast<std::int32_t>(type))}});
    return {{"uiNumPolygons", s.uiNumPolygons},
            {"uiNumProposals", s.uiNumProposals},
            {"uiNumSuccessful", s.uiNumSuccessful},
            {"uiNumFailed", s.uiNumFailed},
            {"failures", causes}};
}

Json ToJson(const Verification& v)
{
    return {
        {"strictness", v.strictness},     {"roughness", v.roughness},           {"maxTurn", v.maxTurn},
        {"minStability", v.minStability}, {"minClusterSize", v.minClusterSize}, {"icpConfig", voalgo::ToJson(v.icp)}};
}

std::string Table(const std::vector<JudgedTrafo>& results)
{
    std::string text = "rank  overlap   area mm2   RMSE mm  small/big  mismatches  cluster  iterations\n";
    unsigned rank = 0;
    for (const Result& r : results)
        text += Format("%4u  %7.3f  %9.4g  %8.4f  %9.3f  %10.4f  %7u  %10d\n", ++rank,
                       static_cast<double>(r.fStop_OverlapRatio), static_cast<double>(r.fStop_OverlapArea),
                       static_cast<double>(r.fStop_RMSE), static_cast<double>(r.fStop_SmallBigRatio),
                       static_cast<double>(r.fStop_MismatchesPerMatchRatio), r.clusterSize, r.iStop_Iterations);
    return text;
}

std::string Refusal(const Registration& registration)
{
    const Statistics& s = registration.statistics;
    std::string text = "no registration found: " + registration.reason + "\n";
    if (s.uiNumPolygons == 0) return text; // a refinement alone
    text += Format("%u polygons, %u proposed poses, %u accepted, %u refused\n", s.uiNumPolygons, s.uiNumProposals,
                   s.uiNumSuccessful, s.uiNumFailed);
    for (const auto& [type, count] : s.failures)
        text += Format("%6u  %s\n", count, CauseText(static_cast<std::int32_t>(type)).c_str());
    return text;
}

} // namespace

Json ToJson(const Result& r, double mmPerUnit)
{
    return {{"pose", InUnit(r.trafo, mmPerUnit)},
            {"resultType", r.resultType},
            {"clusterSize", r.clusterSize},
            {"fStart_OverlapRatio", ShortNumber(r.fStart_OverlapRatio)},
            {"iStart_NumberOfInliers", r.iStart_NumberOfInliers},
            {"fStart_RMSE", ShortNumber(r.fStart_RMSE)},
            {"fStart_MismatchesPerMatchRatio", ShortNumber(r.fStart_MismatchesPerMatchRatio)},
            {"fStop_OverlapRatio", ShortNumber(r.fStop_OverlapRatio)},
            {"fStop_OverlapArea", ShortNumber(r.fStop_OverlapArea)},
            {"iStop_NumberOfInliers", r.iStop_NumberOfInliers},
            {"fStop_RMSE", ShortNumber(r.fStop_RMSE)},
            {"fStop_MismatchesPerMatchRatio", ShortNumber(r.fStop_MismatchesPerMatchRatio)},
            {"iStop_Iterations", r.iStop_Iterations},
            {"fStop_SmallBigRatio", ShortNumber(r.fStop_SmallBigRatio)}};
}

Json ToJson(const PreparedCloud& p)
{
    return {{"file", p.name},
            {"pointsRead", p.read},
            {"points", p.cloud.points.size()},
            {"droppedNotFinite", p.notFinite},
            {"droppedDuplicates", p.duplicates},
            {"normalsEstimated", p.estimatedNormals},
            {"normalsScaled", p.scaledNormals},
            {"normalsZero", p.zeroNormals},
            {"spacing", ShortNumber(static_cast<float>(p.spacing))},
            {"extent", ShortNumber(static_cast<float>(p.Extent()))}};
}

Json ToJson(const Report& report)
{
    const Registration& registration = report.registration;
    Json results = Json::array();
    for (const Result& r : registration.results) results.push_back(ToJson(r, report.mmPerUnit));
    return {{"voalgo", VOALGO_VERSION},
            {"fix", ToJson(report.fix)},
            {"flt", ToJson(report.flt)},
            {"unit", report.unit},
            {"found", registration.reason.empty()},
            {"reason", registration.reason},
            {"results", results},
            {"statistics", ToJson(registration.statistics)},
            {"settings",
             {{"preset", report.preset},
              {"workingSpacing", report.settings.workingSpacing},
              {"config", ToJson(report.settings.config)},
              {"verification", ToJson(report.settings.verification)}}}};
}

std::string ToText(const Registration& registration)
{
    const std::string table = registration.results.empty() ? "" : Table(registration.results);
    return registration.reason.empty() ? table : table + Refusal(registration);
}

void Print(const Report& report, bool json)
{
    if (!json) {
        std::fputs(ToText(report.registration).c_str(), stdout);
        return;
    }
    auto object = ToJson(report);
    object["seconds"] = {{"features", report.registration.featureSeconds},
                         {"search", report.registration.searchSeconds}};
    std::printf("%s\n", object.dump(2).c_str());
}

} // namespace voalgo
