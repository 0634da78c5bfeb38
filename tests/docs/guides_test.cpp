// The guides' tables list what the library knows: settings with their values, refusals and tests with their codes.
// VOALGO_WRITE_GUIDES=1 test_docs writes the tables of the settings anew.
#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/acceptancetest.h"
#include "VoAlgorithms/verdict/erefusal.h"
#include "VoAlgorithms/verdict/registrationsettings.h"
#include "platform/format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>

namespace {

using prereg::EPreset;
using prereg::FieldInfo;
using prereg::RegistrationSettings;
using testing::HasSubstr;
using VoAlgo::Format;

std::string PathOf(const std::string& guide)
{
    return std::string(VOALGO_SOURCE_DIR) + "/docs/guides/" + guide;
}

std::string Guide(const std::string& name)
{
    std::ifstream file(PathOf(name));
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Replaces the table with the same columns.
std::string WithTable(const std::string& guide, const std::string& table)
{
    const std::size_t begin = guide.find(table.substr(0, table.find('\n') + 1));
    const std::size_t end = guide.find("\n\n", begin);
    if (begin == std::string::npos || end == std::string::npos) return guide + table;
    return guide.substr(0, begin) + table + guide.substr(end + 1);
}

std::string Row(const std::vector<std::string>& cells)
{
    std::string row = "|";
    for (const std::string& cell : cells) row += cell.empty() ? " |" : " " + cell + " |";
    return row + "\n";
}

std::string Table(const std::vector<std::string>& columns)
{
    return Row(columns) + Row(std::vector<std::string>(columns.size(), "---"));
}

/// Of a plane with points on a square grid; normals that are not at right angles to it count as roughness.
RegistrationSettings SettingsFor(float spacing, float tilt, EPreset preset)
{
    prereg::Scan scan;
    for (float x = 0.0F; x < 20.0F; ++x)
        for (float y = 0.0F; y < 20.0F; ++y) scan.points.emplace_back(spacing * x, spacing * y, 0.0F);
    scan.normals.assign(scan.points.size(), {std::sin(tilt), 0.0F, std::cos(tilt)});
    return DeriveSettings(scan, scan, preset);
}

std::string Number(double value, const std::string& unit)
{
    if (unit == "rad" && value > 0) return Format("%.4g (%.3g°)", value, value / 0.0174532925199433);
    return Format("%.6g", value);
}

using Setting = std::function<double(const RegistrationSettings&)>;

/// How a preset derives a setting from the resolution w and the roughness r.
std::string Rule(const Setting& setting, const std::string& unit, EPreset preset)
{
    const RegistrationSettings settings = SettingsFor(1.0F, 0.0F, preset);
    const double value = setting(settings);
    if (setting(SettingsFor(1.0F, 0.1F, preset)) != value)
        return Format("%.6g × r", value / settings.verification.roughness);
    if (setting(SettingsFor(2.0F, 0.0F, preset)) != value) return Format("%.6g × w", value / settings.resolution);
    return Number(value, unit);
}

/// The same for all presets; "auto" is "scan".
std::string Rules(const Setting& setting, const std::string& unit)
{
    const std::string usual = Rule(setting, unit, EPreset::Scan);
    std::string rules = usual;
    for (const auto& [preset, name] : {std::pair(EPreset::Dense, "dense"), std::pair(EPreset::Thorough, "thorough")})
        if (const std::string rule = Rule(setting, unit, preset); rule != usual) rules += Format("; %s: ", name) + rule;
    return rules;
}

/// The value of a record's field.
double Field(const auto& record, const std::string& key)
{
    double value = NAN;
    prereg::VisitFields(record, [&](const FieldInfo& info, const auto& field) {
        if (info.key == key) value = static_cast<double>(field);
    });
    return value;
}

TEST(Guides, ListEverySetting)
{
    const RegistrationSettings defaults;
    std::string search = Table({"setting", "unit", "meaning", "derived", "default", "≤ 0 means"});
    prereg::VisitFields(defaults.config, [&](const FieldInfo& info, auto value) {
        const auto field = [&](const RegistrationSettings& s) { return Field(s.config, info.key); };
        search += Row({Format("`%s`", info.key), info.unit, info.meaning, Rules(field, info.unit),
                       Number(value, info.unit), info.off});
    });
    std::string refinement =
        Table({"setting", "unit", "meaning", "in the search", "in the verification", "default", "≤ 0 means"});
    prereg::VisitFields(defaults.config.icpConfig, [&](const FieldInfo& info, auto value) {
        const auto inSearch = [&](const RegistrationSettings& s) { return Field(s.config.icpConfig, info.key); };
        const auto inVerification = [&](const RegistrationSettings& s) { return Field(s.verification.icp, info.key); };
        refinement += Row({Format("`%s`", info.key), info.unit, info.meaning, Rules(inSearch, info.unit),
                           Rules(inVerification, info.unit), Number(value, info.unit), info.off});
    });
    std::string verification = Table({"setting", "unit", "meaning", "derived"});
    prereg::VisitFields(defaults.verification, [&](const FieldInfo& info, const auto&) {
        const auto field = [&](const RegistrationSettings& s) { return Field(s.verification, info.key); };
        verification += Row({Format("`%s`", info.key), info.unit, info.meaning, Rules(field, info.unit)});
    });
    verification += Row({"`resolution`", "mm", "spacing to which denser scans are thinned before the search", "w"});
    const auto spacing = [](const RegistrationSettings& s) { return s.workingSpacing; };
    verification += Row({"`workingSpacing`", "mm", "spacing to which scans are thinned before features are computed",
                         Rules(spacing, "mm")});

    const std::string guide = Guide("settings.md");
    const std::string current = WithTable(WithTable(WithTable(guide, search), refinement), verification);
    if (std::getenv("VOALGO_WRITE_GUIDES") != nullptr) std::ofstream(PathOf("settings.md")) << current;
    EXPECT_EQ(guide, current);
}

TEST(Guides, ExplainEveryRefusalAndEveryTest)
{
    const std::string guide = Guide("why-was-it-refused.md");
    int numRefusals = 0;
    for (std::int32_t i = 1; i < 100; ++i) {
        const auto code = static_cast<prereg::ERefusal>(i);
        if (CodeOf(code) == std::string("unknown")) continue;
        ++numRefusals;
        EXPECT_THAT(guide, HasSubstr(Format("\n| `%s` | %s |", CodeOf(code), TextOf(code))));
    }
    EXPECT_GE(numRefusals, 25);
    for (int i = 0; i <= static_cast<int>(prereg::ETest::RunnerUp); ++i) {
        const prereg::TestInfo& info = InfoOf(static_cast<prereg::ETest>(i));
        EXPECT_THAT(guide, HasSubstr(Format("\n| `%s` | %s |", info.code, info.name)));
    }
}

} // namespace
