#include "VoAlgorithms/bson/element.h"
#include "bson/bson_invariants.h"
#include "fuzz/keep_seed.h"

#include <gtest/gtest.h>

namespace {

using namespace bson_test;
using VoAlgo::bson::element;
using object = element::object;
using namespace std::chrono_literals;
using namespace std::string_literals;

// One row per type, worked out by hand from the layout: type, name, NUL, value, all little-endian.
TEST(Element, EveryTypeHasItsBytesAndItsReader)
{
    const unsigned char raw[] = {0xDE, 0xAD, 0xBE};
    const std::pair<element, Bytes> rows[] = {
        {element::make_double("a", -2.0), {1, 'a', 0, 0, 0, 0, 0, 0, 0, 0, 0xC0}},
        {element::make_string("a", "x\0y"s), {2, 'a', 0, 4, 0, 0, 0, 'x', 0, 'y', 0}},
        {element::make_string("ab", L"ä€\U0001F600"),
         {2, 'a', 'b', 0, 10, 0, 0, 0, 0xC3, 0xA4, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80, 0}},
        {element::make_object("a", object({"b", true})), {4, 'a', 0, 4, 0, 0, 0, 8, 'b', 0, 1, 0}},
        {element::make_binary("a", raw, 3), {5, 'a', 0, 3, 0, 0, 0, 0, 0xDE, 0xAD, 0xBE}},
        {element::make_binary("ab", nullptr, 0, element::BinaryType::UserDefined), {5, 'a', 'b', 0, 0, 0, 0, 0, 128}},
        {element::make_boolean("a", false), {8, 'a', 0, 0}},
        {element::make_datetime("a", -2ms), {9, 'a', 0, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {element::make_null("abc"), {10, 'a', 'b', 'c', 0}},
        {element::make_regex("", "^a", "i"), {11, 0, '^', 'a', 0, 'i', 0}},
        {element::make_int32("a", -2), {16, 'a', 0, 0xFE, 0xFF, 0xFF, 0xFF}},
        {element::make_uint64("a", 0x8000000000000001U), {17, 'a', 0, 1, 0, 0, 0, 0, 0, 0, 0x80}},
        {element::make_int64("a", 258), {18, 'a', 0, 2, 1, 0, 0, 0, 0, 0, 0}},
        {element::make_float("a", 1.5F), {128, 'a', 0, 0, 0, 0xC0, 0x3F}},
        {element::make_uint32("a", 0xFFFFFFFEU), {129, 'a', 0, 0xFE, 0xFF, 0xFF, 0xFF}},
        {element::make_int16("a", -2), {130, 'a', 0, 0xFE, 0xFF}},
        {element::make_uint16("a", 258), {131, 'a', 0, 2, 1}},
        {element::make_uint8("a", 200), {132, 'a', 0, 200}},
        {element::make_int8("a", -1), {133, 'a', 0, 0xFF}},
    };
    for (const auto& [made, golden] : rows) {
        const Bytes& bytes = golden; // captured below
        const int type = bytes[0];
        SCOPED_TRACE(type);
        EXPECT_EQ(BytesOf(made), bytes);
        EXPECT_EQ(made.type(), type);
        EXPECT_EQ(element::unfreeze(bytes.data(), bytes.size()), made);
        EXPECT_TRUE(HoldsAsElement(bytes));
        KeepSeed("element", std::to_string(type) + made.name(), bytes);
        const std::size_t head = std::string(made.name()).size() + 2;
        EXPECT_EQ(made.size_of_value(), bytes.size() - head);
        EXPECT_EQ(made.raw_value(), made.raw() + head);
        // Truncation anywhere is an error, except before the type byte and inside the count of an object.
        for (std::size_t n = 1; n < bytes.size(); ++n) {
            const auto cut = [&] { return element::unfreeze(Bytes(bytes.begin(), At(bytes, n)).data(), n); };
            if (type == element::Object && n >= 3 && n < 7)
                EXPECT_EQ(cut(), element("a", object()));
            else
                EXPECT_TRUE(IsParseError(cut)) << n;
        }
    }
    EXPECT_EQ(element::make_string("ab", rows[2].first.as_string_utf16()), rows[2].first);
    EXPECT_THROW((void)rows[0].first.as_string_utf16(), std::bad_cast);
    EXPECT_TRUE(HoldsAsElement({}));
    EXPECT_EQ(element::unfreeze(nullptr, 0), element());
    EXPECT_TRUE(OnlyItsReaderAccepts(element()));
    EXPECT_EQ(element("a"), element::make_null("a"));
    EXPECT_EQ(element("a", raw, 3), element::make_binary("a", raw, 3));
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
    const auto namesOf = [](const object& o) {
        std::string names;
        for (const element& e : o) names += e.name();
        return names;
    };
    object ab = (element("a", 1), element("b", 2));
    EXPECT_EQ(namesOf(ab), "ab");
    const object abc = (object(ab), element("c", 3)), copy = (abc, element("d", 4));
    EXPECT_EQ(namesOf(abc) + namesOf(copy) + namesOf((abc, ab)), "abcabcdabcab");
    ab, element("e"), (element("f"), element("g"));
    EXPECT_EQ(namesOf(ab), "abefg");
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
    EXPECT_EQ(root.child(std::regex("[a-z]")), document.child("x"));
    EXPECT_EQ(element("n", 1).child("a").type(), element::Empty);
    for (const char* path : {"x/y/y", "/x/y/y", "//x///y/y/"})
        EXPECT_EQ(document.query(path).as_string() + root.query(std::string(path)).as_string(), "rightright");
    EXPECT_EQ(root.query({"x", "y"}), element("y", deep));
    for (const char* path : {"y", "x/z", "x/y/y/y", "X"}) EXPECT_EQ(document.query(path).type(), 255) << path;
    EXPECT_EQ(document.query("").type(), 255);
    EXPECT_EQ(root.query("/"), root);
    EXPECT_EQ(object().query("x/y").type(), 255);
}

} // namespace
