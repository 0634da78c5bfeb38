// An element that parses is the same from memory and from a stream, is restored from its own bytes, is accepted only by
// the reader of its type, and gives valid JSON. Any other input is a "parse error".
#include "VoAlgorithms/bson/element.h"
#include "tests/bson/bson_support.h"
#include "tests/fuzz/detail_require.h"

#include <nlohmann/json.hpp>

#include <functional>

using VoAlgo::bson::element;
using namespace bson_test;

namespace {

void RequireOneReader(const element& e)
{
    const std::vector<std::function<void()>> readers = {
        [&] { (void)e.as_double(); }, [&] { (void)e.as_string(); },  [&] { (void)e.as_object(); },
        [&] { (void)e.as_binary(); }, [&] { (void)e.as_boolean(); }, [&] { (void)e.as_datetime(); },
        [&] { (void)e.as_regex(); },  [&] { (void)e.as_int32(); },   [&] { (void)e.as_uint64(); },
        [&] { (void)e.as_int64(); },  [&] { (void)e.as_float(); },   [&] { (void)e.as_uint32(); },
        [&] { (void)e.as_int16(); },  [&] { (void)e.as_uint16(); },  [&] { (void)e.as_uint8(); },
        [&] { (void)e.as_int8(); },
    };
    int numRead = 0;
    for (const auto& read : readers) {
        try {
            read();
            ++numRead;
        } catch (const std::bad_cast&) {
            continue;
        }
    }
    Require(numRead == (e.type() == element::Null || e.type() == element::Empty ? 0 : 1));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::optional<element> parsed = Parsed([&] { return element::unfreeze(data, size); });
    DripStream stream(Bytes(data, data + size));
    Require(Parsed([&] { return element::unfreeze(stream); }) == parsed);
    if (!parsed) return 0;
    const element& e = *parsed;
    const auto [frozen, length] = e.freeze();
    Require(element::unfreeze(frozen, length) == e);
    RequireOneReader(e);
    if (e.type() == element::String) Require(e.as_string().size() + 5 == e.size_of_value());
    if (e.type() == element::Binary) {
        const auto [bytes, n, type] = e.as_binary();
        Require(element::make_binary(e.name(), bytes, n, type) == e);
    }
    if (e.type() == element::Regex)
        Require(element::make_regex(e.name(), e.as_regex().first, e.as_regex().second) == e);
    if (e.type() == element::Object) {
        Require(element(e.name(), e.children()) == e);
        for (const element& child : e.children()) Require(e.child(child.name()) == e.children().child(child.name()));
        (void)e.child(std::regex("a.*"));
        (void)e.query("a/b");
    }
    (void)e.name_utf16();
    Require(nlohmann::json::accept(e.to_json()) && nlohmann::json::accept(e.to_json(2)));
    return 0;
}
