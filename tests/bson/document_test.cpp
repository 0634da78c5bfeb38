#include "VoAlgorithms/bson/element.h"
#include "bson/bson_invariants.h"
#include "fuzz/keep_seed.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>

namespace {

using namespace bson_test;
using object = element::object;
using nlohmann::json;
using namespace std::chrono_literals;
using namespace std::string_literals;

/// Something and the JSON that it should give.
template <class T>
struct Shown {
    T made;
    std::string text;
};

/// Random nested documents with values of every type.
class RandomDocuments {
public:
    explicit RandomDocuments(unsigned seed) : engine_(seed) {}

    Shown<object> Object(unsigned depth)
    {
        object made;
        std::string text;
        for (std::size_t n = Below(6); n > 0; --n) {
            const std::string name = someText(4, false);
            const Shown<element> e = randomElement(name, depth);
            made.append(e.made);
            text += (text.empty() ? "" : ",") + json(name).dump() + ":" + e.text;
        }
        return {made, "{" + text + "}"};
    }
    std::size_t Below(std::size_t n) { return engine_() % n; }

private:
    std::string someText(std::size_t longest, bool withNul)
    {
        static const std::string letters[] = {"a", "\"", "\\", "\n", "\x7F", "\x01", "é", "\U0001F600", "/", "\0"s};
        std::string text;
        for (std::size_t n = Below(longest + 1); n > 0; --n) text += letters[Below(std::size(letters) - !withNul)];
        return text;
    }
    template <class T>
    Shown<element> plainElement(const std::string& name)
    {
        const std::uint64_t bits = engine_();
        T value;
        std::memcpy(&value, &bits, sizeof(T));
        if constexpr (std::is_same_v<T, float>) value = static_cast<float>(bits % 65536) / 8.0F; // short as double, too
        if constexpr (std::is_same_v<T, double>) value = std::isfinite(value) ? value : 0.1;
        if constexpr (std::is_same_v<T, bool>) value = bits % 2 == 0;
        return {{name, value}, json(value).dump()};
    }
    Shown<element> randomElement(const std::string& name, unsigned depth)
    {
        using R = RandomDocuments;
        static constexpr Shown<element> (R::*Plain[])(const std::string&) = {
            &R::plainElement<signed char>, &R::plainElement<unsigned char>,
            &R::plainElement<short>,       &R::plainElement<unsigned short>,
            &R::plainElement<int>,         &R::plainElement<unsigned>,
            &R::plainElement<long long>,   &R::plainElement<unsigned long long>,
            &R::plainElement<float>,       &R::plainElement<double>,
            &R::plainElement<bool>};
        const std::size_t kind = Below(depth > 0 ? 17 : 14);
        if (kind < std::size(Plain)) return (this->*Plain[kind])(name);
        if (kind == 11) return {element(name), "null"};
        const std::string text = someText(8, kind == 12);
        if (kind == 12) return {{name, text}, json(text).dump()};
        if (kind == 13)
            return {element::make_regex(name, text, "x"),
                    R"({"$regularExpression":{"pattern":)" + json(text).dump() + R"(,"options":"x"}})"};
        const Shown<object> inner = Object(depth - 1);
        return {{name, inner.made}, inner.text};
    }

    std::mt19937_64 engine_;
};

// Every way to write and read a document gives the same bytes, another implementation of JSON agrees with ours, no
// part of a document is a complete one, and a damaged one is an error or comes back too.
TEST(Document, RandomOnesComeBack)
{
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        RandomDocuments random(seed);
        const auto [document, text] = random.Object(4);
        const Bytes bytes = BytesOf(document);
        if (seed < 16) {
            KeepSeed("object", "random" + std::to_string(seed), bytes);
            KeepSeed("element", "random" + std::to_string(seed), BytesOf(element("o", document)));
        }
        EXPECT_TRUE(HoldsAsObject(bytes));
        EXPECT_EQ(BytesOf(object::unfreeze(bytes.data(), bytes.size())), bytes);
        EXPECT_EQ(json::parse(document.to_json()), json::parse(text));
        for (std::size_t n = 4; n < bytes.size(); ++n)
            EXPECT_TRUE(IsParseError([&] { return object::unfreeze(Bytes(bytes.begin(), At(bytes, n)).data(), n); }));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            Bytes damaged = bytes;
            const unsigned char values[] = {0, 1, 2, 4, 5, 127, 128, 255};
            damaged[i] = values[random.Below(std::size(values))];
            EXPECT_TRUE(HoldsAsObject(damaged)) << i << " is " << int{damaged[i]};
        }
    }
}

