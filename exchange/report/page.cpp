#include "exchange/report/page.h"

#include "exchange/report/packed_cloud.h"
#include "exchange/report/page_template.h"
#include "platform/clock.h"

#include <algorithm>

namespace voalgo {

namespace {

using Json = nlohmann::ordered_json;

// These keep the page below 10 MB.
constexpr std::size_t MostPoints = 150000; // of each cloud
constexpr std::size_t MostPoses = 5;       // of the results, and of the refused poses

/// Unit and meaning of every setting on the page.
Json FieldsOf(const prereg::RegistrationSettings& settings)
{
    Json fields;
    const auto add = [&](const prereg::FieldInfo& info, const auto&) {
        fields[info.key] = {{"unit", info.unit}, {"meaning", info.meaning}, {"off", info.off}};
    };
    prereg::VisitFields(settings.config, add);
    prereg::VisitFields(settings.config.icpConfig, add);
    prereg::VisitFields(settings.verification, add);
    add({"resolution", "mm", "spacing to which denser scans are thinned before the search", ""}, 0.0);
    add({"workingSpacing", "mm", "spacing to which scans are thinned for the features", "not thinned"}, 0.0);
    return fields;
}

/// The page's view of one scan; the cloud is relative to the origin.
Json ScanOf(const prereg::PreparedScan& prepared, const std::vector<std::uint32_t>& shown, const std::string& checksum)
{
    Json scan = ToJson(prepared, {}, checksum);
    const prereg::Remarks remarks = Describe(prepared);
    scan["notes"] = remarks.notes;
    scan["warnings"] = remarks.warnings;
    scan["shown"] = shown.size();
    scan["origin"] = prepared.scan.origin;
    scan["cloud"] = PackCloud(prepared.scan, shown);
    return scan;
}

class Page {
public:
    explicit Page(const Outcome& outcome)
        : outcome_(outcome), settings_(outcome.registration.settings),
          fix_(ShownPoints(outcome.fix.scan.points.size(), MostPoints)),
          flt_(ShownPoints(outcome.flt.scan.points.size(), MostPoints))
    {
    }

    [[nodiscard]] Json Data() const
    {
        const prereg::Registration& registration = outcome_.registration;
        Outcome inMillimetres = outcome_;
        inMillimetres.unit = {};
        Json data = ToJson(inMillimetres);
        data["unit"] = outcome_.unit.name; // of the poses
        data["fix"] = ScanOf(outcome_.fix, fix_, outcome_.checksums.fix);
        data["flt"] = ScanOf(outcome_.flt, flt_, outcome_.checksums.flt);
        data.erase("results"); // which are among the poses
        data["fields"] = FieldsOf(settings_);
        data["isRefinement"] = registration.isRefinement;
        data["pairRadius"] = pairRadius();
        data["pairAngle"] = pairAngle();
        data["poses"] = Json::array();
        data["refusedCount"] = registration.refused.size();
        data["resultCount"] = registration.results.size();
        addPoses(data["poses"], registration.results);
        addPoses(data["poses"], registration.refused);
        return data;
    }

private:
    /// Twice the tolerance of the verification also shows points that just miss it.
    [[nodiscard]] double pairRadius() const { return 2.0 * settings_.verification.icp.dPositionTolerance; }
    [[nodiscard]] double pairAngle() const { return settings_.verification.icp.dNormalAngleTolerance; }

    void addPoses(Json& poses, const std::vector<prereg::JudgedTrafo>& judged) const
    {
        for (std::size_t i = 0; i < std::min(judged.size(), MostPoses); ++i) {
            const prereg::JudgedTrafo& j = judged[i];
            Json pose = ToJson(j, InUnit(outcome_.registration.PoseOf(j), outcome_.unit));
            pose["localPose"] = InUnit(j.trafo, {});
            pose["objection"] = j.objection.text;
            pose["objectionCode"] = CodeOf(j.objection.code);
            pose["distances"] = PackDistances(
                SignedDistances({pairRadius(), pairAngle(), outcome_.fix.scan, outcome_.flt.scan}, flt_, j.trafo),
                pairRadius());
            poses.push_back(pose);
        }
    }

    const Outcome& outcome_;
    const prereg::RegistrationSettings& settings_;
    std::vector<std::uint32_t> fix_; // indices of the points shown
    std::vector<std::uint32_t> flt_; // the same of flt
};

/// JSON that is safe inside a script element, whatever the files are called.
std::string ForScript(const Json& data)
{
    std::string text = data.dump(-1, ' ', true, Json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) text.replace(at, 1, "\\u003c");
    return text;
}

} // namespace

std::string ReportPage(const Outcome& outcome)
{
    const VoAlgo::CStopwatch packing;
    Json data = Page(outcome).Data();
    const prereg::Registration::Seconds& seconds = outcome.registration.seconds;
    data["seconds"] = {{"reading", outcome.readingSeconds},
                       {"settings", seconds.settings},
                       {"features", seconds.features},
                       {"search", seconds.search},
                       {"report", packing.Seconds()}};
    std::string page(ReportTemplate());
    constexpr std::string_view Mark = "@VOALGO_REPORT_DATA@";
    return page.replace(page.find(Mark), Mark.size(), ForScript(data));
}

} // namespace voalgo
