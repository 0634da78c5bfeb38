#include "tools/tool_runner.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <numbers>
#include <set>
#include <sstream>
#include <tuple>

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

std::vector<double> Numbers(const std::string& text)
{
    std::istringstream words(text);
    std::vector<double> numbers;
    for (double v = 0.0; words >> v;) numbers.push_back(v);
    return numbers;
}

/// Two runs write the same bytes, whatever the number of threads; the text has the pose and the files that were
/// written,
/// --json prints the same as result.json.
TEST(ToolRegister, FilesAreCompleteAndRepeatable)
{
    const Workplace place;
    const Outcome first = place.Run("register " + Fix + ' ' + Flt + " --out a --threads 1");
    ASSERT_EQ(first.exitCode, 0) << first.errors;
    EXPECT_THAT(first.output, testing::StartsWith("rank  overlap"));
    EXPECT_THAT(first.output, testing::EndsWith("pose that maps FLT into FIX, in mm:\n" + place.Read("a/pose.txt") +
                                                "wrote a/result.json\nwrote a/pose.txt\nwrote a/registered.ply\n"
                                                "wrote a/registered.png\nwrote a/case.bson\n"));
    EXPECT_THAT(first.errors, HasSubstr("hippo2.ply: 2 points have no normal"));
    EXPECT_THAT(first.errors, Not(HasSubstr("\r"))) << "no progress bar without a terminal";
    const Outcome second = place.Run("register " + Fix + ' ' + Flt + " --out b --threads 2 --json --quiet");
    ASSERT_EQ(second.exitCode, 0);
    EXPECT_EQ(second.errors, "");
    for (const char* file : {"/result.json", "/pose.txt", "/registered.ply", "/registered.png"})
        EXPECT_TRUE(place.Read(std::string("a") + file) == place.Read(std::string("b") + file)) << file;

    auto printed = nlohmann::json::parse(second.output);
    EXPECT_GT(printed["seconds"]["features"], 0.0);
    printed.erase("seconds");
    const auto result = nlohmann::json::parse(place.Read("a/result.json"));
    EXPECT_EQ(printed, result);
    EXPECT_EQ(result["found"], true);
    EXPECT_EQ(result["reasonCode"], "");
    EXPECT_EQ(result["results"][0]["resultType"], 0);
    EXPECT_EQ(result["results"][0]["resultCode"], "success");
    EXPECT_THAT(result["results"][0]["tests"].dump(),
                testing::AllOf(HasSubstr(R"({"code":"rmse",)"), HasSubstr(R"({"code":"stability",)"),
                               HasSubstr(R"({"code":"runner_up",)"), Not(HasSubstr("failed"))));
    EXPECT_THAT(result["statistics"]["failures"].dump(),
                testing::ContainsRegex(R"("code":"initial_overlap_too_small","count":[1-9][0-9]*,"resultType":1\})"));
    std::vector<double> pose;
    for (const auto& row : result["results"][0]["pose"])
        for (const double v : row) pose.push_back(v);
    EXPECT_EQ(Numbers(place.Read("a/pose.txt")), pose);

    const PlyContent fix = ParsePly(FileBytes(Fix)), flt = ParsePly(FileBytes(Flt));
    const PlyContent both = ParsePly(place.Read("a/registered.ply"), 3);
    ASSERT_EQ(both.points.size(), fix.points.size() + flt.points.size());
    for (std::size_t i = 0; i < fix.points.size(); ++i) ASSERT_LT((both.points[i] - fix.points[i]).Norm(), 1e-5F);
    for (std::size_t i = 0; i < flt.points.size(); ++i) {
        const auto& p = flt.points[i];
        for (std::size_t r = 0; r < 3; ++r)
            ASSERT_NEAR(both.points[fix.points.size() + i][r],
                        pose[4 * r] * p.x + pose[4 * r + 1] * p.y + pose[4 * r + 2] * p.z + pose[4 * r + 3], 1e-3);
    }
}

/// The scan as text with all digits, moved along each axis.
std::string MovedText(const PlyContent& scan, double shift)
{
    std::ostringstream text;
    text.precision(17);
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        for (unsigned k = 0; k < 3; ++k) text << double{scan.points[i][k]} + shift << ' ';
        for (unsigned k = 0; k < 3; ++k) text << scan.normals[i][k] << (k < 2 ? ' ' : '\n');
    }
    return text.str();
}

