#pragma once

// What holds for any bytes, whether they are a document or not. Used by the unit tests and by the fuzz targets.

#include "VoAlgorithms/bson/element.h"
#include "bson_support.h"

#include <nlohmann/json.hpp>

#include <sstream>

namespace bson_test {

/// For each type: reads the value and makes the element anew.
struct Remaker {
    int type;
    element (*remake)(const element&);
};
inline const Remaker Remakers[] = {
    {1, [](const element& e) { return element(e.name(), e.as_double()); }},
    {2, [](const element& e) { return element(e.name(), e.as_string()); }},
    {4, [](const element& e) { return element(e.name(), e.as_object()); }},
    {4, [](const element& e) { return element(e.name(), e.children()); }},
    {5,
     [](const element& e) {
         return std::apply(element::make_binary, std::tuple_cat(std::tuple(e.name()), e.as_binary()));
     }},
    {8, [](const element& e) { return element(e.name(), e.as_boolean()); }},
    {9, [](const element& e) { return element(e.name(), e.as_datetime()); }},
    {11, [](const element& e) { return element::make_regex(e.name(), e.as_regex().first, e.as_regex().second); }},
    {16, [](const element& e) { return element(e.name(), e.as_int32()); }},
    {17, [](const element& e) { return element(e.name(), e.as_uint64()); }},
    {18, [](const element& e) { return element(e.name(), static_cast<long long>(e.as_int64())); }},
    {128, [](const element& e) { return element(e.name(), e.as_float()); }},
    {129, [](const element& e) { return element(e.name(), e.as_uint32()); }},
    {130, [](const element& e) { return element(e.name(), e.as_int16()); }},
    {131, [](const element& e) { return element(e.name(), e.as_uint16()); }},
    {132, [](const element& e) { return element(e.name(), e.as_uint8()); }},
    {133, [](const element& e) { return element(e.name(), e.as_int8()); }},
};

/// Whether the reader of its type gives the value of an element, and all others throw. Any byte but 0 is true.
inline bool OnlyItsReaderAccepts(const element& e)
{
    for (const auto& [type, remake] : Remakers) {
        try {
            const bool same = remake(e) == e || (type == element::Boolean && e.raw_value()[0] > 1);
            if (type != e.type() || !same) return false;
        } catch (const std::bad_cast&) {
            if (type == e.type()) return false;
        }
    }
    return true;
}

/// Whether an element that parses is the same from memory and from a stream, is restored from its own bytes, is
/// accepted only by the reader of its type, and gives valid JSON, and any other input is a "parse error".
inline bool HoldsAsElement(const Bytes& bytes)
{
    const std::optional<element> e = Parsed([&] { return element::unfreeze(bytes.data(), bytes.size()); });
    DripStream stream(bytes);
    if (Parsed([&] { return element::unfreeze(stream); }) != e) return false;
    if (!e) return true;
    const Bytes frozen = BytesOf(*e);
    (void)e->name_utf16();
    (void)e->child(std::regex("a.*"));
    (void)e->query("a/b");
    return element::unfreeze(frozen.data(), frozen.size()) == *e && OnlyItsReaderAccepts(*e) &&
           nlohmann::json::accept(e->to_json()) && nlohmann::json::accept(e->to_json(2));
}

/// Whether an object that parses is the same from memory and from streams, freezes to the bytes that its length
/// announces and comes back from them, and gives valid JSON, and its elements are found by their names; any other input
/// is a "parse error".
inline bool HoldsAsObject(const Bytes& bytes)
{
    using object = element::object;
    const std::optional<object> parsed = Parsed([&] { return object::unfreeze(bytes.data(), bytes.size()); });
    DripStream stream(bytes);
    const std::optional<object> streamed = Parsed([&] { return object::unfreeze(stream); });
    if (!parsed || !streamed) return parsed.has_value() == streamed.has_value();
    const Bytes frozen = BytesOf(*parsed);
    std::stringstream file;
    if (!parsed->freeze(file) || file.str() != std::string(frozen.begin(), frozen.end())) return false;
    for (const object& read : {*streamed, object::unfreeze(frozen.data(), frozen.size()),
                               object::unfreeze(frozen.data()), object::unfreeze(file)})
        if (BytesOf(read) != frozen) return false;

    const element nested("nested", *parsed);
    std::size_t numLookedUp = 0;
    for (const element& e : *parsed) {
        if (++numLookedUp > 16) break;
        const std::list<std::string> path{e.name(), "a"};
        if (nested.child(e.name()) != parsed->child(e.name()) || nested.query(path) != parsed->query(path) ||
            parsed->query(path) != parsed->child(e.name()).child("a"))
            return false;
    }
    return frozen.size() == parsed->size() && BytesOf(nested.children()) == frozen &&
           nested.to_json() == parsed->to_json() && nlohmann::json::accept(parsed->to_json());
}

} // namespace bson_test
