#include "exchange/files/read_ply.h"

#include "exchange/files/parse_number.h"
#include "exchange/files/scan_builder.h"
#include "exchange/files/words.h"
#include "platform/format.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

namespace voalgo {

namespace {

template <class Bits>
Bits Load(const char* bytes, bool isBigEndian)
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < sizeof(Bits); ++i) {
        const std::size_t at = isBigEndian ? i : sizeof(Bits) - 1 - i;
        bits = bits << 8U | static_cast<unsigned char>(bytes[at]);
    }
    return static_cast<Bits>(bits);
}

double Decode(const char* bytes, const PlyType& type, bool isBigEndian)
{
    const bool isSigned = type.kind == 'i';
    switch (type.size) {
    case 1: {
        const auto bits = Load<std::uint8_t>(bytes, isBigEndian);
        return isSigned ? static_cast<std::int8_t>(bits) : bits;
    }
    case 2: {
        const auto bits = Load<std::uint16_t>(bytes, isBigEndian);
        return isSigned ? static_cast<std::int16_t>(bits) : bits;
    }
    case 4: {
        const auto bits = Load<std::uint32_t>(bytes, isBigEndian);
        if (type.kind == 'f') return double{std::bit_cast<float>(bits)};
        return isSigned ? double(static_cast<std::int32_t>(bits)) : double(bits);
    }
    default:
        return std::bit_cast<double>(Load<std::uint64_t>(bytes, isBigEndian));
    }
}

/// The values behind the header, one after another. In text, each row has a line; empty lines do not count.
class Data {
public:
    Data(ByteInput& input, PlyHeader::Form form)
        : input_(input), isText_(form == PlyHeader::Form::Text), isBigEndian_(form == PlyHeader::Form::BigEndian)
    {
    }

    void BeginRow()
    {
        while (isText_) {
            const auto line = input_.Line();
            if (!line) input_.Fail("truncated: the file ends before the rows that the header announces");
            line_ = *line;
            if (std::string_view rest = line_; !NextWord(rest).empty()) break;
        }
    }
    void EndRow()
    {
        if (isText_ && !NextWord(line_).empty()) input_.FailInLine("more values than the header announces for a row");
    }

    double Next(const PlyType& type) { return isText_ ? nextNumber() : Decode(take(type.size), type, isBigEndian_); }
    /// The number of values in a list, which follow.
    std::uint64_t NextCount(const PlyProperty& list)
    {
        const double count = Next(list.countType);
        if (!(count >= 0.0) || count != std::floor(count) || !(count < 0x1p53))
            fail("a list has " + VoAlgo::Format("%g", count) + " values");
        const auto n = static_cast<std::uint64_t>(count);
        if (!isText_ && n > input_.Remaining() / list.type.size) input_.Fail("truncated: a list exceeds the file");
        return n;
    }
    /// Passes over n values.
    void Pass(const PlyType& type, std::uint64_t n)
    {
        if (!isText_)
            skip(n * type.size);
        else
            for (; n > 0; --n) nextWord();
    }
    /// Passes over an element; in constant time when its rows have one size.
    void Pass(const PlyElement& element)
    {
        if (!isText_ && !element.HasList()) return skip(element.rows * element.LeastRowSize());
        if (element.properties.empty()) return;
        for (std::uint64_t row = 0; row < element.rows; ++row) {
            BeginRow();
            if (isText_) continue; // nobody looks at the values
            for (const PlyProperty& p : element.properties) Pass(p);
        }
    }
    void Pass(const PlyProperty& p) { Pass(p.type, p.isList ? NextCount(p) : 1); }

    /// Calls onRow with what each row holds in these columns, which are not lists.
    template <std::size_t N, class OnRow>
    void ReadColumns(const PlyElement& element, const std::array<const PlyProperty*, N>& columns, OnRow&& onRow)
    {
        std::array<double, N> values{};
        if (isText_ || element.HasList())
            readAnyRows(element, columns, values, onRow);
        else
            readFixedRows(element, columns, values, onRow);
    }

private:
    [[noreturn]] void fail(const std::string& reason) const
    {
        if (isText_) input_.FailInLine(reason);
        input_.Fail(reason);
    }
    const char* take(std::size_t n)
    {
        const char* const bytes = input_.Take(n);
        if (bytes == nullptr) input_.Fail("truncated: the file ends before the rows that the header announces");
        return bytes;
    }
    void skip(std::uint64_t n)
    {
        if (!input_.Skip(n)) input_.Fail("truncated: the file ends before the rows that the header announces");
    }
    std::string_view nextWord()
    {
        const std::string_view word = NextWord(line_);
        if (word.empty()) input_.FailInLine("fewer values than the header announces for a row");
        return word;
    }
    double nextNumber()
    {
        const std::string_view word = nextWord();
        const std::optional<double> number = ParseNumber(word);
        if (!number) input_.FailInLine("not a number: " + Quoted(word));
        return *number;
    }

