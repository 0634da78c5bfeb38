#include "exchange/report/outcome.h"

#include "VoAlgorithms/prereg/eicpresulttype.h"
#include "VoAlgorithms/version.h"
#include "exchange/report/config_json.h"
#include "exchange/report/short_number.h"

#include <type_traits>

namespace voalgo {

namespace {

using Json = nlohmann::ordered_json;
using prereg::EICPResultType;

Json ToJson(const prereg::CFPFHPreRegistration::Statistics& s)
{
    Json causes = Json::array();
    for (const auto& [value, count] : s.failures) {
        const auto type = static_cast<EICPResultType>(value);
        causes.push_back({{"resultType", value}, {"code", CodeOf(type)}, {"count", count}, {"cause", CauseOf(type)}});
    }
    return {{"uiNumPolygons", s.uiNumPolygons},
            {"uiNumProposals", s.uiNumProposals},
            {"uiNumSuccessful", s.uiNumSuccessful},
            {"uiNumFailed", s.uiNumFailed},
            {"failures", causes}};
}

Json ToJson(const prereg::AcceptanceTest& t, const LengthUnit& unit)
{
    const prereg::TestInfo& info = InfoOf(t.test);
    const auto scaled = [&](double figure) { return figure / unit.ScaleOf(info.unit, figure); };
    return {{"code", info.code},
            {"name", info.name},
            {"stage", NameOf(t.stage)},
            {"setting", info.setting},
            {"unit", unit.NameOf(info.unit)},
            {"value", scaled(t.value)},
            {"limit", scaled(t.limit)},
            {"isAtMost", info.isAtMost},
            {"outcome", NameOf(t.outcome)}};
}

} // namespace

PoseMatrix InUnit(const VoAlgo::CbMatrix4Rd& pose, const LengthUnit& unit)
{
    PoseMatrix matrix{};
    for (unsigned r = 0; r < 4; ++r)
        for (unsigned c = 0; c < 4; ++c)
            matrix[r][c] = (c == 3 && r < 3 ? pose(r, c) / unit.mm : pose(r, c)) + 0.0; // no −0
    return matrix;
}

Json ToJson(const prereg::JudgedTrafo& judged, const PoseMatrix& pose, const LengthUnit& unit)
{
    Json json = {{"pose", pose},
                 {"resultType", judged.resultType},
                 {"resultCode", CodeOf(static_cast<EICPResultType>(judged.resultType))},
                 {"clusterSize", judged.clusterSize}};
    prereg::VisitFields(static_cast<const prereg::ICPResult&>(judged),
                        [&](const prereg::FieldInfo& info, const auto& field) {
                            if constexpr (std::is_floating_point_v<std::remove_cvref_t<decltype(field)>>) {
                                json[info.key] = ShortNumber(field, unit.ScaleOf(info.unit, double{field}));
                            } else {
                                json[info.key] = field;
                            }
                        });
    json["tests"] = Json::array();
    for (const prereg::AcceptanceTest& test : judged.tests) json["tests"].push_back(ToJson(test, unit));
    return json;
}

Json ToJson(const prereg::PreparedScan& p, const LengthUnit& unit, const std::string& checksum)
{
    Json json = {{"file", p.scan.name},
                 {"pointsRead", p.read},
                 {"points", p.scan.points.size()},
                 {"droppedNotFinite", p.notFinite},
                 {"droppedDuplicates", p.duplicates},
                 {"normalsEstimated", p.estimatedNormals},
                 {"normalsScaled", p.scaledNormals},
                 {"normalsZero", p.zeroNormals},
                 {"spacing", ShortNumber(static_cast<float>(p.spacing), unit.mm)},
                 {"extent", ShortNumber(static_cast<float>(p.Extent()), unit.mm)},
                 {"sampledFromMesh", p.scan.meshSpacing > 0.0}};
    if (!checksum.empty()) json["sha1"] = checksum;
    return json;
}

Json ToJson(const Outcome& outcome)
{
    const prereg::Registration& registration = outcome.registration;
    const LengthUnit& unit = outcome.unit;
    Json results = Json::array();
    for (const prereg::JudgedTrafo& judged : registration.results)
        results.push_back(ToJson(judged, InUnit(registration.PoseOf(judged), unit), unit));
    return {{"voalgo", VOALGO_VERSION},
            {"fix", ToJson(outcome.fix, unit, outcome.checksums.fix)},
            {"flt", ToJson(outcome.flt, unit, outcome.checksums.flt)},
            {"unit", unit.name},
            {"found", static_cast<bool>(registration)},
            {"reason", registration.Reason()},
            {"reasonCode", CodeOf(registration.refusal.code)},
            {"results", results},
            {"statistics", ToJson(registration.statistics)},
            {"settings",
             {{"preset", outcome.preset},
              {"resolution", registration.settings.resolution / unit.mm},
              {"workingSpacing", registration.settings.workingSpacing / unit.mm},
              {"config", ToJson(registration.settings.config, unit)},
              {"verification", ToJson(registration.settings.verification, unit)}}}};
}

std::string JsonText(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace voalgo
