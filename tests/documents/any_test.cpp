#include "VoAlgorithms/runtime/any.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using VoAlgo::Any;
using VoAlgo::bson::element;

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr auto LargestSigned = std::numeric_limits<std::int64_t>::max();
constexpr auto LargestUnsigned = std::numeric_limits<std::uint64_t>::max();

std::vector<Any> Samples()
{
    Any::Matrix wide(2, 3);
    wide(0, 1) = 0.1;
    wide(1, 2) = -0.0;
    return {Any(),
            true,
            -7,
            LargestUnsigned,
            0.1,
            -Infinity,
            "a \"b\" \xC3\xA9",
            Any::Vector{1.5, -2},
            Any::Vector(),
            wide,
            Any::Matrix(3, 0),
            Any::Map(),
            Any::Map{{"m", Any::Map{{"v", Any::Vector{1}}}}, {"n", Any()}}};
}

TEST(Any, ElementsReadBackToEqualValues)
{
    for (const Any& value : Samples()) {
        const element written = value.ToElement("name");
        EXPECT_STREQ(written.name(), "name");
        EXPECT_EQ(Any::FromElement(written), value) << value;
        EXPECT_EQ(Any::FromElement(written).ToElement("name"), written) << value;
    }
}

// What has no type of its own, and objects that only look like vectors and matrices, survive as they are.
TEST(Any, ForeignElementsAreKept)
{
    const unsigned char bytes[9] = {};
    element::object twins(element("a", 1));
    twins.append(element("a", 2));
    const element foreign[] = {element("x", bytes, 3), element::make_regex("x", "a.*", "i"),
                               element::make_object("x", twins),
                               element::make_object("x", element::object(element("$vector", bytes, 9)))};
    for (const element& e : foreign) EXPECT_EQ(Any::FromElement(e).ToElement("x"), e) << e.to_json();
    EXPECT_TRUE(Any::FromElement(foreign[2]).Is<element>());
    element::object shape(element::make_uint32("rows", 2));
    shape.append(element::make_uint32("cols", 3));
    shape.append(element("columnwise", bytes, 8)); // one number of six
    EXPECT_TRUE(Any::FromElement(element::make_object("x", element::object(element::make_object("$matrix", shape))))
                    .Is<Any::Map>());
}

TEST(Any, NumbersConvertWithoutLossOrNotAtAll)
{
    EXPECT_EQ(Any(255).To<unsigned char>(), 255);
    EXPECT_EQ(Any(3.0).To<int>(), 3);
    EXPECT_EQ(Any(LargestUnsigned).To<std::uint64_t>(), LargestUnsigned);
    EXPECT_EQ(Any(std::ldexp(1.0, 63)).To<std::uint64_t>(), std::uint64_t{1} << 63U);
    EXPECT_EQ(Any(std::int64_t{1} << 53U).To<double>(), std::ldexp(1.0, 53));
    EXPECT_EQ(Any(Infinity).To<float>(), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(Any(std::nan("")).To<float>()));

    EXPECT_THROW((void)Any(256).To<unsigned char>(), std::bad_cast);
    EXPECT_THROW((void)Any(-1).To<unsigned>(), std::bad_cast);
    EXPECT_THROW((void)Any(3.5).To<int>(), std::bad_cast);
    EXPECT_THROW((void)Any(std::ldexp(1.0, 63)).To<std::int64_t>(), std::bad_cast);
    EXPECT_THROW((void)Any(std::nan("")).To<int>(), std::bad_cast);
    EXPECT_THROW((void)Any(LargestSigned).To<double>(), std::bad_cast);
    EXPECT_THROW((void)Any(0.1).To<float>(), std::bad_cast);
    EXPECT_THROW((void)Any(true).To<int>(), std::bad_cast);
    EXPECT_THROW((void)Any("3").To<int>(), std::bad_cast);
    EXPECT_THROW((void)Any(3).Get<double>(), std::bad_cast);
}

TEST(Any, ComparesNumbersByTheirExactValues)
{
    const double above = std::ldexp(1.0, 63);
    const std::vector<Any> ascending = {-Infinity, -above,          -1,        -0.5,    0, 0.5, 1, LargestSigned,
                                        above,     LargestUnsigned, 2 * above, Infinity};
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t k = 0; k < ascending.size(); ++k)
            EXPECT_TRUE((ascending[i] <=> ascending[k]) == (i <=> k)) << ascending[i] << ' ' << ascending[k];
    EXPECT_EQ(Any(1), Any(1.0));
    EXPECT_NE(Any(std::nan("")), Any(std::nan("")));
    EXPECT_NE(Any(true), Any(1));
    EXPECT_FALSE(Any("1") < Any(2) || Any("1") > Any(2));
    EXPECT_LT(Any("a"), Any("b"));
}

TEST(Any, PrintsAsJson)
{
    std::ostringstream printed;
    for (const Any& value : Samples()) printed << value << '\n';
    EXPECT_EQ(printed.str(),
              "null\ntrue\n-7\n18446744073709551615\n0.1\n\"-Infinity\"\n\"a \\\"b\\\" \xC3\xA9\"\n[1.5,-2]\n[]\n"
              "[[0,0.1,0],[0,0,-0]]\n[[],[],[]]\n{}\n{\"m\":{\"v\":[1]},\"n\":null}\n");
}

} // namespace