    template <std::size_t N, class OnRow>
    void readAnyRows(const PlyElement& element, const std::array<const PlyProperty*, N>& columns,
                     std::array<double, N>& values, OnRow&& onRow)
    {
        std::vector<double*> targets; // of each property; null: not wanted
        for (const PlyProperty& p : element.properties) {
            const auto column = std::find(columns.begin(), columns.end(), &p);
            targets.push_back(column == columns.end() ? nullptr
                                                      : &values[static_cast<std::size_t>(column - columns.begin())]);
        }
        for (std::uint64_t row = 0; row < element.rows; ++row) {
            BeginRow();
            for (std::size_t i = 0; i < targets.size(); ++i)
                if (targets[i] != nullptr)
                    *targets[i] = Next(element.properties[i].type);
                else
                    Pass(element.properties[i]);
            EndRow();
            onRow(values);
        }
    }

    template <std::size_t N, class OnRow>
    void readFixedRows(const PlyElement& element, const std::array<const PlyProperty*, N>& columns,
                       std::array<double, N>& values, OnRow&& onRow)
    {
        struct Column {
            PlyType type;
            std::size_t offset, target;
        };
        std::vector<Column> wanted;
        std::size_t size = 0;
        for (const PlyProperty& p : element.properties) {
            const auto column = std::find(columns.begin(), columns.end(), &p);
            if (column != columns.end())
                wanted.push_back({p.type, size, static_cast<std::size_t>(column - columns.begin())});
            size += p.type.size;
        }
        for (std::uint64_t row = 0; row < element.rows; ++row) {
            const char* const bytes = take(size);
            for (const Column& c : wanted) values[c.target] = Decode(bytes + c.offset, c.type, isBigEndian_);
            onRow(values);
        }
    }

    ByteInput& input_;
    bool isText_;
    bool isBigEndian_;
    std::string_view line_; // what the row's line still holds
};

/// The columns x y z nx ny nz; the last three are null unless all of them are there.
using VertexColumns = std::array<const PlyProperty*, 6>;

bool HasNormals(const VertexColumns& columns)
{
    return columns[3] != nullptr;
}

VertexColumns ColumnsOf(const PlyElement& vertex, const ByteInput& input)
{
    constexpr std::array<const char*, 6> Names = {"x", "y", "z", "nx", "ny", "nz"};
    VertexColumns columns{};
    for (const PlyProperty& p : vertex.properties) {
        const auto* const name = std::find(Names.begin(), Names.end(), p.name);
        if (name == Names.end()) continue;
        const PlyProperty*& column = columns[static_cast<std::size_t>(name - Names.begin())];
        if (p.isList || column != nullptr)
            input.Fail("the vertices' property \"" + p.name + (p.isList ? "\" is a list" : "\" is there twice"));
        column = &p;
    }
    for (std::size_t k = 0; k < 3; ++k)
        if (columns[k] == nullptr) input.Fail(std::string("the vertices have no property \"") + Names[k] + '"');
    if (std::find(columns.begin() + 3, columns.end(), nullptr) != columns.end())
        std::fill(columns.begin() + 3, columns.end(), nullptr);
    return columns;
}

bool IsVertex(const PlyElement& element)
{
    return element.name == "vertex";
}

bool IsSurface(const PlyElement& element)
{
    return element.rows > 0 && (element.name == "face" || element.name == "tristrips");
}

const PlyElement& VerticesOf(const PlyHeader& header, const ByteInput& input)
{
    const auto vertex = std::find_if(header.elements.begin(), header.elements.end(), IsVertex);
    if (vertex == header.elements.end()) input.Fail("the PLY header has no element vertex");
    if (std::find_if(vertex + 1, header.elements.end(), IsVertex) != header.elements.end())
        input.Fail("the PLY header has two elements vertex");
    return *vertex;
}

std::array<double, 3> Triple(const std::array<double, 6>& row, std::size_t first)
{
    return {row[first], row[first + 1], row[first + 2]};
}

kdtree::Vector<3> Single(const std::array<double, 6>& row, std::size_t first)
{
    return {static_cast<float>(row[first]), static_cast<float>(row[first + 1]), static_cast<float>(row[first + 2])};
}

/// Collects the triangles of a polygon, as a fan, or of a strip, which -1 interrupts.
class Corners {
public:
    Corners(std::vector<std::array<std::uint32_t, 3>>& triangles, bool isStrip)
        : triangles_(triangles), isStrip_(isStrip)
    {
    }