/// Scans far from 0 keep their digits: pose, cloud and case are in the coordinates of the files.
TEST(ToolRegister, CoordinatesMayBeLarge)
{
    const Workplace place;
    const PlyContent fix = ParsePly(FileBytes(Fix)), flt = ParsePly(FileBytes(Flt));
    const auto run = [&](double shift, const std::string& out) {
        place.Write("fix.xyz", MovedText(fix, shift));
        place.Write("flt.xyz", MovedText(flt, -shift));
        const Outcome outcome = place.Run("register fix.xyz flt.xyz --out " + out);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output << outcome.errors;
        return Numbers(place.Read(out + "/pose.txt"));
    };
    const std::vector<double> home = run(0.0, "home");
    for (const double shift : {1e7, 5e8}) {
        const std::vector<double> pose = run(shift, "far");
        ASSERT_EQ(pose.size(), 16U);
        for (const auto& p : flt.points)
            for (std::size_t r = 0; r < 3; ++r) {
                const auto at = [r](const std::vector<double>& m, double x, double y, double z) {
                    return m[4 * r] * x + m[4 * r + 1] * y + m[4 * r + 2] * z + m[4 * r + 3];
                };
                ASSERT_NEAR(at(pose, p.x - shift, p.y - shift, p.z - shift) - shift, at(home, p.x, p.y, p.z), 1e-3);
            }
        EXPECT_THAT(place.Read("far/registered.ply"), HasSubstr("property double x"));
        ASSERT_EQ(place.Run("register fix.xyz flt.xyz --start far/pose.txt").exitCode, 0);
        ASSERT_EQ(place.Run("case run far/case.bson --out again").exitCode, 0);
        EXPECT_EQ(place.Read("again/pose.txt"), place.Read("far/pose.txt"));
        EXPECT_TRUE(place.Read("again/registered.ply") == place.Read("far/registered.ply"));
        ASSERT_EQ(place.Run("info far/registered.ply --json").exitCode, 0); // reads what it wrote
    }
}

