#include "exchange/files/read_xyz.h"

#include "exchange/files/input_error.h"
#include "fuzz/keep_seed.h"

#include <gmock/gmock.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace voalgo {
namespace {

prereg::Scan Read(const std::string& text)
{
    if (text.size() < 2000) KeepSeed("xyz", std::to_string(std::hash<std::string>()(text)), {text.begin(), text.end()});
    std::istringstream stream(text);
    return ReadXyz(stream, "f.xyz", 1.0);
}

/// Points and normals as the text says them.
std::string Told(const prereg::Scan& scan)
{
    std::ostringstream text;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        for (const double v : scan.At(i)) text << v << ' ';
        if (!scan.normals.empty())
            text << '|' << scan.normals[i].x << ' ' << scan.normals[i].y << ' ' << scan.normals[i].z;
        text << '/';
    }
    return text.str();
}

constexpr const char* Two = "1 2.5 3 /4 5 -6 /";
constexpr const char* Directed = "1 2.5 3 |0 0.6 0.8/4 5 -6 |1 0 0/";

// Text as people have it: read right.
TEST(ReadXyz, EveryFormGivesThePointsThatItSays)
{
    const struct {
        const char *text, *points;
    } table[] = {
        {"1 2.5 3\n4 5 -6\n", Two},
        {"\xEF\xBB\xBF"
         "1 2.5 3\r\n\r\n  +4\t5e0 -6 ",
         Two},
        {"1 2.5 3\r4 5 -6\r", Two},
        {"\r\r1 2.5 3\r\r4 5 -6", Two},
        {"1 2.5 3\r\r\n4 5 -6\r\r\n", Two},
        {"# made by hand # x y\n1 2.5 3 # first\n// second\n4 5 -6 // x y z\n", Two},
        {"1,2.5,3\n4,5,-6\n", Two},
        {"1, 2.5 ,3,\n4, 5 ,-6,\n", Two},
        {"1, 25, 3\n4, 5, -6\n", "1 25 3 /4 5 -6 /"},
        {"1,25,3\n4,5,-6\n", "1 25 3 /4 5 -6 /"},
        {"1;2.5;3\n4; 5 ;-6\n", Two},
        {"1;2,5;3\n4;5;-6\n", Two},
        {"1 2,5 3\n4 5 -6\n", Two},
        {"1,0\t2,5\t3,0\n4,0\t5,0e0\t-6,0\n", Two},
        {"1,000 2,500 3,000\n4,000 5,000 -6,0\n", Two},
        {"1,000 2,500 3,000\n4,000 5,000 0,125\n", "1 2.5 3 /4 5 0.125 /"},
        // named columns
        {"x y z\n1 2.5 3\n4 5 -6\n", Two},
        {"//X Y Z\n1 2.5 3\n4 5 -6\n", Two},
        {"# z y x\n3 2.5 1\n-6 5 4\n", Two},
        {"id;\"X\";\"Y\";Z;label\n7;\"1\";2.5;3;a,b\n8;4;5;-6;\n", Two},
        {"n,z,x,y,t\n0,3,1,2.5,noon\n0,-6,4,5,\n", Two},
        {"x,y,z,i\n1,25,3,7\n4,5,-6,7\n", "1 25 3 /4 5 -6 /"},
        {"NX NY NZ X Y Z\n0 0.6 0.8 1 2.5 3\n1 0 0 4 5 -6\n", Directed},
        {"x y z normal_x normal_y normal_z\n1 2.5 3 0 0.6 0.8\n4 5 -6 1 0 0\n", Directed},
        {"x y z r g b\n1 2.5 3 0 0 1\n4 5 -6 1 0 0\n", Two},
        {"// x y z coordinates in mm\n1 2.5 3 0 0.6 0.8\n4 5 -6 1 0 0\n", Directed},
        // columns guessed by what they hold
        {"1 2.5 3 9\n4 5 -6 9\n", Two},
        {"1 2.5 3 9 8\n4 5 -6 9 8\n", Two},
        {"1 2.5 3 0 0.6 0.8\n4 5 -6 1 0 0\n", Directed},
        {"1 2.5 3 0 1.2 1.6\n4 5 -6 -2 0 0\n", "1 2.5 3 |0 1.2 1.6/4 5 -6 |-2 0 0/"},
        {"1 2.5 3 128 128 128\n4 5 -6 128 128 128\n", Two},
        {"1 2.5 3 77 0 0.6 0.8\n4 5 -6 80 1 0 0\n", Directed},
        {"1 2.5 3 0 0.6 0.8 77\n4 5 -6 1 0 0 80\n", Directed},
        {"1 2.5 3 255 0 10 0 0.6 0.8\n4 5 -6 255 0 10 1 0 0\n", Directed},
        {"1 2.5 3 0 0.6 0.8 255 0 10\n4 5 -6 1 0 0 255 0 10\n", Directed},
        {"1;2,5;3;0;0,6;0,8\n4;5;-6;1;0;0\n", Directed},
        {"# nothing\n\n", ""},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(Told(Read(row.text)), row.points);
    }
}