    void Add(std::uint32_t corner)
    {
        if (count_ >= 2) {
            const bool isTurned = isStrip_ && count_ % 2 == 1;
            triangles_.push_back({isTurned ? last_ : first_, isTurned ? first_ : last_, corner});
        }
        if (isStrip_)
            first_ = last_;
        else if (count_ == 0)
            first_ = corner;
        last_ = corner;
        ++count_;
    }

    void Restart() { count_ = 0; }

private:
    std::vector<std::array<std::uint32_t, 3>>& triangles_;
    bool isStrip_;
    std::uint64_t count_ = 0; // corners since the start
    std::uint32_t first_ = 0; // of a strip, the last but one
    std::uint32_t last_ = 0;
};

void ReadFaces(Data& data, const PlyElement& element, std::uint64_t vertices, const ByteInput& input,
               prereg::TriangleMesh& mesh)
{
    const auto isCorners = [](const PlyProperty& p) {
        return p.isList && (p.name == "vertex_indices" || p.name == "vertex_index");
    };
    const auto corners = std::find_if(element.properties.begin(), element.properties.end(), isCorners);
    if (corners == element.properties.end() || corners->type.kind == 'f')
        input.Fail("the element " + element.name + " has no list \"vertex_indices\" of integers");
    const bool isStrip = element.name == "tristrips";
    for (std::uint64_t row = 0; row < element.rows; ++row) {
        data.BeginRow();
        for (const PlyProperty& p : element.properties) {
            if (&p != &*corners) {
                data.Pass(p);
                continue;
            }
            Corners taken(mesh.triangles, isStrip);
            for (std::uint64_t n = data.NextCount(p); n > 0; --n) {
                const double corner = data.Next(p.type);
                if (isStrip && corner == -1.0)
                    taken.Restart();
                else if (corner >= 0.0 && corner < static_cast<double>(vertices) && corner == std::floor(corner))
                    taken.Add(static_cast<std::uint32_t>(corner));
                else
                    input.Fail(VoAlgo::Format("a face refers to a vertex that does not exist: row %llu of the element "
                                              "%s has vertex %.0f of %llu, counted from 0",
                                              static_cast<unsigned long long>(row), element.name.c_str(), corner,
                                              static_cast<unsigned long long>(vertices)));
            }
        }
        data.EndRow();
    }
}

} // namespace

bool PlyReader::HasFaces() const
{
    return std::any_of(header_.elements.begin(), header_.elements.end(), IsSurface);
}

prereg::Scan PlyReader::Points(double mmPerUnit)
{
    const PlyElement& vertex = VerticesOf(header_, input_);
    const VertexColumns columns = ColumnsOf(vertex, input_);
    Data data(input_, header_.form);
    for (const PlyElement& before : header_.elements) {
        if (IsVertex(before)) break;
        data.Pass(before);
    }
    const auto rows = static_cast<std::size_t>(vertex.rows);
    const bool isSingle = mmPerUnit == 1.0 && std::all_of(columns.begin(), columns.begin() + 3, [](const auto* p) {
                              return p->type.kind == 'f' && p->type.size == 4;
                          });
    prereg::Scan scan; // the points if floats hold them, and the normals
    ScanBuilder builder(mmPerUnit);
    if (isSingle)
        scan.points.reserve(rows);
    else
        builder.Reserve(rows);
    if (HasNormals(columns)) scan.normals.reserve(rows);
    data.ReadColumns(vertex, columns, [&](const std::array<double, 6>& row) {
        if (isSingle)
            scan.points.push_back(Single(row, 0));
        else
            builder.AddPoint(Triple(row, 0));
        if (HasNormals(columns)) scan.normals.push_back(Single(row, 3));
    });
    if (isSingle) return scan;
    prereg::Scan built = std::move(builder).Take();
    built.normals = std::move(scan.normals);
    return built;
}

Model PlyReader::Surface()
{
    const PlyElement& vertex = VerticesOf(header_, input_);
    const VertexColumns columns = ColumnsOf(vertex, input_);
    if (vertex.rows >= std::numeric_limits<std::uint32_t>::max()) input_.Fail("too many vertices for a mesh");
    Data data(input_, header_.form);
    Model model;
    model.mesh.vertices.reserve(static_cast<std::size_t>(vertex.rows));
    if (HasNormals(columns)) model.normals.reserve(static_cast<std::size_t>(vertex.rows));
    for (const PlyElement& element : header_.elements) {
        if (IsSurface(element))
            ReadFaces(data, element, vertex.rows, input_, model.mesh);
        else if (!IsVertex(element))
            data.Pass(element);
        else
            data.ReadColumns(vertex, columns, [&](const std::array<double, 6>& row) {
                model.mesh.vertices.push_back(Triple(row, 0));
                if (HasNormals(columns)) model.normals.push_back(Single(row, 3));
            });
    }
    return model;
}

} // namespace voalgo
