#include "VoAlgorithms/bson/element.h"
#include "bson/bson_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

namespace {

using namespace bson_test;
using VoAlgo::bson::element;
using object = element::object;
using namespace std::chrono_literals;
using namespace std::string_literals;

struct GoldenRow {
    element made;
    element constructed; // the same through the typed constructor, where there is one
    int type;
    Bytes bytes;
};

// Worked out by hand from the layout: type, name, NUL, value, all little-endian.
std::vector<GoldenRow> GoldenRows()
{
    const unsigned char raw[] = {0xDE, 0xAD, 0xBE};
    const object inner(element("b", true));
    return {
        {element::make_double("a", -2.0), {"a", -2.0}, 1, {1, 'a', 0, 0, 0, 0, 0, 0, 0, 0, 0xC0}},
        {element::make_string("a", "x\0y"s), {"a", "x\0y"s}, 2, {2, 'a', 0, 4, 0, 0, 0, 'x', 0, 'y', 0}},
        {element::make_string("a", L"ä€\U0001F600"),
         {"a", L"ä€\U0001F600"},
         2,
         {2, 'a', 0, 10, 0, 0, 0, 0xC3, 0xA4, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80, 0}},
        {element::make_object("a", inner), {"a", inner}, 4, {4, 'a', 0, 4, 0, 0, 0, 8, 'b', 0, 1, 0}},
        {element::make_binary("a", raw, 3), {"a", raw, 3}, 5, {5, 'a', 0, 3, 0, 0, 0, 0, 0xDE, 0xAD, 0xBE}},
        {element::make_binary("a", nullptr, 0, element::BinaryType::UserDefined), {}, 5, {5, 'a', 0, 0, 0, 0, 0, 128}},
        {element::make_boolean("a", false), {"a", false}, 8, {8, 'a', 0, 0}},
        {element::make_datetime("a", -2ms),
         {"a", -2ms},
         9,
         {9, 'a', 0, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {element::make_null("abc"), element("abc"), 10, {10, 'a', 'b', 'c', 0}},
        {element::make_regex("", "^a", "i"), {}, 11, {11, 0, '^', 'a', 0, 'i', 0}},
        {element::make_int32("a", -2), {"a", -2}, 16, {16, 'a', 0, 0xFE, 0xFF, 0xFF, 0xFF}},
        {element::make_uint64("a", 0x8000000000000001U),
         {"a", 0x8000000000000001ULL},
         17,
         {17, 'a', 0, 1, 0, 0, 0, 0, 0, 0, 0x80}},
        {element::make_int64("a", 258), {"a", 258LL}, 18, {18, 'a', 0, 2, 1, 0, 0, 0, 0, 0, 0}},
        {element::make_float("a", 1.5F), {"a", 1.5F}, 128, {128, 'a', 0, 0, 0, 0xC0, 0x3F}},
        {element::make_uint32("a", 0xFFFFFFFEU), {"a", 0xFFFFFFFEU}, 129, {129, 'a', 0, 0xFE, 0xFF, 0xFF, 0xFF}},
        {element::make_int16("a", -2), {"a", short{-2}}, 130, {130, 'a', 0, 0xFE, 0xFF}},
        {element::make_uint16("a", 258), {"a", static_cast<unsigned short>(258)}, 131, {131, 'a', 0, 2, 1}},
        {element::make_uint8("a", 200), {"a", static_cast<unsigned char>(200)}, 132, {132, 'a', 0, 200}},
        {element::make_int8("a", -1), {"a", static_cast<signed char>(-1)}, 133, {133, 'a', 0, 0xFF}},
    };
}

TEST(Element, EveryTypeHasItsBytes)
{
    for (const GoldenRow& row : GoldenRows()) {
        SCOPED_TRACE(row.type);
        EXPECT_EQ(BytesOf(row.made), row.bytes);
        KeepSeed("element", std::to_string(row.type) + row.made.name(), row.bytes);
        EXPECT_EQ(row.made.type(), row.type);
        EXPECT_TRUE(row.constructed == row.made || row.constructed.type() == element::Empty);
        const element read = element::unfreeze(row.bytes.data(), row.bytes.size());
        EXPECT_EQ(read, row.made);
        EXPECT_EQ(read.size_of_value(), row.bytes.size() - std::string(read.name()).size() - 2);
        EXPECT_EQ(read.raw_value(), read.raw() + std::string(read.name()).size() + 2);
        // Truncation anywhere is an error, except before the type byte and inside the count of an object.
        for (std::size_t n = 0; n < row.bytes.size(); ++n) {
            const auto cut = [&] { return element::unfreeze(Bytes(row.bytes.begin(), At(row.bytes, n)).data(), n); };
            if (n == 0) {
                EXPECT_EQ(cut().type(), 255);
            } else if (row.type == 4 && n >= 3 && n < 7) {
                EXPECT_EQ(cut(), element("a", object()));
            } else {
                EXPECT_TRUE(IsParseError(cut)) << n;
            }
        }
    }
}

// The reader for a row's type gives its value and all others throw; for the empty element all of them do.
TEST(Element, ReadersAcceptOnlyTheirOwnType)
{
    const std::vector<std::pair<int, std::function<void(const element&)>>> readers = {
        {1, [](const element& e) { EXPECT_EQ(e.as_double(), -2.0); }},
        {2, [](const element& e) { EXPECT_EQ(e.as_string().size(), e.size_of_value() - 5); }},
        {2, [](const element& e) { EXPECT_EQ(element::make_string("a", e.as_string_utf16()), e); }},
        {4, [](const element& e) { EXPECT_TRUE(e.as_object().child("b").as_boolean()); }},
        {4, [](const element& e) { EXPECT_EQ(element("a", e.children()), e); }},
        {5,
         [](const element& e) {
             const auto [data, size, type] = e.as_binary();
             EXPECT_EQ(element::make_binary("a", data, size, type), e);
         }},
        {8, [](const element& e) { EXPECT_FALSE(e.as_boolean()); }},
        {9, [](const element& e) { EXPECT_EQ(e.as_datetime(), -2ms); }},
        {11, [](const element& e) { EXPECT_EQ(e.as_regex().first + "|"s + e.as_regex().second, "^a|i"); }},
        {16, [](const element& e) { EXPECT_EQ(e.as_int32(), -2); }},
        {17, [](const element& e) { EXPECT_EQ(e.as_uint64(), 0x8000000000000001U); }},
        {18, [](const element& e) { EXPECT_EQ(e.as_int64(), 258); }},
        {128, [](const element& e) { EXPECT_EQ(e.as_float(), 1.5F); }},
        {129, [](const element& e) { EXPECT_EQ(e.as_uint32(), 0xFFFFFFFEU); }},
        {130, [](const element& e) { EXPECT_EQ(e.as_int16(), -2); }},
        {131, [](const element& e) { EXPECT_EQ(e.as_uint16(), 258); }},
        {132, [](const element& e) { EXPECT_EQ(e.as_uint8(), 200); }},
        {133, [](const element& e) { EXPECT_EQ(e.as_int8(), -1); }},
    };
    std::vector<GoldenRow> rows = GoldenRows();
    rows.push_back({element(), element(), 255, {}});
    for (const GoldenRow& row : rows)
        for (const auto& [type, read] : readers) {
            SCOPED_TRACE(std::to_string(row.type) + " read as " + std::to_string(type));
            if (type == row.type)
                read(row.made);
            else
                EXPECT_THROW(read(row.made), std::bad_cast);
        }
    EXPECT_STREQ(VoAlgo::bson::bad_cast().what(), "bad cast");
}

TEST(Element, CopiesAndMovesItsBytes)
{
    element a("name", 1), b = a;
    EXPECT_EQ(a, b);
    EXPECT_NE(a.raw(), b.raw());
    const unsigned char* const raw = b.raw();
    element c = std::move(b);
    EXPECT_EQ(c.raw(), raw);
    EXPECT_EQ(b, element()); // NOLINT(bugprone-use-after-move): a moved-from element is the empty one
    a = std::move(c);
    EXPECT_EQ(a.raw(), raw);
    EXPECT_EQ(c, element()); // NOLINT(bugprone-use-after-move)
    EXPECT_STREQ(c.name(), "");
    EXPECT_EQ(c.freeze().second, 0U);
    EXPECT_NE(element("a", 1), element("a", 1U));
    EXPECT_EQ(element("ä€").name_utf16(), L"ä€");
    EXPECT_EQ(element("\xC3(\xFF").name_utf16(), L"\xFFFD(\xFFFD");
    EXPECT_THROW(element("a\0b"s, 1), std::invalid_argument);
    EXPECT_THROW((void)element::make_regex("a", "b\0"s, ""), std::invalid_argument);
    EXPECT_THROW((void)element::make_binary("a", "", 0x80000000U), std::length_error);
}

TEST(Element, CommasBuildObjects)
{
    object ab = (element("a", 1), element("b", 2));
    EXPECT_EQ(NamesOf(ab), "ab");
    const object abc = (object(ab), element("c", 3)), copy = (abc, element("d", 4));
    EXPECT_EQ(NamesOf(abc) + NamesOf(copy) + NamesOf((abc, ab)), "abcabcdabcab");
    ab, element("e"), (element("f"), element("g"));
    EXPECT_EQ(NamesOf(ab), "abefg");
    EXPECT_EQ(ab.size(), ab.freeze().second);
}

TEST(Object, HasItsBytes)
{
    const Bytes empty{0, 0, 0, 0, 0}, one{7, 0, 0, 0, 0x10, 'a', 0, 1, 2, 3, 4, 0};
    EXPECT_EQ(BytesOf(object()), empty);
    EXPECT_EQ(BytesOf(object(element("a", 0x04030201))), one);
    EXPECT_EQ(BytesOf(object::unfreeze(one.data())), one);
    EXPECT_EQ(BytesOf(object::unfreeze(nullptr, 0)), empty);
    EXPECT_EQ(BytesOf(object::unfreeze(one.data(), 3)), empty);
    EXPECT_TRUE(IsParseError([&] { return object::unfreeze(one.data(), one.size() - 1); }));
}

// The terminator ends an object, not its count; the object read has correct counts.
TEST(Object, CountsAreIgnoredAndCorrected)
{
    const object nested((element("o", (element("a", 1), element("p", object(element("q"))))), element("z", "end")));
    const Bytes right = BytesOf(nested);
    for (const std::size_t place : {0U, 7U, 7U + 4 + 7 + 3})
        for (const int wrong : {0x00, 0x01, 0x7F, 0xFF}) {
            Bytes bytes = right;
            for (std::size_t i = 0; i < 4; ++i) bytes[place + i] = static_cast<unsigned char>(wrong);
            EXPECT_EQ(BytesOf(object::unfreeze(bytes.data())), right);
            EXPECT_EQ(BytesOf(object::unfreeze(bytes.data(), bytes.size())), right);
        }
}

TEST(Object, StreamsHoldOneDocumentAfterTheOther)
{
    const object a((element("x", 1), element("y", "text"))), b(element("z"));
    std::stringstream stream;
    EXPECT_TRUE(a.freeze(stream) && element("alone", 5).freeze(stream) && object().freeze(stream) && b.freeze(stream));
    EXPECT_TRUE(element().freeze(stream));
    EXPECT_EQ(BytesOf(object::unfreeze(stream)), BytesOf(a));
    EXPECT_EQ(element::unfreeze(stream), element("alone", 5));
    EXPECT_EQ(BytesOf(object::unfreeze(stream)), BytesOf(object()));
    EXPECT_EQ(BytesOf(object::unfreeze(stream)), BytesOf(b));
    EXPECT_FALSE(stream.eof());
    EXPECT_EQ(element::unfreeze(stream).type(), 255);
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(BytesOf(object::unfreeze(stream)), BytesOf(object()));
    std::ostringstream failed;
    failed.setstate(std::ios::badbit);
    EXPECT_FALSE(a.freeze(failed));
    EXPECT_FALSE(element("a").freeze(failed));
}

TEST(Object, FindsChildrenAndPaths)
{
    const object deep(element("y", "right"));
    const object document((element("x", object((element("y", deep), element("y", 2)))), element("x", 3)));
    const element root("root", document);
    EXPECT_EQ(document.child("x").type(), element::Object);
    EXPECT_EQ(document.child(std::regex("x")).type(), element::Object);
    EXPECT_EQ(document.child(std::regex("")).type(), element::Empty); // a name matches as a whole
    EXPECT_EQ(root.child("x"), document.child("x"));
    EXPECT_EQ(root.child(std::regex("[a-z]")), document.child("x"));
    EXPECT_EQ(document.child("x").child("y").child("y").as_string(), "right");
    EXPECT_EQ(root.child("x").child("z").type(), element::Empty);
    EXPECT_EQ(element("n", 1).child("a").type(), element::Empty);
    for (const char* path : {"x/y/y", "/x/y/y", "//x///y/y/"}) {
        EXPECT_EQ(document.query(path).as_string(), "right");
        EXPECT_EQ(root.query(std::string(path)).as_string(), "right");
    }
    EXPECT_EQ(document.query({"x", "y", "y"}).as_string(), "right");
    EXPECT_EQ(root.query({"x", "y"}), element("y", deep));
    for (const char* path : {"y", "x/z", "x/y/y/y", "X"}) EXPECT_EQ(document.query(path).type(), 255) << path;
    EXPECT_EQ(document.query("").type(), 255);
    EXPECT_EQ(root.query("/"), root);
    EXPECT_EQ(object().query("x/y").type(), 255);
}

} // namespace