/// Scans in metres give the pose in metres.
TEST(ToolRegister, PoseIsInTheUnitOfTheFiles)
{
    const Workplace place;
    ASSERT_EQ(place.Run("register " + Fix + ' ' + Flt + " --out mm").exitCode, 0);
    for (const auto& [name, path] : {std::pair{"fix.ply", Fix}, {"flt.ply", Flt}}) {
        PlyContent scan = ParsePly(FileBytes(path));
        for (auto& p : scan.points) p /= 1000.0F;
        place.Write(name, PlyBytes(scan.points, scan.normals));
    }
    const Outcome outcome = place.Run("register fix.ply flt.ply --unit m --out m");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    const auto inMm = Numbers(place.Read("mm/pose.txt")), inM = Numbers(place.Read("m/pose.txt"));
    ASSERT_EQ(inMm.size(), 16U);
    ASSERT_EQ(inM.size(), 16U);
    for (std::size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(inMm[i], inM[i] * (i % 4 == 3 && i < 12 ? 1000.0 : 1.0), i % 4 == 3 ? 0.5 : 0.01) << i;
    const PlyContent both = ParsePly(place.Read("m/registered.ply"), 3);
    EXPECT_NEAR(both.points[0].x, ParsePly(FileBytes(Fix)).points[0].x / 1000.0F, 1e-6F);
}

/// Two outcomes whose files are alike but for the unit, which is `factor` mm in the second. Returns the keys of the
/// figures that differ.
std::set<std::string> Rescaled(const nlohmann::json& mm, const nlohmann::json& other, double factor,
                               const std::string& key = "", bool isArea = false)
{
    std::set<std::string> keys;
    if (mm.is_object()) {
        for (const auto& [name, value] : mm.items())
            keys.merge(Rescaled(value, other.at(name), factor, name,
                                mm.value("unit", "") == "mm2" || name.find("Area") != std::string::npos));
    } else if (mm.is_array()) {
        for (std::size_t i = 0; i < mm.size(); ++i) keys.merge(Rescaled(mm[i], other.at(i), factor, key));
    } else if (mm.is_number() && mm != other) {
        keys.insert(isArea ? key + " (area)" : key);
        EXPECT_NEAR(mm.get<double>(), other.get<double>() * (isArea ? factor * factor : factor),
                    1e-6 * std::abs(mm.get<double>()))
            << key;
    }
    return keys;
}

/// Every length is in the files' unit, and so are the settings, which can be given back.
TEST(ToolRegister, LengthsAreInTheUnitOfTheFiles)
{
    const Workplace place;
    const auto scan = [&](unsigned n, float factor) {
        Points points = Blob(n, 10.0F);
        for (auto& p : points) // 1000 times these is exact
            for (unsigned k = 0; k < 3; ++k) p[k] = factor * (std::round(p[k] * 1024.0F) / 1024.0F);
        return PlyBytes(points);
    };
    place.Write("a.ply", scan(3000, 1.0F));
    place.Write("b.ply", scan(2500, 1.0F));
    place.Write("start.txt", "1 0 0 0.01 0 1 0 0.02 0 0 1 0 0 0 0 1");
    place.Write("area.json", R"({"unit": "m", "icpConfig": {"dMinOverlapArea": 0.5, "dMaxRMSE": 0.25}})");
    const std::string run = "register a.ply b.ply --json --quiet --start start.txt --config ";
    const Outcome inM = place.Run(run + "area.json --unit m");
    place.Write("a.ply", scan(3000, 1000.0F));
    place.Write("b.ply", scan(2500, 1000.0F));
    place.Write("start.txt", "1 0 0 10 0 1 0 20 0 0 1 0 0 0 0 1");
    const Outcome inMm = place.Run(run + "area.json");
    ASSERT_EQ(inM.exitCode, 0) << inM.errors;
    const auto m = nlohmann::json::parse(inM.output);
    auto inMillimetres = nlohmann::json::parse(inMm.output);
    inMillimetres.erase("seconds");
    EXPECT_THAT(Rescaled(inMillimetres, m, 1000.0),
                testing::IsSupersetOf({"pose", "spacing", "extent", "fStop_RMSE", "fStop_OverlapArea (area)",
                                       "resolution", "dMaxRMSE", "dMinOverlapArea (area)", "dFeatureRadius",
                                       "maxMisfit", "roughness", "value", "limit", "value (area)", "limit (area)"}));
    EXPECT_EQ(inMillimetres["settings"]["config"]["icpConfig"]["dMaxRMSE"], 250.0);
    const auto config = m["settings"]["config"];
    place.Write("again.json", config.dump());
    const auto again = nlohmann::json::parse(place.Run(run + "again.json").output);
    EXPECT_NEAR(again["settings"]["config"]["dFeatureRadius"], inMillimetres["settings"]["config"]["dFeatureRadius"],
                1e-9);
}

/// The first byte of the data may look like a line end; taking it for part of the header would shift all coordinates.
TEST(ToolRegister, BinaryDataMayBeginLikeALineEnd)
{
    const Workplace place;
    std::string bytes = FileBytes(Fix);
    for (const char lineEnd : {'\n', '\r'}) {
        bytes[bytes.find("end_header\n") + 11] = lineEnd;
        place.Write("fix.ply", bytes);
        const Outcome outcome = place.Run("register fix.ply " + std::string(Flt) + " --out r");
        ASSERT_EQ(outcome.exitCode, 0) << outcome.output << outcome.errors;
        EXPECT_LT((ParsePly(place.Read("r/registered.ply"), 3).points[0] - ParsePly(bytes).points[0]).Norm(), 1e-5F);
    }
}

/// pose.txt reads back as the same pose: a refinement without iterations writes it again.
TEST(ToolRegister, PoseFilesRoundTrip)
{
    const Workplace place;
    place.Write("still.json", R"({"icpConfig": {"uiMaxNumIterations": 0}})");
    place.Write("a.ply", PlyBytes(Blob(4000, 100.0F)));
    for (auto unit : {"mm", "cm", "m"}) {
        Points scaled = Blob(4000, std::string(unit) == "m" ? 0.1F : (std::string(unit) == "cm" ? 10.0F : 100.0F));
        place.Write("a.ply", PlyBytes(scaled));
        const double a = 0.001, s = std::string(unit) == "m" ? 1e-4 : (std::string(unit) == "cm" ? 1e-2 : 0.1);
        std::ostringstream pose;
        pose.precision(17);
        pose << std::cos(a) << ' ' << -std::sin(a) << " 0 " << s / 3 << '\n'
             << std::sin(a) << ' ' << std::cos(a) << " 0 " << s / 7 << "\n0 0 1 " << -s / 9 << "\n0 0 0 1\n";
        place.Write("start.txt", pose.str());
        const std::string arguments = std::string("register a.ply a.ply --config still.json --unit ") + unit;
        const Outcome once = place.Run(arguments + " --start start.txt --out once");
        ASSERT_EQ(once.exitCode, 0) << once.output << once.errors;
        ASSERT_EQ(place.Run(arguments + " --start once/pose.txt --out twice").exitCode, 0);
        const auto stated = Numbers(pose.str()), read = Numbers(place.Read("once/pose.txt"));
        const auto again = Numbers(place.Read("twice/pose.txt"));
        for (std::size_t i = 0; i < 16; ++i) {
            EXPECT_NEAR(stated[i], read[i], 1e-7 * std::max(1.0, s)) << unit << i;
            EXPECT_NEAR(read[i], again[i], 1e-7 * std::max(1.0, s)) << unit << i;
        }
    }
}

TEST(ToolRegister, FaultyPoseFilesAreRefused)
{
    const Workplace place;
    place.Write("a.ply", PlyBytes(Blob(3000, 100.0F)));
    const std::pair<const char*, const char*> table[] = {
        {"1 0 0 0  0 1 0 0  0 0 1 0", "a pose has 16 numbers, but this file has 12"},
        {"1 0 0 0  0 1 0 0  0 0 1 0  0 0 0 2", "the last row of a pose must be 0 0 0 1"},
        {"1 0 0 x  0 1 0 0  0 0 1 0  0 0 0 1", "not a number: \"x\""},
        {"1 0 0 nan  0 1 0 0  0 0 1 0  0 0 0 1", "the pose is not finite"},
        {"2 0 0 0  0 2 0 0  0 0 2 0  0 0 0 1", "is not a rotation"},
        {"1 0 0 0  0 1 0 0  0 0 -1 0  0 0 0 1", "is not a rotation"},
    };
    for (const auto& [pose, message] : table) {
        place.Write("pose.txt", pose);
        const Outcome outcome = place.Run("register a.ply a.ply --start pose.txt");
        EXPECT_EQ(outcome.exitCode, 3) << pose;
        EXPECT_THAT(outcome.errors, HasSubstr(message));
    }
    EXPECT_THAT(place.Run("register a.ply a.ply --start none.txt").errors, HasSubstr("none.txt: no such file"));
}

/// Bad input leaves the results and the report of an earlier run untouched. A refusal says why, leaves no pose, and
/// removes that of the earlier run.
TEST(ToolRegister, OldResultsStayUntilThereAreNewOnes)
{
    const Workplace place;
    place.Write("away.txt", "1 0 0 500 0 1 0 0 0 0 1 0 0 0 0 1");
    place.Write("wrong.json", R"({"uiNumPolygons": "many"})");
    place.Write("many.json", R"({"icpConfig": {"uiNumSamples": 100000}})");
    place.Write("line.xyz", "0 0 0\n1 1 1\n2 2 2\n");
    ASSERT_EQ(place.Run("register " + Fix + ' ' + Flt + " --out new/r --report new/r/page.html").exitCode, 0);
    ASSERT_TRUE(place.Has("new/r/pose.txt"));
    const auto before = place.Everything();
    const std::tuple<std::string, int, const char*> faults[] = {
        {Flt + " --config wrong.json", 3, "must be a whole number"},
        {Flt + " --config many.json", 3, "hippo1.ply: too few points: 6104; the registration needs 100000"},
        {Flt + " --start missing.txt", 3, "missing.txt: no such file"},
        {"line.xyz", 3, "all points lie on a line"},
        {Flt + " --preset best", 64, "--preset"},
    };
    for (const auto& [arguments, exitCode, message] : faults) {
        const Outcome outcome =
            place.Run("register " + Fix + ' ' + arguments + " --out new/r --report new/r/page.html");
        EXPECT_EQ(outcome.exitCode, exitCode) << arguments;
        EXPECT_THAT(outcome.errors, HasSubstr(message));
        EXPECT_EQ(outcome.output, "") << arguments;
        EXPECT_TRUE(place.Everything() == before) << arguments;
    }
    const Outcome outcome = place.Run("register " + Fix + ' ' + Flt + " --start away.txt --out new/r");
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.output, HasSubstr("no registration found: initial overlap of point sets is too small"));
    for (const char* file : {"new/r/pose.txt", "new/r/registered.ply", "new/r/registered.png"})
        EXPECT_FALSE(place.Has(file)) << file;
    EXPECT_THAT(place.Read("new/r/unregistered.png"), testing::StartsWith("\x89PNG"));
    const auto result = nlohmann::json::parse(place.Read("new/r/result.json"));
    EXPECT_EQ(result["found"], false);
    EXPECT_EQ(result["reasonCode"], "initial_overlap_too_small");
    EXPECT_TRUE(result["results"].empty());
}

