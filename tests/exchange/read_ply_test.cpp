#include "exchange/files/read_ply.h"

#include "exchange/files/input_error.h"
#include "fuzz/keep_seed.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace voalgo {
namespace {

const std::vector<std::string> Forms = {"ascii", "binary_little_endian", "binary_big_endian"};

/// The rows of a PLY file of some form.
class Rows {
public:
    explicit Rows(std::string form) : form_(std::move(form)) {}

    Rows& Add(const std::string& type, double value)
    {
        if (form_ == "ascii") {
            std::ostringstream word;
            word.precision(17);
            word << value << ' ';
            text_ += word.str();
        } else if (type == "char" || type == "int8")
            append(static_cast<std::int8_t>(value));
        else if (type == "uchar" || type == "uint8")
            append(static_cast<std::uint8_t>(value));
        else if (type == "short" || type == "int16")
            append(static_cast<std::int16_t>(value));
        else if (type == "ushort" || type == "uint16")
            append(static_cast<std::uint16_t>(value));
        else if (type == "int" || type == "int32")
            append(static_cast<std::int32_t>(value));
        else if (type == "uint" || type == "uint32")
            append(static_cast<std::uint32_t>(value));
        else if (type == "float" || type == "float32")
            append(static_cast<float>(value));
        else
            append(value);
        return *this;
    }
    Rows& List(const std::string& countType, const std::string& type, const std::vector<double>& values)
    {
        Add(countType, static_cast<double>(values.size()));
        for (const double v : values) Add(type, v);
        return *this;
    }
    Rows& End()
    {
        if (form_ == "ascii") text_ += '\n';
        return *this;
    }
    [[nodiscard]] const std::string& Text() const { return text_; }

private:
    template <class T>
    void append(T value)
    {
        std::string bytes(reinterpret_cast<const char*>(&value), sizeof value);
        if (form_ == "binary_big_endian") std::reverse(bytes.begin(), bytes.end());
        text_ += bytes;
    }