TEST(Document, FormatPageHolds)
{
    std::ifstream page(VOALGO_SOURCE_DIR "/docs/document-format.md");
    const std::regex row(R"(\| ([0-9a-f ]+) \| (\{.*) \|)");
    int numRows = 0;
    for (std::string line; std::getline(page, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, row)) continue;
        const std::string digits = std::regex_replace(match[1].str(), std::regex(" "), "");
        Bytes bytes;
        for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
            bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
        const object read = object::unfreeze(bytes.data(), bytes.size());
        EXPECT_EQ(BytesOf(read), bytes) << line;
        EXPECT_EQ(read.to_json(), match[2].str());
        ++numRows;
    }
    EXPECT_EQ(numRows, 12);
}

TEST(Document, FalseCountsAreParseErrors)
{
    const Bytes broken[] = {
        {3, 'a', 0, 5, 0, 0, 0, 0},              // code 3
        {0, 'a', 0},                             // no code
        {255, 'a', 0},                           // the empty element is not stored
        {19, 'a', 0, 0, 0, 0, 0, 0, 0, 0, 0},    // unknown code
        {16, 'a', 'b', 'c'},                     // name without end
        {2, 'a', 0, 0xFF, 0xFF, 0xFF, 0xFF, 0},  // negative
        {2, 'a', 0, 0, 0, 0, 0, 0},              // no room for its NUL
        {2, 'a', 0, 2, 0, 0, 0, 'x', 'y', 0},    // NUL not where it should be
        {2, 'a', 0, 0xFF, 0xFF, 0xFF, 0x7F, 0},  // 2 GiB
        {5, 'a', 0, 0, 0, 0, 0x80, 0},           // negative
        {5, 'a', 0, 0xFE, 0xFF, 0xFF, 0x7F, 0},  // 2 GiB
        {4, 'a', 0, 0xFF, 0xFF, 0xFF, 0xFF, 10}, // 4 GiB, no end
        {11, 'a', 0, 'x', 0, 'y'},               // options without end
    };
    for (const Bytes& bytes : broken) {
        KeepSeed("element", "broken" + std::to_string(&bytes - broken), bytes);
        EXPECT_TRUE(IsParseError([&] { return element::unfreeze(bytes.data(), bytes.size()); })) << &bytes - broken;
        EXPECT_TRUE(HoldsAsElement(bytes)) << &bytes - broken; // from a stream too
    }
}

