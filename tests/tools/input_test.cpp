#include "tools/tool_runner.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace tooltest {
namespace {

using testing::HasSubstr;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

Points Scaled(Points points, float factor)
{
    for (auto& p : points) p *= factor;
    return points;
}

/// n points that follow a rule.
template <typename Rule>
Points Made(unsigned n, Rule rule)
{
    Points points;
    for (unsigned i = 0; i < n; ++i) points.push_back(rule(static_cast<float>(i)));
    return points;
}

struct BadInput {
    const char* file;
    std::string content;
    const char* message; // a part of it
};

/// Whatever is wrong with a file ends in exit code 3 and a message that says so; nothing is registered.
TEST(ToolInput, BadFilesAreRefusedWithTheReason)
{
    const auto line = Made(900, [](float i) { return kdtree::Vector<3>(0.1F * i, 0.2F * i, 7.0F - 0.3F * i); });
    const auto plane = Made(900, [](float i) {
        const float x = std::fmod(i * 7.31F, 50.0F), y = std::fmod(i * 3.77F, 50.0F);
        return kdtree::Vector<3>(x, y, 0.3F * x - 0.7F * y);
    });
    const std::string ply = PlyBytes(Blob(700, 100.0F), Blob(700, 2.0F));
    const std::vector<BadInput> table = {
        {"notcloud.png", "x", "unknown file type"},
        {"empty.xyz", "", "contains no points"},
        {"comments.xyz", "# only\n\n  # comments\n", "contains no points"},
        {"word.xyz", "1 2 3\n4 5 six\n", "word.xyz:2: not a number: \"six\""},
        {"nan.xyz", "nan 1 2\n1 inf 2\n", "none of its 2 points has finite coordinates"},
        {"junk.ply", "this is no cloud\n", "not a PLY file: its first line is not \"ply\""},
        {"none.ply", PlyBytes({}), "contains no points"},
        {"cut.ply", ply.substr(0, ply.size() - 1), "truncated"},
        {"faces.ply",
         "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\nelement face "
         "1\n"
         "property list uchar int vertex_indices\nend_header\n0 0 0\n9 0 0\n0 9 0\n3 0 1 3\n",
         "a face refers to a vertex that does not exist"},
        {"junk.obj", "no object", "cannot be read as a cloud or mesh"},
        {"empty.stl", "solid x\nendsolid x\n", "contains no points"},
        {"place.xyz", XyzText(Points(600, {1, 2, 3})), "all points coincide"},
        {"two.xyz", "0 0 0\n1 1 1\n", "all points lie on a line"},
        {"line.xyz", XyzText(line), "all points lie on a line"},
        {"plane.xyz", XyzText(plane), "all points lie on a plane"},
        {"few.xyz", XyzText(Blob(40, 100.0F)), "few.xyz: too few points: 40; the registration needs "},
        {"huge.xyz", XyzText(Scaled(Blob(900, 100.0F), 1e35F)), "mm is implausible for a scan"},
        {"metres.xyz", XyzText(Scaled(Blob(3000, 100.0F), 1e-3F)),
         "units of the scans probably differ by a factor of 1000:"},
        {"inches.xyz", XyzText(Scaled(Blob(3000, 100.0F), 1 / 25.4F)),
         "units of the scans probably differ by a factor of 25.4:"},
        {"centimetres.xyz", XyzText(Scaled(Blob(3000, 100.0F), 0.1F)),
         "units of the scans probably differ by a factor of 10:"},
    };
    const Workplace place;
    place.Write("good.ply", PlyBytes(Blob(3000, 100.0F)));
    for (const BadInput& bad : table) {
        SCOPED_TRACE(bad.file);
        place.Write(bad.file, bad.content);
        for (const std::string& order : {std::string(bad.file) + " good.ply", std::string("good.ply ") + bad.file}) {
            const Outcome outcome = place.Run("register " + order + " --out result");
            EXPECT_EQ(outcome.exitCode, 3);
            EXPECT_THAT(outcome.errors, HasSubstr("voalgo: error: "));
            EXPECT_THAT(outcome.errors, HasSubstr(bad.message));
            EXPECT_EQ(outcome.output, "");
            EXPECT_FALSE(place.Has("result"));
        }
    }
    EXPECT_THAT(place.Run("register good.ply missing.ply").errors, HasSubstr("missing.ply: no such file"));
    EXPECT_THAT(place.Run("register . good.ply").errors, HasSubstr("is a directory"));
}

nlohmann::json Info(const Workplace& place, const std::string& file, const std::string& options = "")
{
    const Outcome outcome = place.Run("info --json " + options + ' ' + file);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    return nlohmann::json::parse(outcome.output)["files"][0];
}

/// Every repair is counted: nothing is dropped silently.
TEST(ToolInput, RepairsAreCounted)
{
    Points points = Blob(1000, 100.0F), normals;
    for (const auto& p : points) normals.push_back(p / p.Norm());
    points.push_back(points[3]);                   // duplicate
    points.push_back(points[3]);                   // and once more
    points.emplace_back(NaN, 1.0F, 2.0F);          // not finite
    points.emplace_back(1.0F, 2.0F, -1.0F / 0.0F); // NOLINT: so is infinity
    for (int i = 0; i < 4; ++i) normals.emplace_back(0.0F, 0.0F, 1.0F);
    normals[5] = {};                // no direction
    normals[6] = {NaN, 0.0F, 0.0F}; // no direction either
    normals[7] *= 2.0F;             // another length
    const Workplace place;
    place.Write("a.ply", PlyBytes(points, normals));
    place.Write("a.xyz", XyzText(points, normals));
    for (const char* file : {"a.ply", "a.xyz"}) {
        const auto info = Info(place, file);
        EXPECT_EQ(info["pointsRead"], 1004);
        EXPECT_EQ(info["points"], 1000);
        EXPECT_EQ(info["droppedNotFinite"], 2);
        EXPECT_EQ(info["droppedDuplicates"], 2);
        EXPECT_EQ(info["normalsZero"], 2);
        EXPECT_EQ(info["normalsScaled"], 1);
        EXPECT_EQ(info["normalsEstimated"], false);
        EXPECT_EQ(info["fault"], "");
    }
    for (auto& n : normals) n *= 2.0F;
    place.Write("double.ply", PlyBytes(points, normals));
    EXPECT_EQ(Info(place, "double.ply")["normalsEstimated"], false) << "all of length 2: still normals";
    for (std::size_t i = 0; i < normals.size(); ++i)
        normals[i] = kdtree::Vector<3>(static_cast<float>(i % 256), static_cast<float>(i * 7 % 256), 90.0F);
    place.Write("colours.xyz", XyzText(points, normals));
    EXPECT_EQ(Info(place, "colours.xyz")["normalsEstimated"], true) << "colours are no normals";
}

/// The forms of text that scanners export, and the unit.
TEST(ToolInput, TextFormsAndUnits)
{
    const Workplace place;
    place.Write("forms.xyz",
                "\xEF\xBB\xBF# header\r\n//X Y Z\r\n1;2;3\r\n\r\n+4,5;5e0;-6 # remark\r\n\t7;\t8 ;9\r\n1e1;1;1");
    auto info = Info(place, "forms.xyz");
    EXPECT_EQ(info["points"], 4);
    EXPECT_FLOAT_EQ(info["extent"].get<float>(), 15.0F);
    info = Info(place, "forms.xyz", "--unit cm");
    EXPECT_FLOAT_EQ(info["extent"].get<float>(), 15.0F);
    EXPECT_THAT(place.Run("info forms.xyz --unit m").output, HasSubstr("1.5e+04 mm"));
    EXPECT_THAT(place.Run("info forms.xyz --unit mm").output, testing::Not(HasSubstr("is the unit right?")));
    place.Write("small.xyz", "0 0 0\n0.01 0.2 0\n0.3 0 0.1\n0 0.1 0.4\n");
    EXPECT_THAT(place.Run("info small.xyz").output, HasSubstr("is the unit right?"));
    place.Write("large.xyz", "0 0 0\n1 20 0\n30 0 1\n0 1 40\n");
    EXPECT_THAT(place.Run("info large.xyz --unit m").output, HasSubstr("is the unit right?"));
}

/// A mesh gives each of its vertices once, whether the format shares vertices or not.
TEST(ToolInput, MeshVerticesCountOnce)
{
    const Workplace place;
    place.Write("tetra.obj", "v 0 0 0\nv 10 0 0\nv 0 10 0\nv 0 0 10\nf 1 3 2\nf 1 2 4\nf 1 4 3\nf 2 3 4\n");
    std::string stl = "solid t\n";
    const float corner[4][3] = {{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {0, 0, 10}};
    const int faces[4][3] = {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}};
    for (const auto& face : faces) {
        stl += "facet normal 0 0 0\nouter loop\n";
        for (const int c : face) {
            stl += "vertex";
            for (const float v : corner[c]) stl += ' ' + std::to_string(v);
            stl += '\n';
        }
        stl += "endloop\nendfacet\n";
    }
    place.Write("tetra.stl", stl + "endsolid t\n");
    for (const char* file : {"tetra.obj", "tetra.stl"}) {
        const auto info = Info(place, file);
        EXPECT_EQ(info["points"], 4) << file;
        EXPECT_EQ(info["normalsEstimated"], false) << file;
        EXPECT_EQ(info["normalsZero"], 0) << file;
    }
    place.Write("badface.obj", "v 0 0 0\nv nan 0 0\nv 0 10 0\nv 0 0 10\nf 1 3 2\n");
    const std::string cloud = XyzText(Blob(3000, 10.0F));
    place.Write("cloud.xyz", cloud);
    const Outcome bad = place.Run("register badface.obj cloud.xyz");
    EXPECT_EQ(bad.exitCode, 3);
    EXPECT_THAT(bad.errors, testing::AllOf(HasSubstr("badface.obj: vertex "), HasSubstr("is not finite")));
    const Outcome registered = place.Run("register tetra.stl cloud.xyz --json");
    EXPECT_THAT(registered.errors, HasSubstr("tetra.stl: sampled the surface of the mesh (4 triangles) with "));
    const auto json = nlohmann::json::parse(registered.output);
    EXPECT_EQ(json["fix"]["sampledFromMesh"], true);
    EXPECT_EQ(json["flt"]["sampledFromMesh"], false);
    EXPECT_NEAR(json["fix"]["spacing"].get<double>(), json["flt"]["spacing"].get<double>(),
                0.1 * json["flt"]["spacing"].get<double>());
    place.Write("cloud.obj", "v 0 0 0\nv 10 0 0\nv 0 10 0\nv 0 0 10\nv 0 0 10\n");
    EXPECT_EQ(Info(place, "cloud.obj")["droppedDuplicates"], 1);
}

} // namespace
} // namespace tooltest