/// A half turn about z maps this body onto itself: r depends on even powers of x and y only. Two poses fit at the same
/// place, and neither may be handed out.
TEST(ToolRegister, LikenessToItselfIsAmbiguous)
{
    const auto body = [](double phase) {
        const unsigned n = 6000;
        Points points;
        for (unsigned i = 0; i < n; ++i) {
            const double z = 1.0 - (2.0 * i + 1.0) / n, turn = i * std::numbers::pi * (3.0 - std::sqrt(5.0)) + phase;
            const double x = std::sqrt(1.0 - z * z) * std::cos(turn), y = std::sqrt(1.0 - z * z) * std::sin(turn);
            const double r = 40.0 * (1.0 + 0.2 * std::sin(4.0 * x * x + 3.0 * x * y + 1.0) + 0.1 * std::cos(5.0 * z) +
                                     0.15 * std::sin(3.0 * z) * (x * x - y * y));
            points.emplace_back(static_cast<float>(r * x), static_cast<float>(r * y), static_cast<float>(r * z));
        }
        return points;
    };
    const Workplace place;
    place.Write("fix.xyz", XyzText(body(0.0)));
    place.Write("flt.xyz", XyzText(body(1.0)));
    const Outcome outcome = place.Run("register fix.xyz flt.xyz --out r");
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.output, HasSubstr("no registration found: ambiguous: different poses fit about equally well"));
    EXPECT_THAT(outcome.output, testing::ContainsRegex("\n   1 .*\n   2 ")) << "both are shown";
    EXPECT_THAT(outcome.output, Not(HasSubstr("pose that maps"))) << "but none is handed out";
    EXPECT_EQ(nlohmann::json::parse(place.Read("r/result.json"))["reasonCode"], "ambiguous");
    EXPECT_FALSE(place.Has("r/pose.txt"));
}