    std::string form_;
    std::string text_;
};

std::string Header(const std::string& form, const std::string& elements)
{
    return "ply\nformat " + form + " 1.0\ncomment c\n" + elements + "end_header\n";
}

prereg::Scan Points(const std::string& bytes, double mmPerUnit = 1.0)
{
    std::istringstream stream(bytes);
    return PlyReader(stream, "f.ply").Points(mmPerUnit);
}

Model Surface(const std::string& bytes)
{
    if (bytes.size() < 2000)
        KeepSeed("ply", std::to_string(std::hash<std::string>()(bytes)), {bytes.begin(), bytes.end()});
    std::istringstream stream(bytes);
    return PlyReader(stream, "f.ply").Surface();
}

// Every type in every form, between lists and other elements; 10 and 13 are the bytes of line ends.
TEST(ReadPly, EveryTypeOfCoordinateIsReadExactly)
{
    for (const char* type : {"char", "int8", "uchar", "uint8", "short", "int16", "ushort", "uint16", "int", "int32",
                             "uint", "uint32", "float", "float32", "double", "float64"})
        for (const std::string& form : Forms)
            for (const bool withLists : {false, true}) {
                SCOPED_TRACE(std::string(type) + ' ' + form);
                const std::string t = type;
                const bool isWide = t.find("32") != std::string::npos || t == "int" || t == "uint";
                std::vector<std::array<double, 3>> wanted = {{10, 13, 0}, {13, 10, 10}, {0, 127, 1}};
                if (isWide) wanted.push_back({0x0A0D0A00, 0x0D0A0D00, 0x0A0A0A00});
                if (t == "float" || t == "double") wanted.push_back({-0.1F, 1e-30F, 1e30F});
                if (t == "double" || t == "float64") wanted.push_back({0.1, -1e30, 123456789.123456789});
                const std::string list = withLists ? "property list uchar short l\n" : "";
                const std::string header =
                    "element camera 2\nproperty ushort a\n" + list + "element vertex " + std::to_string(wanted.size()) +
                    "\nproperty " + t + " y\n" + list + "property " + t + " x\nproperty float w\nproperty " + t +
                    " z\nproperty float nz\nproperty double nx\nproperty float ny\nelement more 0\n";
                Rows rows(form);
                const auto addList = [&](double n) {
                    if (withLists) rows.List("uchar", "short", std::vector<double>(static_cast<std::size_t>(n), 2573));
                };
                for (const double n : {0, 3}) {
                    rows.Add("ushort", 2573);
                    addList(n);
                    rows.End();
                }
                for (const auto& [x, y, z] : wanted) {
                    rows.Add(t, y);
                    addList(2);
                    rows.Add(t, x)
                        .Add("float", 13)
                        .Add(t, z)
                        .Add("float", 0.5)
                        .Add("double", 0.25)
                        .Add("float", -1)
                        .End();
                }
                const std::string bytes = Header(form, header) + rows.Text();
                const prereg::Scan scan = Points(bytes);
                const Model model = Surface(bytes);
                ASSERT_EQ(scan.points.size(), wanted.size());
                EXPECT_EQ(model.mesh.vertices, wanted);
                for (std::size_t i = 0; i < wanted.size(); ++i) {
                    EXPECT_EQ(scan.normals[i], kdtree::Vector<3>(0.25F, -1.0F, 0.5F));
                    const double extent = t == "double" || t == "float64" ? 1e30 : 218762496.0;
                    for (unsigned k = 0; k < 3; ++k)
                        EXPECT_NEAR(scan.At(i)[k], wanted[i][k], t[0] == 'f' && t != "float64" ? 0.0 : 1e-7 * extent);
                }
            }
}

TEST(ReadPly, FloatsAreKeptAndOtherUnitsAreScaledInDouble)
{
    const std::string header =
        Header("ascii", "element vertex 2\nproperty float x\nproperty float y\nproperty float z\n");
    const prereg::Scan scan = Points(header + "0.1 -2 3e-40\n\n  4 5\t6\r\n");
    EXPECT_EQ(scan.points[0], kdtree::Vector<3>(0.1F, -2.0F, 3e-40F));
    EXPECT_EQ(scan.origin, (std::array<double, 3>{}));
    EXPECT_NEAR(Points(header + "500000.001 0 0\n500000.002 0 0\n", 1000.0).At(0)[0], 500000001.0, 0.01);
    std::string returns = header + "0.1 -2 3\n4 5 6\n";
    std::replace(returns.begin(), returns.end(), '\n', '\r');
    EXPECT_EQ(Points(returns).points[1], kdtree::Vector<3>(4, 5, 6));
    // After a lone carriage return, a line feed is data.
    returns =
        Header("binary_little_endian", "element vertex 1\nproperty uchar x\nproperty uchar y\nproperty uchar z\n");
    std::replace(returns.begin(), returns.end(), '\n', '\r');
    EXPECT_EQ(Points(returns + "\n\r\n").At(0), (std::array<double, 3>{10, 13, 10}));
}

using Triangles = std::vector<std::array<std::uint32_t, 3>>;

TEST(ReadPly, PolygonsAndStripsBecomeTriangles)
{
    for (const std::string& form : Forms)
        for (const std::string count : {"uchar", "int", "uint"})
            for (const std::string index : {"uchar", "ushort", "int", "uint"}) {
                SCOPED_TRACE(form + ' ' + count + ' ' + index);
                // Faces may come before the vertices that they refer to.
                const std::string header = "element face 3\nproperty uchar flags\nproperty list " + count + ' ' +
                                           index +
                                           " vertex_indices\nproperty list uchar float texcoord\nelement vertex "
                                           "11\nproperty char x\nproperty char y\nproperty char z\n";
                Rows rows(form);
                const std::vector<std::vector<double>> faces = {{0, 1, 2}, {10, 9, 8, 7}, {3, 4}};
                for (const auto& face : faces)
                    rows.Add("uchar", 10).List(count, index, face).List("uchar", "float", {1, 2}).End();
                for (int i = 0; i < 11; ++i) rows.Add("char", i).Add("char", -i).Add("char", 13).End();
                const Model model = Surface(Header(form, header) + rows.Text());
                EXPECT_EQ(model.mesh.triangles, (Triangles{{0, 1, 2}, {10, 9, 8}, {10, 8, 7}}));
                EXPECT_EQ(model.mesh.vertices[7], (std::array<double, 3>{7, -7, 13}));
                EXPECT_TRUE(model.normals.empty());
            }
    const std::string strip = Header("ascii", "element vertex 5\nproperty float x\nproperty float y\nproperty float z\n"
                                              "element tristrips 1\nproperty list int int vertex_indices\n");
    EXPECT_EQ(Surface(strip + "0 0 0\n1 0 0\n0 1 0\n1 1 0\n2 1 0\n8 0 1 2 3 -1 2 3 4\n").mesh.triangles,
              (Triangles{{0, 1, 2}, {2, 1, 3}, {2, 3, 4}}));
}

// Counts cost nothing that the file does not hold.
TEST(ReadPly, HugeHeadersOfSmallFilesAreRead)
{
    const std::string vertex = "element vertex 1\nproperty float x\nproperty float y\nproperty float z\n";
    std::string many;
    for (int i = 0; i < 100000; ++i)
        many += "element e" + std::to_string(i) + (i % 2 ? " 0\n" : " 0\nproperty list int int l\n");
    for (const std::string& form : Forms) {
        const std::string row = Rows(form).Add("float", 1).Add("float", 2).Add("float", 3).End().Text();
        EXPECT_EQ(Points(Header(form, many + vertex + many) + row).points[0], kdtree::Vector<3>(1, 2, 3));
        const std::string nothing = "element nothing 18446744073709551615\n";
        EXPECT_EQ(Surface(Header(form, nothing + vertex + nothing) + row).mesh.vertices.size(), 1U);
    }
    // What lies before the vertices is passed over, whether it is buffered or not.
    for (const std::size_t n : {4U, 100000U})
        EXPECT_EQ(Points(Header("binary_little_endian",
                                "element block " + std::to_string(n) + "\nproperty double a\n" + vertex) +
                         std::string(8 * n, 'x') + Rows("").Add("float", 1).Add("float", 2).Add("float", 3).Text())
                      .points[0],
                  kdtree::Vector<3>(1, 2, 3));
}

TEST(ReadPly, WhatIsWrongIsSaid)
{
    const std::string xyz = "property float x\nproperty float y\nproperty float z\n";
    const std::string faces = "element face 1\nproperty list int int vertex_indices\n";
    const std::string ascii = Header("ascii", "element vertex 1\n" + xyz);
    const std::string ints = Header("binary_little_endian", "element vertex 1\n" + xyz + faces) + std::string(12, '\0');
    const std::string longLists =
        Header("binary_little_endian", "element l 1\nproperty list uint double v\nelement vertex 1\n" + xyz);
    const struct {
        std::string bytes;
        const char* message;
    } table[] = {
        {Header("binary_little_endian", "element vertex 4000000000\n"), "the vertices have no property \"x\""},
        {Header("ascii", "element vertex 1\nproperty float y\nproperty float z\n") + "1 2\n",
         "the vertices have no property \"x\""},
        {Header("ascii", "element vertex 1\nproperty list int float x\n") + "1 2\n", "property \"x\" is a list"},
        {Header("ascii", "element vertex 1\nproperty float x\nproperty float x\n") + "1 2\n",
         "property \"x\" is there twice"},
        {Header("ascii", "element face 1\nproperty list int int vertex_indices\n") + "0\n", "no element vertex"},
        {Header("ascii", "element vertex 1\n" + xyz + "element vertex 1\n" + xyz) + "1 2 3\n1 2 3\n",
         "two elements vertex"},
        {Header("ascii", "element vertex 1\n" + xyz + "element face 1\nproperty uchar v\n") + "1 2 3\n1\n",
         "the element face has no list"},
        {Header("binary_little_endian", "element vertex 18446744073709551616\n" + xyz), "truncated: 0 bytes"},
        {Header("binary_little_endian", "element vertex 1537228672809129302\n" + xyz) + "12345678",
         "truncated: 8 bytes"},
        {Header("ascii", "element vertex 2\n" + xyz) + "1.25 2.25 3.25\n", "truncated: the file ends before"},
        {ascii + "1 2 x\x01\n", "f.ply:9: not a number: \"x?\""},
        {ascii + "1 2\n3\n", "f.ply:9: fewer values"},
        {ascii + "1 2 3 4\n", "f.ply:9: more values"},
        {ints + "\xff\xff\xff\xff", "a list has -1 values"},
        {ints + std::string("\xff\xff\xff\x7f", 4), "truncated: a list exceeds the file"},
        {ints + std::string("\3\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0", 16), "row 0 of the element face has vertex 1 of 1"},
        {ints + std::string("\1\0\0\0\xff\xff\xff\xff", 8), "row 0 of the element face has vertex -1 of 1"},
        {longLists + std::string(12, '\xff'), "truncated: 12 bytes"},
        {longLists + std::string(4, '\xff') + std::string(12, 'x'), "truncated: a list exceeds the file"},
        {Header("ascii", "element l 1\nproperty list float int v\n"),
         "invalid line in the PLY header: \"property list float int v\""},
        {Header("ascii", "element vertex -1\n" + xyz), "invalid line in the PLY header: \"element vertex -1\""},
        {Header("ascii", "element vertex 1,000\n" + xyz), "invalid line in the PLY header"},
        {Header("ascii", "element vertex 1\nproperty real x\n"), "invalid line in the PLY header"},
        {"ply\nelement vertex 1\n", "invalid line in the PLY header"},
        {"ply\nformat ascii 1.0\nformat ascii 1.0\n", "invalid line in the PLY header"},
        {"ply\nformat ascii 1.0\n", "the PLY header has no end_header line"},
        {"", "not a PLY file"},
        {"plyx\n", "not a PLY file"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.message);
        EXPECT_THAT([&] { Surface(row.bytes); }, testing::ThrowsMessage<InputError>(testing::HasSubstr(row.message)));
        EXPECT_THAT([&] { Surface(row.bytes); }, testing::ThrowsMessage<InputError>(testing::StartsWith("f.ply:")));
    }
}

} // namespace
} // namespace voalgo
