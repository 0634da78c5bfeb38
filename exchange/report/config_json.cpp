#include "exchange/report/config_json.h"

#include "VoAlgorithms/prereg/fields.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace voalgo {

namespace {

using Json = nlohmann::ordered_json;

/// More of anything would only look like a program that hangs.
constexpr std::uint32_t MostOfAnything = 10'000'000;

constexpr const char* UnitKey = "unit";

/// Reads the values of one JSON object.
class Reader {
public:
    Reader(const std::string& path, const Json& object, const std::string& key, LengthUnit unit)
        : path_(path), object_(object), inside_(key.empty() ? "" : key + "."), unit_(std::move(unit))
    {
        if (!object.is_object()) Fail(key, "must be a JSON object, is " + typeOf(object));
    }

    /// Takes over the value of a setting if the object has one.
    template <class T>
    void operator()(const prereg::FieldInfo& info, T& field)
    {
        const Json* value = Find(info.key);
        if (value == nullptr) return;
        const std::string key = inside_ + info.key;
        if constexpr (std::is_same_v<T, std::uint32_t>) {
            if (!value->is_number_integer()) Fail(key, "must be a whole number, is " + typeOf(*value));
            if (!value->is_number_unsigned() || value->get<std::uint64_t>() > MostOfAnything)
                Fail(key, "must be between 0 and " + std::to_string(MostOfAnything) + ", is " + value->dump());
            field = value->get<T>();
        } else {
            if (!value->is_number()) Fail(key, "must be a number, is " + typeOf(*value));
            const bool isMeasure = *info.unit != '\0'; // a length, an area or an angle
            const bool mayBeOff = *info.off != '\0';
            if (isMeasure && !mayBeOff && value->get<T>() < 0.0) Fail(key, "must not be negative, is " + value->dump());
            field = value->get<T>() * unit_.ScaleOf(info.unit, value->get<T>());
        }
    }

    /// The value under a key, null when there is none.
    const Json* Find(const char* key)
    {
        known_.emplace_back(key);
        const auto found = object_.find(key);
        return found == object_.end() ? nullptr : &*found;
    }

    /// Refuses every key that nobody asked for.
    void RequireKnownKeys() const
    {
        for (const auto& [key, value] : object_.items()) {
            if (std::find(known_.begin(), known_.end(), key) != known_.end()) continue;
            Fail(inside_ + key, "unknown key; did you mean \"" + inside_ + prereg::NearestKey(key, known_) + "\"?");
        }
    }

    [[noreturn]] void Fail(const std::string& key, const std::string& what) const
    {
        throw InputError(path_ + ": " + (key.empty() ? "" : "\"" + key + "\": ") + what);
    }

private:
    static std::string typeOf(const Json& value)
    {
        const std::string type = value.type_name();
        return type == "number" && value.is_number_float() ? value.dump() : type;
    }

    const std::string& path_;
    const Json& object_;
    std::string inside_; // key of the object with a dot; empty for the outermost one
    LengthUnit unit_;
    std::vector<std::string> known_;
};

Json Parse(const std::string& path)
{
    const std::string text = ReadText(path);
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        const std::string what = error.what();
        const std::size_t end = what.find("] "); // after the error number of the JSON library
        throw InputError(path + ": not valid JSON: " + (end == std::string::npos ? what : what.substr(end + 2)));
    }
}

Json FieldsOf(const auto& record, const LengthUnit& unit)
{
    Json json;
    prereg::VisitFields(record, [&](const prereg::FieldInfo& info, const auto& field) {
        if constexpr (std::is_floating_point_v<std::remove_cvref_t<decltype(field)>>) {
            json[info.key] = field / unit.ScaleOf(info.unit, field);
        } else {
            json[info.key] = field;
        }
    });
    return json;
}

LengthUnit ReadUnit(const Json& json, const std::string& path)
{
    if (!json.contains(UnitKey)) return {};
    const Json& name = json[UnitKey];
    const std::optional<LengthUnit> unit = name.is_string() ? UnitOf(name.get<std::string>()) : std::nullopt;
    if (!unit) throw InputError(path + ": \"unit\": must be \"mm\", \"cm\" or \"m\", is " + name.dump());
    return *unit;
}

void Apply(const Json& json, const std::string& path, prereg::ConfigurationFPFH& config)
{
    const LengthUnit unit = ReadUnit(json, path);
    Reader reader(path, json, "", unit);
    (void)reader.Find(UnitKey);
    prereg::VisitFields(config, std::ref(reader));
    if (const Json* icp = reader.Find(prereg::IcpKey)) {
        Reader icpReader(path, *icp, prereg::IcpKey, unit);
        prereg::VisitFields(config.icpConfig, std::ref(icpReader));
        icpReader.RequireKnownKeys();
    }
    // For a key of the refinement at the outer level the suggestion would mislead.
    prereg::VisitFields(config.icpConfig, [&](const prereg::FieldInfo& info, const auto&) {
        if (json.contains(info.key)) reader.Fail(info.key, "belongs inside \"icpConfig\"");
    });
    reader.RequireKnownKeys();
    try {
        prereg::RequireRanges(config);
    } catch (const std::invalid_argument& error) {
        throw InputError(path + ": " + error.what());
    }
}

} // namespace

Json ToJson(const prereg::ConfigurationFPFH& config, const LengthUnit& unit)
{
    Json json;
    if (unit.mm != 1.0) json[UnitKey] = unit.name;
    json.update(FieldsOf(config, unit));
    json[prereg::IcpKey] = FieldsOf(config.icpConfig, unit);
    return json;
}

Json ToJson(const prereg::Verification& verification, const LengthUnit& unit)
{
    Json json = FieldsOf(verification, unit);
    json[prereg::IcpKey] = FieldsOf(verification.icp, unit);
    return json;
}

std::function<void(prereg::ConfigurationFPFH&)> ReadConfigFile(const std::string& path)
{
    auto apply = [path, json = Parse(path)](prereg::ConfigurationFPFH& config) { Apply(json, path, config); };
    prereg::ConfigurationFPFH any; // faults do not depend on the settings that are not stated
    apply(any);
    return apply;
}

} // namespace voalgo
