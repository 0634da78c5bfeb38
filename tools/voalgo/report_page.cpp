#include "report_page.h"

#include "number.h"
#include "report_cloud.h"
#include "report_template.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace voalgo {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t MostPoints = 150000; // of a cloud on the page
constexpr std::size_t MostPoses = 5;       // results, and refused ones, on the page: it stays below 10 MB

const char* Word(AcceptanceTest::Outcome outcome)
{
    switch (outcome) {
    case AcceptanceTest::Outcome::Passed:
        return "passed";
    case AcceptanceTest::Outcome::Failed:
        return "failed";
    case AcceptanceTest::Outcome::NotRun:
        break;
    }
    return "not run";
}

Json ToJson(const AcceptanceTest& test)
{
    return {{"name", test.name},   {"stage", test.stage}, {"setting", test.setting},   {"unit", test.unit},
            {"value", test.value}, {"limit", test.limit}, {"isAtMost", test.isAtMost}, {"outcome", Word(test.outcome)}};
}

/// The page's view of one scan.
Json ScanOf(const PreparedCloud& prepared, const std::vector<std::uint32_t>& shown)
{
    Json scan = ToJson(prepared);
    const Remarks remarks = Describe(prepared);
    scan["notes"] = remarks.notes;
    scan["warnings"] = remarks.warnings;
    scan["shown"] = shown.size();
    scan["cloud"] = PackCloud(prepared.cloud, shown);
    return scan;
}

class Page {
public:
    explicit Page(const Report& report)
        : report_(report), fix_(ShownPoints(report.fix.cloud.points.size(), MostPoints)),
          flt_(ShownPoints(report.flt.cloud.points.size(), MostPoints))
    {
    }

    [[nodiscard]] Json Data() const
    {
        const Registration& registration = report_.registration;
        Json data = ToJson(report_);
        data["fix"] = ScanOf(report_.fix, fix_);
        data["flt"] = ScanOf(report_.flt, flt_);
        data.erase("results"); // they are among the poses
        data["mmPerUnit"] = report_.mmPerUnit;
        data["isRefinement"] = report_.isRefinement;
        data["pairRadius"] = PairRadius();
        data["pairAngle"] = PairAngle();
        data["poses"] = Json::array();
        data["refusedCount"] = registration.refused.size();
        data["resultCount"] = registration.results.size();
        AddPoses(data["poses"], registration.results);
        AddPoses(data["poses"], registration.refused);
        return data;
    }

private:
    /// Twice the tolerance of the search shows what just misses it too.
    [[nodiscard]] double PairRadius() const { return 2.0 * report_.settings.verification.icp.dPositionTolerance; }
    [[nodiscard]] double PairAngle() const { return report_.settings.verification.icp.dNormalAngleTolerance; }

    void AddPoses(Json& poses, const std::vector<JudgedTrafo>& judged) const
    {
        for (std::size_t i = 0; i < std::min(judged.size(), MostPoses); ++i) {
            const JudgedTrafo& j = judged[i];
            Json tests = Json::array();
            for (const AcceptanceTest& test : j.tests) tests.push_back(ToJson(test));
            Json pose = ToJson(j, 1.0);
            pose["objection"] = j.objection;
            pose["tests"] = tests;
            pose["distances"] = PackDistances(
                SignedDistances({PairRadius(), PairAngle(), report_.fix.cloud, report_.flt.cloud}, flt_, j.trafo),
                PairRadius());
            poses.push_back(pose);
        }
    }

    const Report& report_;
    std::vector<std::uint32_t> fix_; // shown points
    std::vector<std::uint32_t> flt_;
};

/// JSON that may stand in a script element, whatever names the files have.
std::string ForScript(const Json& data)
{
    std::string text = data.dump(-1, ' ', true, Json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) text.replace(at, 1, "\\u003c");
    return text;
}

} // namespace

std::string ReportPage(const Report& report, const Times& times)
{
    const auto start = std::chrono::steady_clock::now();
    Json data = Page(report).Data();
    const std::chrono::duration<double> packing = std::chrono::steady_clock::now() - start;
    data["seconds"] = {{"reading", times.reading},
                       {"settings", times.settings},
                       {"features", report.registration.featureSeconds},
                       {"search", report.registration.searchSeconds},
                       {"report", packing.count()}};
    std::string page(ReportTemplate());
    constexpr std::string_view Mark = "@VOALGO_REPORT_DATA@";
    return page.replace(page.find(Mark), Mark.size(), ForScript(data));
}

} // namespace voalgo
