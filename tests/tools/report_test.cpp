#include "VoAlgorithms/runtime/base64.h"
#include "VoAlgorithms/runtime/sha1.h"
#include "tools/tool_runner.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <regex>

namespace tooltest {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// The data of the page, read as a browser reads them: up to the first end of a script.
json DataOf(const std::string& page)
{
    const std::string start = R"(<script type="application/json" id="data">)";
    const std::size_t begin = page.find(start) + start.size();
    return json::parse(page.substr(begin, page.find("</script", begin) - begin));
}

std::string FromBase64(const std::string& text)
{
    const std::vector<unsigned char> bytes = VoAlgo::Base64::Decode(text);
    return {bytes.begin(), bytes.end()};
}

double Code16(const std::string& bytes, std::size_t i, bool isSigned)
{
    const unsigned code = static_cast<unsigned char>(bytes[2 * i]) |
                          static_cast<unsigned>(static_cast<unsigned char>(bytes[2 * i + 1])) << 8U;
    return isSigned ? static_cast<double>(static_cast<std::int16_t>(code)) : static_cast<double>(code);
}

/// The packed cloud holds the file's points and normals, each in its place.
void ExpectSameCloud(const json& scan, const PlyContent& file)
{
    const json& packed = scan["cloud"];
    const std::string positions = FromBase64(packed["positions"]), normals = FromBase64(packed["normals"]);
    ASSERT_EQ(positions.size(), 6 * file.points.size());
    ASSERT_EQ(normals.size(), 3 * file.points.size());
    for (std::size_t i = 0; i < file.points.size(); ++i)
        for (unsigned k = 0; k < 3; ++k) {
            const double size = packed["size"][k],
                         low = packed["low"][k].get<double>() + scan["origin"][k].get<double>();
            ASSERT_NEAR(low + Code16(positions, 3 * i + k, false) / 65535.0 * size, file.points[i][k], size / 65535.0);
            ASSERT_NEAR(static_cast<signed char>(normals[3 * i + k]) / 127.0, file.normals[i][k], 0.0041);
        }
}

/// Signed distance to the tangent plane of the nearest of all points, infinite when that is too far away.
double PlaneDistance(const PlyContent& fix, const kdtree::Vector<3>& p, const kdtree::Vector<3>& n, double radius,
                     double angle)
{
    std::size_t best = 0;
    for (std::size_t i = 1; i < fix.points.size(); ++i)
        if ((fix.points[i] - p).NormSq() < (fix.points[best] - p).NormSq()) best = i;
    if (static_cast<double>((fix.points[best] - p).Norm()) >= radius ||
        static_cast<double>(fix.normals[best].Dot(n)) <= std::cos(angle))
        return INFINITY;
    return static_cast<double>((p - fix.points[best]).Dot(fix.normals[best]));
}

kdtree::Vector<3> Turned(const json& pose, const kdtree::Vector<3>& v, double shift)
{
    kdtree::Vector<3> out;
    for (unsigned r = 0; r < 3; ++r)
        out[r] = static_cast<float>(pose[r][0].get<double>() * v.x + pose[r][1].get<double>() * v.y +
                                    pose[r][2].get<double>() * v.z + shift * pose[r][3].get<double>());
    return out;
}

/// The distances are those of a linear scan through all points, save for a few at the limit of the radius.
void ExpectTrueDistances(const json& data, const PlyContent& fix, const PlyContent& flt)
{
    const json& pose = data["poses"][0];
    const std::string codes = FromBase64(pose["distances"]);
    const double radius = data["pairRadius"], angle = data["pairAngle"];
    ASSERT_EQ(codes.size(), 2 * flt.points.size());
    unsigned near = 0, off = 0, checked = 0;
    for (std::size_t i = 0; i < flt.points.size(); i += 7, ++checked) {
        const double expected = PlaneDistance(fix, Turned(pose["pose"], flt.points[i], 1.0),
                                              Turned(pose["pose"], flt.normals[i], 0.0), radius, angle);
        const double code = Code16(codes, i, true);
        const bool isNear = std::isfinite(expected);
        near += isNear ? 1 : 0;
        if (isNear != (code != -32768.0) || (isNear && std::abs(code / 32767.0 * radius - expected) > 1e-3)) ++off;
    }
    EXPECT_LE(off, 2U) << "of " << checked;
    EXPECT_GT(near, checked / 2);
}

unsigned CountOutcome(const json& pose, const std::string& outcome)
{
    unsigned n = 0;
    for (const json& test : pose["tests"]) n += test["outcome"] == outcome ? 1 : 0;
    return n;
}

/// Value, limit and outcome of each test belong together.
void ExpectConsistent(const json& pose)
{
    for (const json& test : pose["tests"]) {
        if (test["value"].is_null() || test["limit"].is_null()) continue;
        const double value = test["value"], limit = test["limit"];
        EXPECT_EQ(test["outcome"], (test["isAtMost"] ? value <= limit : value >= limit) ? "passed" : "failed") << test;
    }
}

TEST(ToolReport, HoldsTheRunAndLoadsNothing)
{
    const Workplace place;
    const Outcome run = place.Run("register " + Fix + ' ' + Flt + " --quiet --threads 1 --out a --report a.html");
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    const std::string page = place.Read("a.html");
    json data = DataOf(page);
    const PlyContent fix = ParsePly(FileBytes(Fix)), flt = ParsePly(FileBytes(Flt));
    ExpectSameCloud(data["fix"], fix);
    ExpectTrueDistances(data, fix, flt);

    const json result = json::parse(place.Read("a/result.json"));
    for (const char* key : {"found", "reason", "reasonCode", "statistics", "settings"})
        EXPECT_EQ(data[key], result[key]) << key;
    for (const auto& [key, value] : result["results"][0].items()) EXPECT_EQ(data["poses"][0][key], value) << key;
    ExpectConsistent(data["poses"][0]);
    EXPECT_GE(CountOutcome(data["poses"][0], "passed"), 13U);
    EXPECT_EQ(data["poses"][0]["tests"].size(), CountOutcome(data["poses"][0], "passed"));

    EXPECT_FALSE(std::regex_search(page, std::regex("<(script|img|link|iframe|object|embed)[^>]*\\s(src|href|data)=")));
    EXPECT_THAT(page, Not(HasSubstr("@import")));
    EXPECT_THAT(page, HasSubstr("default-src 'none'"));
    EXPECT_THAT(page, HasSubstr("Permission is hereby granted")) << "the licence of the 3D library";

    ASSERT_EQ(place.Run("register " + Fix + ' ' + Flt + " --quiet --threads 2 --report b.html").exitCode, 0);
    json again = DataOf(place.Read("b.html"));
    for (json* d : {&data, &again}) d->erase("seconds");
    EXPECT_TRUE(data == again) << "the same inputs give the same page, save for the times";

    ASSERT_EQ(place.Run("case run a/case.bson --quiet --report c.html").exitCode, 0);
    json repeated = DataOf(place.Read("c.html"));
    repeated.erase("seconds");
    for (const char* scan : {"fix", "flt"}) {
        EXPECT_EQ(repeated[scan]["file"], std::string("a/case.bson: F") + (scan + 1) + "PointSet");
        EXPECT_TRUE(repeated[scan]["cloud"] == data[scan]["cloud"]) << scan;
        const std::string file = FileBytes(scan == std::string("fix") ? Fix : Flt);
        EXPECT_EQ(repeated[scan]["sha1"], VoAlgo::SHA1::ToHex(VoAlgo::SHA1::Hash(file))) << "as the case remembers it";
        for (json* d : {&data, &repeated}) d->erase(scan);
    }
    EXPECT_TRUE(data == repeated) << "a case gives the page of its registration";
}

/// A refusal shows the causes, the poses that came close and the tests that they failed, whatever the files are called.
/// Text, result.json and page agree on the code.
TEST(ToolReport, IsOfUseForRefusals)
{
    const Workplace place;
    const std::string name = "<!--<script>\xE9.xyz"; // not UTF-8
    place.Write(name, XyzText(Blob(6000, 90.0F)));
    place.Write("away.txt", "1 0 0 500\n0 1 0 0\n0 0 1 0\n0 0 0 1\n");
    place.Write("aside.txt", "1 0 0 0.1\n0 1 0 0\n0 0 1 0\n0 0 0 1\n");
    place.Write("strict.json", R"({"icpConfig": {"dMaxRMSE": 1e-9, "uiMaxNumIterations": 0}})");
    place.Write("covered.json", R"({"uiNumPolygons": 50, "icpConfig": {"dMinOverlapRatio": 1.1}})");
    place.Write("curved.json", R"({"uiMinCurvatureQuality": 100})");
    struct Row {
        std::string arguments;
        const char* code; // null: not known in advance
    };
    const Row table[] = {
        {Fix + " '" + name + "'", nullptr},
        {Fix + ' ' + Fix + " --start away.txt", "initial_overlap_too_small"},
        {Fix + ' ' + Fix + " --start aside.txt --config strict.json", "rmse_too_large"},
        {Fix + ' ' + Fix + " --start aside.txt --config covered.json", "overlap_too_small"},
        {Fix + ' ' + Flt + " --config covered.json", "no_pose_accepted"},
        {Fix + ' ' + Flt + " --config curved.json", "too_few_features_in_fix"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.arguments);
        const Outcome run = place.Run("register " + row.arguments + " --quiet --out r --report r.html");
        EXPECT_EQ(run.exitCode, 2) << run.errors;
        const json data = DataOf(place.Read("r.html")), result = json::parse(place.Read("r/result.json"));
        EXPECT_EQ(data["found"], false);
        EXPECT_THAT(run.output, HasSubstr("no registration found: " + data["reason"].get<std::string>() + "\n"));
        EXPECT_EQ(result["reasonCode"], data["reasonCode"]);
        if (row.code != nullptr) {
            EXPECT_EQ(data["reasonCode"], row.code);
        }
        if (data["isRefinement"]) {
            ASSERT_EQ(data["poses"].size(), 1U);
            EXPECT_EQ(data["poses"][0]["objectionCode"], data["reasonCode"]);
        } else if (row.code == nullptr) {
            EXPECT_EQ(data["flt"]["file"], "<!--<script>\xEF\xBF\xBD.xyz");
            EXPECT_FALSE(data["statistics"]["failures"].empty());
        }
        for (const json& pose : data["poses"]) {
            EXPECT_NE(pose["objection"], "");
            EXPECT_GE(CountOutcome(pose, "failed"), 1U) << pose["tests"];
            ExpectConsistent(pose);
        }
    }

    const Outcome unwritable = place.Run("register " + Fix + ' ' + Flt + " --quiet --report none/r.html");
    EXPECT_EQ(unwritable.exitCode, 3);
    EXPECT_THAT(unwritable.errors, HasSubstr("none/r.html"));
    EXPECT_EQ(unwritable.output, "") << "reported before the search";
}

/// A limit on the overlap area holds for the pose of the search and for that of the verification, which differs a
/// little with so few samples; the table says which one failed and by how much.
TEST(ToolReport, ShowsTheTestOfTheOverlapArea)
{
    const Workplace place;
    ASSERT_EQ(place.Run("register " + Fix + ' ' + Flt + " --quiet --out found").exitCode, 0);
    const auto dataWith = [&](double minArea) {
        place.Write("area.json",
                    R"({"icpConfig": {"uiNumSamples": 40, "dMinOverlapArea": )" + std::to_string(minArea) + "}}");
        const Outcome run =
            place.Run("register " + Fix + ' ' + Flt +
                      " --start found/pose.txt --config area.json --threads 1 --quiet --report area.html");
        json data = DataOf(place.Read("area.html"));
        EXPECT_EQ(run.exitCode, data["found"] ? 0 : 2) << run.errors;
        return data;
    };
    const json free = dataWith(0.0)["poses"][0];
    for (const json& test : free["tests"]) EXPECT_NE(test["setting"], "dMinOverlapArea") << "there is no limit";
    const double verified = free["fStop_OverlapArea"], searched = dataWith(1e9)["poses"][0]["fStop_OverlapArea"];
    ASSERT_GT(verified, 0.0);
    ASSERT_GT(searched, verified + 0.1) << "the pair no longer shows the difference";

    struct Row {
        double limit, value;
        const char *stage, *outcome;
    };
    for (const Row& row : {Row{0.9 * verified, verified, "grading", "passed"},
                           Row{0.5 * (verified + searched), verified, "grading", "failed"},
                           Row{1.1 * searched, searched, "search", "failed"}}) {
        const json data = dataWith(row.limit), pose = data["poses"][0], test = pose["tests"].back();
        EXPECT_EQ(data["reason"], row.outcome == std::string("passed") ? "" : "overlap too small");
        EXPECT_EQ(pose["objection"], data["reason"]);
        EXPECT_EQ(CountOutcome(pose, "passed"), pose["tests"].size() - (data["found"] ? 0 : 1)) << pose["tests"];
        ExpectConsistent(pose);
        EXPECT_NEAR(test["limit"], row.limit, 1e-6); // as many decimals as the configuration states
        EXPECT_NEAR(test["value"], row.value, 1e-3);
        const json expected = {{"name", "Overlap area"}, {"stage", row.stage}, {"setting", "dMinOverlapArea"},
                               {"unit", "mm2"},          {"isAtMost", false},  {"outcome", row.outcome}};
        for (const auto& [key, value] : expected.items()) EXPECT_EQ(test[key], value) << key;
    }
}

/// A page of many points stays small: it holds at most 150,000 of each cloud, and all of a smaller one.
TEST(ToolReport, StaysBelowTenMegabytes)
{
    const Workplace place;
    const Points large = Blob(151000, 100.0F), small = Blob(5000, 100.0F);
    Points normals = large;
    for (auto& n : normals) n /= n.Norm();
    place.Write("large.ply", PlyBytes(large, normals));
    place.Write("small.ply", PlyBytes(small, {normals.begin(), normals.begin() + 5000}));
    place.Write("same.txt", "1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n");
    const Outcome run = place.Run("register large.ply small.ply --quiet --start same.txt --report r.html");
    ASSERT_NE(run.exitCode, 3) << run.errors;
    const std::string page = place.Read("r.html");
    EXPECT_LT(page.size(), 10U << 20U);
    const json data = DataOf(page);
    for (const char* scan : {"fix", "flt"}) {
        EXPECT_EQ(data[scan]["shown"], std::min<std::size_t>(150000, data[scan]["points"])) << scan;
        EXPECT_EQ(FromBase64(data[scan]["cloud"]["positions"]).size(), 6 * data[scan]["shown"].get<std::size_t>());
    }
    EXPECT_EQ(data["fix"]["points"], 151000);
}

} // namespace
} // namespace tooltest
