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
    for (const std::string command : {"register", "simulate", "features", "path", "case", "info"}) {
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
    for (const char* arguments : {"",
                                  "register",
                                  "register a.ply",
                                  "register a.ply b.ply c.ply",
                                  "register a.ply b.ply --fast",
                                  "register a.ply b.ply --unit km",
                                  "register a.ply b.ply --preset best",
                                  "register a.ply b.ply --threads some",
                                  "register a.ply b.ply --viewpoint 1,2",
                                  "register a.ply b.ply --viewpoint 1,2,nan",
                                  "register a.ply b.ply --threads 1000000",
                                  "simulate",
                                  "simulate --out d --overlap 1.5",
                                  "simulate --out d --points 3",
                                  "simulate --out d --overlap nan",
                                  "simulate --out d --size inf",
                                  "simulate --out d --points 4000000000",
                                  "features",
                                  "path a.ply",
                                  "path a.ply --points 0",
                                  "path a.ply --points many"}) {
        const Outcome outcome = place.Run(arguments);
        EXPECT_EQ(outcome.exitCode, 64) << arguments;
        EXPECT_EQ(outcome.output, "") << arguments;
        EXPECT_NE(outcome.errors, "") << arguments;
    }
}

TEST(ToolUsage, UnknownNamesAndImpossibleNumbersAreNamed)
{
    const Workplace place;
    const std::pair<const char*, const char*> table[] = {
        {"regsiter a.ply b.ply", "unknown command \"regsiter\"; did you mean \"register\"?"},
        {"case shwo a.bson", "unknown command \"case shwo\"; did you mean \"case show\"?"},
        {"simulate --out d --size -5", "--size: must be between 1e-06 and 1e+09, is -5"},
        {"simulate --out d --noise -1", "--noise: must be between 0 and 1e+09, is -1"},
    };
    for (const auto& [arguments, message] : table) {
        const Outcome outcome = place.Run(arguments);
        EXPECT_EQ(outcome.exitCode, 64) << arguments;
        EXPECT_THAT(outcome.errors, HasSubstr(message));
    }
}

/// Faults of small files are found before large ones are read.
TEST(ToolUsage, ScansAreReadLast)
{
    const Workplace place;
    place.Write("c.json", "{");
    for (const char* arguments :
         {"register a.ply b.ply --config c.json", "register a.ply b.ply --start c.json",
          "case pack a.ply b.ply --out case --config c.json", "features a.ply --config c.json"}) {
        const Outcome outcome = place.Run(arguments);
        EXPECT_EQ(outcome.exitCode, 3) << arguments;
        EXPECT_THAT(outcome.errors, testing::StartsWith("voalgo: error: c.json: ")) << arguments;
    }
    EXPECT_THAT(place.Run("register a.ply b.ply --report none/r.html").errors, HasSubstr("cannot write none/r.html"));
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
        {R"({"uiNumPolygons": -1})", R"("uiNumPolygons": must be between 0 and 10000000, is -1)"},
        {R"({"uiNumPolygons": 4294967296})", R"(must be between 0 and 10000000)"},
        {R"({"icpConfig": {"uiNumSamples": 10000001}})", R"("icpConfig.uiNumSamples": must be between 0 and 10000000)"},
        {R"({"icpConfig": {"dMaxRMSE": -0.1}})", R"("icpConfig.dMaxRMSE": must not be negative, is -0.1)"},
        {R"({"dMaxPolygonVertexError": -1e-9})", R"("dMaxPolygonVertexError": must not be negative)"},
        {R"({"icpConfig": {"dNormalAngleTolerance": -1}})",
         R"("icpConfig.dNormalAngleTolerance": must not be negative)"},
        {R"({"unit": "km"})", R"("unit": must be "mm", "cm" or "m", is "km")"},
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
