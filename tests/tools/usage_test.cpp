#include "tools/tool_runner.h"

#include <gmock/gmock.h>

namespace tooltest {
namespace {

using testing::HasSubstr;

TEST(ToolUsage, EveryCommandExplainsItself)
{
    const Workplace place;
    EXPECT_THAT(place.Run("--version").output, testing::StartsWith("voalgo 0."));
    const Outcome overview = place.Run("--help");
    EXPECT_EQ(overview.exitCode, 0);
    for (const std::string command : {"register", "simulate", "features", "case", "info"}) {
        EXPECT_THAT(overview.output, HasSubstr(command));
        const Outcome help = place.Run(command + " --help");
        EXPECT_EQ(help.exitCode, 0) << command;
        EXPECT_THAT(help.output, HasSubstr("Example")) << command;
        EXPECT_THAT(help.output, HasSubstr("voalgo " + command)) << command;
    }
}

TEST(ToolUsage, WrongUsageHasAnExitCodeOfItsOwn)
{
    const Workplace place;
    for (const char* arguments :
         {"", "frobnicate", "register", "register a.ply", "register a.ply b.ply c.ply", "register a.ply b.ply --fast",
          "register a.ply b.ply --unit km", "register a.ply b.ply --preset best", "register a.ply b.ply --threads some",
          "register a.ply b.ply --viewpoint 1,2", "simulate", "simulate --out d --overlap 1.5",
          "simulate --out d --points 3", "features"}) {
        const Outcome outcome = place.Run(arguments);
        EXPECT_EQ(outcome.exitCode, 64) << arguments;
        EXPECT_EQ(outcome.output, "") << arguments;
        EXPECT_NE(outcome.errors, "") << arguments;
    }
}

/// A misspelt key must never leave a default in force.
TEST(ToolUsage, ConfigurationErrorsNameTheKey)
{
    struct Row {
        const char* json;
        const char* message;
    };
    const Row table[] = {
        {R"({"uiNumPolygon": 3})", R"("uiNumPolygon": unknown key; did you mean "uiNumPolygons"?)"},
        {R"({"icpConfig": {"dMaxRSME": 1}})", R"(did you mean "icpConfig.dMaxRMSE"?)"},
        {R"({"dMaxRMSE": 1})", R"("dMaxRMSE": belongs inside "icpConfig")"},
        {R"({"uiNumPolygons": "3"})", R"("uiNumPolygons": must be a whole number, is string)"},
        {R"({"uiNumPolygons": 3.5})", R"("uiNumPolygons": must be a whole number, is 3.5)"},
        {R"({"uiNumPolygons": -1})", R"("uiNumPolygons": must be between 0 and 4294967295, is -1)"},
        {R"({"uiNumPolygons": 4294967296})", R"(must be between 0 and 4294967295)"},
        {R"({"icpConfig": {"dMaxRMSE": null}})", R"("icpConfig.dMaxRMSE": must be a number, is null)"},
        {R"({"icpConfig": 3})", R"("icpConfig": must be a JSON object, is number)"},
        {R"({"dFeatureRadius": 0})", R"("dFeatureRadius": must be greater than 0)"},
        {R"({"uiNumPolygonVertices": 2})", R"("uiNumPolygonVertices": must be at least 3)"},
        {R"([1, 2])", "must be a JSON object, is array"},
        {R"({"uiNumPolygons": })", "not valid JSON: parse error at line 1, column 19"},
        {R"({"dFeatureRadius": 1e999})", "not valid JSON"},
        {"", "not valid JSON"},
    };
    const Workplace place;
    place.Write("a.ply", PlyBytes(Blob(3000, 100.0F)));
    for (const Row& row : table) {
        place.Write("c.json", row.json);
        const Outcome outcome = place.Run("register a.ply a.ply --quiet --config c.json");
        EXPECT_EQ(outcome.exitCode, 3) << row.json;
        EXPECT_THAT(outcome.errors, HasSubstr(std::string("c.json: "))) << row.json;
        EXPECT_THAT(outcome.errors, HasSubstr(row.message)) << row.json;
    }
}

} // namespace
} // namespace tooltest