// What two ways of reading would explain, or none, is refused with its line.
TEST(ReadXyz, WhatIsNotCertainIsRefused)
{
    const struct {
        std::string text;
        const char* message;
    } table[] = {
        {"1 2 3\n4 5 six\n", "f.xyz:2: not a number: \"six\""},
        {"1 2 3\n\n4 5\n", "f.xyz:3: 2 columns, but line 1 has 3"},
        {"1 2\n", "f.xyz:1: fewer than three columns"},
        {"1000\n1 2 3\n", "f.xyz:1: fewer than three columns"},
        {"# a\n1 2 3\n4 5 6 0 0 1\n", "f.xyz:3: 6 columns, but line 2 has 3"},
        {"East North Up\n1 2 3\n", "f.xyz:1: not a number: \"East\"; a row of column names would contain x, y and z"},
        {"x y z\nx y z\n1 2 nil\n", "f.xyz:3: not a number: \"nil\""},
        {"x y z i\n1 2 3\n", "f.xyz:2: 3 columns, but the header names 4"},
        {"//X Y Z\n1 2 3 4 5 6\n", "f.xyz:2: 6 columns, but the header names 3"},
        {"1;;3\n", "f.xyz:1: a column is empty"},
        {"1 2 1.#IND\n", "f.xyz:1: not a number: \"1.#IND\""},
        {"1 2 3\n4;5;6\n", "f.xyz:2: 1 columns, but line 1 has 3"},
        {"1.5 2 3\n1,5 2 3\n", "f.xyz:2: decimal points and decimal commas in one file"},
        {"1,5 2 3\n1.5 2 3\n", "f.xyz:2: decimal points and decimal commas in one file"},
        {"1,234.5 2 3 4,5\n", "f.xyz:1: not a number: \"234.5 2 3 4\""},
        {"1,234,567 2 3\n", "f.xyz:1: not a number: "},
        {"1 2,5 3\n4, 5, 6\n", "f.xyz:2: not a number: \"4,\""},
        {"1,234 2,345 3,456\n4,567 5,678 6,789\n", "f.xyz:1: the commas may mark decimals or thousands"},
        {"1,2,3,4,5,6\n1,2,3,4,5,6\n", "f.xyz:1: the commas may separate columns or mark decimals"},
        {"0 0 0 1 0 0 1\n", "f.xyz:1: columns 4 to 6 and 5 to 7 may both be normals"},
        {std::string("\xFF\xFE"
                     "1\0 \0",
                     6),
         "f.xyz:1: the text is UTF-16"},
        {std::string("1 2 3\0 4\n", 9), "f.xyz:1: not a number: \"3?\""},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.text);
        EXPECT_THAT([&] { Read(row.text); }, testing::ThrowsMessage<InputError>(testing::StartsWith(row.message)));
    }
}

// Lines and columns are found in any block of the file, and a sample of its rows tells what the others hold.
TEST(ReadXyz, LongFilesAreReadAsShortOnes)
{
    for (const char* end : {"\n", "\r\n", "\r"}) {
        std::string text;
        for (unsigned i = 0; i < 60000; ++i)
            text += std::to_string(i) + " 0.25 " + std::string(i % 7, ' ') + "-1 200 0 0.6 -0.8" + end;
        const prereg::Scan scan = Read(text);
        ASSERT_EQ(scan.points.size(), 60000U);
        ASSERT_EQ(scan.normals.size(), 60000U);
        for (unsigned i = 0; i < 60000; ++i) {
            EXPECT_EQ(scan.At(i), (std::array<double, 3>{i * 1.0, 0.25, -1.0}));
            EXPECT_EQ(scan.normals[i], kdtree::Vector<3>(0.0F, 0.6F, -0.8F));
        }
    }
}

} // namespace
} // namespace voalgo