// Values read in more than one step, from streams with and without a known length.
TEST(Document, LargeValuesComeInPieces)
{
    Bytes raw(300'000);
    for (std::size_t i = 0; i < raw.size(); ++i) raw[i] = static_cast<unsigned char>(i * i >> 8U);
    const element large("large", raw.data(), static_cast<unsigned>(raw.size()));
    for (const object& document : {object(large), object({"o", (large, element("s", std::string(200'000, 'x')))})}) {
        Bytes bytes = BytesOf(document);
        EXPECT_TRUE(HoldsAsObject(bytes));
        EXPECT_EQ(BytesOf(object::unfreeze(bytes.data(), bytes.size())), bytes);
        bytes.resize(250'000);
        DripStream cut(bytes);
        EXPECT_TRUE(IsParseError([&] { return object::unfreeze(cut); }));
    }
}

// Objects 100,000 levels deep: every operation walks over flat bytes.
TEST(Document, DeepNestingNeedsNoStack)
{
    constexpr std::size_t Depth = 100'000;
    Bytes bytes{0, 0, 0, 0};
    for (std::size_t i = 0; i < Depth; ++i) bytes.insert(bytes.end(), {4, 'o', 0, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_TRUE(IsParseError([&] { return object::unfreeze(bytes.data(), bytes.size()); }));
    bytes.insert(bytes.end(), {8, 'b', 0, 1});
    bytes.insert(bytes.end(), Depth + 1, 0);

    object deep = object::unfreeze(bytes.data(), bytes.size());
    ASSERT_EQ(deep.size(), bytes.size());
    const Bytes frozen = BytesOf(deep);
    EXPECT_EQ(BytesOf(object::unfreeze(frozen.data(), frozen.size())), frozen);
    std::list<std::string> path(Depth, "o");
    path.emplace_back("b");
    EXPECT_TRUE(deep.query(path).as_boolean());
    const std::string deepJson = deep.to_json();
    EXPECT_EQ(deepJson.substr(Depth * 5), R"({"b":true})" + std::string(Depth, '}'));
    object copy = deep;
    deep = copy.child("o").children();
    EXPECT_EQ(deep.size(), bytes.size() - 8);
    KeepSeed("object", "deep", Bytes(bytes.begin(), bytes.begin() + 400));

    // Nor do long names need stack, although the standard library's matcher recurses.
    const object longName(element(std::string(1'000'000, 'a')));
    EXPECT_EQ(longName.child(std::regex("(a|b)*")).type(), element::Empty);
    EXPECT_EQ(object(element(std::string(1024, 'a'))).child(std::regex("(a|b)*")).type(), element::Null);
}

TEST(Json, ShowsTypesThatJsonLacks)
{
    const unsigned char raw[] = {0, 0xFF, 0x10, 0x83};
    const std::pair<std::string, std::string> rows[] = {
        {element::make_binary("", raw, 2, element::BinaryType{0xA5}).to_json(),
         R"({"$binary":{"base64":"AP8=","subType":"a5"}})"},
        {element("b", raw, 4).to_json(4), R"({"$binary":{"base64":"AP8Qgw==","subType":"00"}})"},
        {element("b", raw, 4).to_json(3), R"({"$binary":{"size":4,"subType":"00"}})"},
        {element("d", -5ms).to_json(), R"({"$date":{"$numberLong":"-5"}})"},
        {element("n", std::numeric_limits<double>::quiet_NaN()).to_json(), R"("NaN")"},
        {element("n", std::numeric_limits<float>::infinity()).to_json(), R"("Infinity")"},
        {element("n", -std::numeric_limits<double>::infinity()).to_json(), R"("-Infinity")"},
        {element("n", 0.1F).to_json(), "0.1"},
        {element("n", 1e22).to_json(), "1e+22"},
        {element("n", -0.0).to_json(), "-0"},
        {element().to_json(), "null"},
        {element("t", "\b\x1F\"\\/\xC3").to_json(), R"("\u0008\u001f\"\\/)"
                                                    "\xEF\xBF\xBD\""},
        {object((element("a", 1), element(), (element("a", 2)))).to_json(), R"({"a":1,"a":2})"},
        {object().to_json(), "{}"},
        {object({"o", (element("p", object()), element("q"))}).to_json(), R"({"o":{"p":{},"q":null}})"},
    };
    for (const auto& [shown, expected] : rows) {
        EXPECT_EQ(shown, expected);
        EXPECT_TRUE(json::accept(shown)) << shown;
    }
}

// Numbers read back to the same bits, and scientific notation with the fewest digits that do is no shorter.
TEST(Json, NumbersAreAsShortAsPossible)
{
    std::mt19937_64 engine(7);
    for (int i = 0; i < 20'000; ++i) {
        const std::uint64_t bits = engine();
        double number;
        std::memcpy(&number, &bits, sizeof(number));
        if (!std::isfinite(number)) continue;
        const std::string digits = element("n", number).to_json();
        EXPECT_EQ(json::parse(digits).get<double>(), number) << digits;
        char fewest[40] = "";
        for (int places = 0; std::strtod(fewest, nullptr) != number; ++places)
            std::snprintf(fewest, sizeof(fewest), "%.*e", places, number);
        EXPECT_LE(digits.size(), std::strlen(fewest)) << digits << " " << fewest;
        const auto narrow = static_cast<float>(engine() % 1000000) / 1024.0F;
        EXPECT_EQ(std::strtof(element("n", narrow).to_json().c_str(), nullptr), narrow);
    }
}

// Broken UTF-8 (Unicode Standard, table 3-8, and more): valid text stays, the rest becomes U+FFFD.
TEST(Json, TextIsValidUtf8)
{
    const std::pair<std::string, std::string> rows[] = {{"\xC0\xAF", "??"},
                                                        {"\xE0\x80\xAF", "???"},
                                                        {"\xED\xA0\x80", "???"},
                                                        {"\xED\x9F\xBF", "\xED\x9F\xBF"},
                                                        {"\xF4\x90\x80\x80", "????"},
                                                        {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
                                                        {"\xF0\x90\x80\x80", "\xF0\x90\x80\x80"},
                                                        {"\xF0\x80\x80\x80", "????"},
                                                        {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", "????A"},
                                                        {"\x80\xF5\xFF", "???"},
                                                        {"a\xC3", "a?"}};
    for (const auto& [bytes, expected] : rows) {
        std::string shown = json::parse(element("t", bytes).to_json()).get<std::string>();
        for (std::size_t at; (at = shown.find("\xEF\xBF\xBD")) != std::string::npos;) shown.replace(at, 3, "?");
        EXPECT_EQ(shown, expected);
    }
    EXPECT_EQ(element("t", L"\xD83D\xDE00|\xD83D|\xDE00").as_string(), "\U0001F600|\xEF\xBF\xBD|\xEF\xBF\xBD");
}

} // namespace
