#include "exchange/files/input_error.h"
#include "exchange/files/parse_number.h"
#include "exchange/files/ply_header.h"
#include "exchange/files/read_points.h"
#include "exchange/files/scan_builder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <fstream>
#include <utility>
#include <vector>

namespace voalgo {

namespace {

/// Where a coordinate is in a row.
struct Column {
    const PlyProperty* property = nullptr;
    std::size_t index = 0;  // among the properties
    std::size_t offset = 0; // bytes
};

/// The columns x y z, then nx ny nz; a property is null where the vertices have none of that name.
std::array<Column, 6> ColumnsOf(const PlyElement& vertex)
{
    constexpr std::array<const char*, 6> Names = {"x", "y", "z", "nx", "ny", "nz"};
    std::array<Column, 6> columns{};
    std::size_t offset = 0;
    for (std::size_t i = 0; i < vertex.properties.size(); ++i) {
        const PlyProperty& property = vertex.properties[i];
        const auto name = std::find(Names.begin(), Names.end(), property.name);
        if (name != Names.end()) columns[static_cast<std::size_t>(name - Names.begin())] = {&property, i, offset};
        offset += property.size;
    }
    return columns;
}

template <class T>
double As(std::uint64_t bits)
{
    if constexpr (std::is_same_v<T, float>)
        return double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))};
    else if constexpr (std::is_same_v<T, double>)
        return std::bit_cast<double>(bits);
    else
        return static_cast<double>(static_cast<T>(bits));
}

double Decode(const char* bytes, const PlyProperty& property, bool isLittleEndian)
{
    std::uint64_t bits = 0;
    for (std::uint64_t i = 0; i < property.size; ++i) {
        const std::uint64_t at = isLittleEndian ? property.size - 1 - i : i;
        bits = bits << 8U | static_cast<unsigned char>(bytes[at]);
    }
    if (property.kind == 'f') return property.size == 4 ? As<float>(bits) : As<double>(bits);
    if (property.kind == 'u') return As<std::uint32_t>(bits);
    if (property.size == 1) return As<std::int8_t>(bits);
    return property.size == 2 ? As<std::int16_t>(bits) : As<std::int32_t>(bits);
}

/// Takes the rows of the vertices.
class VertexSink {
public:
    VertexSink(const PlyElement& vertex, double mmPerUnit)
        : columns_(ColumnsOf(vertex)), builder_(mmPerUnit),
          withNormals_(std::all_of(columns_.begin() + 3, columns_.end(), hasProperty)),
          isSingle_(mmPerUnit == 1.0 && std::all_of(columns_.begin(), columns_.begin() + 3, isFloat))
    {
        const auto rows = static_cast<std::size_t>(vertex.rows);
        if (isSingle_)
            single_.points.reserve(rows);
        else
            builder_.Reserve(rows);
        if (withNormals_) single_.normals.reserve(rows);
    }

    static bool CanTake(const PlyElement& vertex)
    {
        const auto columns = ColumnsOf(vertex);
        return std::all_of(columns.begin(), columns.begin() + 3, hasProperty) &&
               std::none_of(vertex.properties.begin(), vertex.properties.end(), [](const auto& p) { return p.isList; });
    }

    /// valueOf(column) is the row's value in a column.
    void Take(auto&& valueOf)
    {
        const std::array<double, 3> p = {valueOf(columns_[0]), valueOf(columns_[1]), valueOf(columns_[2])};
        if (isSingle_)
            single_.points.push_back(single(p));
        else
            builder_.AddPoint(p);
        if (withNormals_)
            single_.normals.push_back(single({valueOf(columns_[3]), valueOf(columns_[4]), valueOf(columns_[5])}));
    }

    prereg::Scan Result() &&
    {
        if (isSingle_) return std::move(single_);
        prereg::Scan scan = std::move(builder_).Take();
        scan.normals = std::move(single_.normals);
        return scan;
    }

private:
    static bool hasProperty(const Column& column) { return column.property != nullptr; }
    static bool isFloat(const Column& c) { return c.property->kind == 'f' && c.property->size == 4; }
    static kdtree::Vector<3> single(const std::array<double, 3>& v)
    {
        return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
    }

    std::array<Column, 6> columns_;
    ScanBuilder builder_;
    prereg::Scan single_; // the points when floats hold them, and the normals
    bool withNormals_;
    bool isSingle_;
};

std::uint64_t RowSize(const PlyElement& element)
{
    std::uint64_t size = 0;
    for (const PlyProperty& property : element.properties) size += property.size;
    return size;
}

void ReadBinary(std::istream& file, const PlyElement& vertex, bool isLittleEndian, VertexSink& sink)
{
    constexpr std::size_t Block = 16384; // rows
    const auto size = static_cast<std::size_t>(RowSize(vertex));
    std::vector<char> bytes(size * Block);
    for (std::uint64_t done = 0; done < vertex.rows; done += Block) {
        const auto rows = static_cast<std::size_t>(std::min<std::uint64_t>(Block, vertex.rows - done));
        file.read(bytes.data(), static_cast<std::streamsize>(rows * size));
        for (std::size_t i = 0; i < rows; ++i)
            sink.Take([&](const Column& column) {
                return Decode(&bytes[i * size + column.offset], *column.property, isLittleEndian);
            });
    }
}

void ReadText(std::istream& file, const PlyElement& vertex, VertexSink& sink, const std::string& path)
{
    std::vector<double> row(vertex.properties.size());
    std::string word;
    for (std::uint64_t i = 0; i < vertex.rows; ++i) {
        for (double& value : row) {
            const std::optional<double> number = file >> word ? ParseNumber(word) : std::nullopt;
            if (!number) throw InputError(path + ": not a number among the vertices: \"" + word.substr(0, 40) + "\"");
            value = *number;
        }
        sink.Take([&](const Column& column) { return row[column.index]; });
    }
}

/// Skips the rows before the vertices.
void Skip(std::istream& file, const PlyElement& element, bool isBinary)
{
    if (isBinary) {
        file.seekg(static_cast<std::streamoff>(element.rows * RowSize(element)), std::ios::cur);
        return;
    }
    std::string word;
    for (std::uint64_t i = 0; i < element.rows * element.properties.size() && file >> word; ++i) {
    }
}

bool HasList(const PlyElement& element)
{
    return std::any_of(element.properties.begin(), element.properties.end(), [](const auto& p) { return p.isList; });
}

bool IsVertex(const PlyElement& element)
{
    return element.name == "vertex";
}

/// Faces or strips of triangles.
bool HasSurface(const PlyHeader& header)
{
    return std::any_of(header.elements.begin(), header.elements.end(),
                       [](const PlyElement& e) { return e.rows > 0 && (e.name == "face" || e.name == "tristrips"); });
}

} // namespace

std::optional<prereg::Scan> ReadPlyPoints(const std::string& path, double mmPerUnit)
{
    const PlyHeader header = ReadPlyHeader(path);
    const auto vertex = std::find_if(header.elements.begin(), header.elements.end(), IsVertex);
    if (HasSurface(header) || vertex == header.elements.end() || !VertexSink::CanTake(*vertex) ||
        std::any_of(header.elements.begin(), vertex, HasList))
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(header.dataOffset));
    for (auto element = header.elements.begin(); element != vertex; ++element) Skip(file, *element, header.isBinary);
    VertexSink sink(*vertex, mmPerUnit);
    if (header.isBinary)
        ReadBinary(file, *vertex, header.isLittleEndian, sink);
    else
        ReadText(file, *vertex, sink, path);
    if (!file) throw InputError(path + ": cannot be read");
    return std::move(sink).Result();
}

} // namespace voalgo
