// An object that parses is the same from memory and from a stream, freezes to the bytes that its length announces and
// comes back from them, and gives valid JSON; its elements are found by their names. Everything else is a "parse
// error".
#include "VoAlgorithms/bson/element.h"
#include "tests/bson/bson_support.h"
#include "tests/fuzz/detail_require.h"

#include <nlohmann/json.hpp>

#include <sstream>

using VoAlgo::bson::element;
using object = element::object;
using namespace bson_test;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::optional<object> parsed = Parsed([&] { return object::unfreeze(data, size); });
    DripStream stream(Bytes(data, data + size));
    const std::optional<object> streamed = Parsed([&] { return object::unfreeze(stream); });
    Require(parsed.has_value() == streamed.has_value());
    if (!parsed) return 0;
    const Bytes frozen = BytesOf(*parsed);
    Require(frozen == BytesOf(*streamed) && frozen.size() == parsed->size());
    Require(BytesOf(object::unfreeze(frozen.data(), frozen.size())) == frozen);
    Require(BytesOf(object::unfreeze(frozen.data())) == frozen);
    std::stringstream file;
    Require(parsed->freeze(file) && BytesOf(object::unfreeze(file)) == frozen);

    const element nested("nested", *parsed);
    Require(BytesOf(nested.children()) == frozen);
    std::size_t numLookedUp = 0;
    for (const element& e : *parsed) {
        if (++numLookedUp > 16) break;
        Require(nested.child(e.name()) == parsed->child(e.name()));
        const std::list<std::string> path{e.name(), "a"};
        Require(nested.query(path) == parsed->query(path));
        Require(parsed->query(path) == parsed->child(e.name()).child("a"));
    }
    Require(nested.to_json() == parsed->to_json() && nlohmann::json::accept(parsed->to_json()));
    return 0;
}