/// Estimated normals point out of a closed surface, or to the viewpoint.
TEST(ToolRegister, EstimatedNormalsHaveTheRightSign)
{
    const Workplace place;
    place.Write("a.xyz", XyzText(Blob(4000, 100.0F)));
    place.Write("start.txt", "1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1");
    const std::pair<const char*, float> table[] = {{"", 1.0F}, {" --viewpoint 0,0,0", -1.0F}};
    for (const auto& [option, sign] : table) {
        ASSERT_EQ(place.Run(std::string("register a.xyz a.xyz --start start.txt --out r") + option).exitCode, 0);
        const PlyContent both = ParsePly(place.Read("r/registered.ply"), 3);
        for (std::size_t i = 0; i < both.points.size(); ++i) {
            EXPECT_NEAR(both.normals[i].Norm(), 1.0F, 1e-5F);
            EXPECT_GT(sign * both.normals[i].Dot(both.points[i]) / both.points[i].Norm(), 0.6F) << i;
        }
    }
}

/// The features command writes what it counts.
TEST(ToolFeatures, WritesEveryFeaturePoint)
{
    const Workplace place;
    const Outcome outcome = place.Run("features " + Fix + " --out f.xyzn --quiet");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    const std::string text = place.Read("f.xyzn");
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    EXPECT_GT(lines, 30U);
    EXPECT_THAT(outcome.output, testing::StartsWith(std::to_string(lines) + " feature points out of 6104 points"));
    EXPECT_EQ(Numbers(text).size(), 6 * lines);
    EXPECT_EQ(place.Run("features " + Fix + " --out missing/f.xyzn").exitCode, 3);
}

} // namespace
} // namespace tooltest
