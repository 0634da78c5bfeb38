#include "exchange/files/read_xyz.h"

#include "exchange/files/byte_input.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/row_format.h"
#include "exchange/files/scan_builder.h"
#include "exchange/files/xyz_columns.h"
#include "platform/format.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

namespace voalgo {

namespace {

constexpr std::string_view Blanks = " \t";

/// What a line says: a row, and a comment behind it.
struct Line {
    std::string_view row;
    std::string_view comment; // without its sign
};

/// A sign within a word belongs to the word, for example the # of 1.#IND.
Line SplitComment(std::string_view text)
{
    const auto startOf = [&](std::string_view sign) {
        std::size_t i = text.find(sign);
        while (i != std::string_view::npos && i > 0 && Blanks.find(text[i - 1]) == std::string_view::npos)
            i = text.find(sign, i + 1);
        return i;
    };
    const std::size_t hash = startOf("#"), slashes = startOf("//"), start = std::min(hash, slashes);
    if (start != std::string_view::npos) return {text.substr(0, start), text.substr(start + (start == hash ? 1 : 2))};
    return {text, {}};
}

bool IsBlank(std::string_view text)
{
    return text.find_first_not_of(Blanks) == std::string_view::npos;
}

/// Builds a cloud from the lines of a file.
class XyzReader {
public:
    XyzReader(ByteInput& input, double mmPerUnit) : input_(input), cloud_(mmPerUnit) {}

    prereg::Scan Read()
    {
        while (const auto line = input_.Line()) try {
                takeLine(SplitComment(input_.LineNumber() == 1 ? withoutMark(*line) : *line));
            } catch (const RowFormat::Error& error) {
                const bool isFirst = input_.LineNumber() == firstRow_ && names_.empty();
                input_.FailInLine(std::string(error.what()) +
                                  (isFirst ? "; a row of column names would contain x, y and z" : ""));
            }
        finish();
        return std::move(cloud_).Take();
    }

private:
    std::string_view withoutMark(std::string_view line) const
    {
        if (line.substr(0, 2) == "\xFF\xFE" || line.substr(0, 2) == "\xFE\xFF")
            input_.FailInLine("the text is UTF-16; save it as UTF-8");
        return line.substr(0, 3) == "\xEF\xBB\xBF" ? line.substr(3) : line;
    }

    void takeLine(const Line& line)
    {
        if (firstRow_ == 0 && takeNames(line)) return;
        if (IsBlank(line.row)) return;
        format_.Split(line.row, fields_);
        if (firstRow_ == 0) takeFirstRow();
        if (fields_.size() == columnCount_ + 1 && fields_.back().empty()) fields_.pop_back(); // a separator at the end
        if (fields_.size() != columnCount_)
            input_.FailInLine(
                VoAlgo::Format("%zu columns, but line %zu has %zu", fields_.size(), firstRow_, columnCount_));
        if (columns_)
            add([&](std::size_t column) { return format_.Number(fields_[column]); });
        else
            takeSample();
    }

    /// A row of column names, or a comment that consists of them.
    bool takeNames(const Line& line)
    {
        const bool isRow = !IsBlank(line.row);
        std::vector<std::string> names = SplitNames(isRow ? line.row : line.comment);
        const auto columns = ColumnsByName(names);
        if (!columns || (!isRow && !AreColumnNames(names))) return false;
        columns_ = columns;
        names_ = std::move(names);
        return true;
    }

    void takeFirstRow()
    {
        firstRow_ = input_.LineNumber();
        columnCount_ = fields_.size();
        if (fields_.back().empty() && names_.size() != columnCount_) --columnCount_;
        if (!names_.empty() && names_.size() != columnCount_)
            input_.FailInLine(VoAlgo::Format("%zu columns, but the header names %zu", columnCount_, names_.size()));
        if (columnCount_ < 3) input_.FailInLine("fewer than three columns");
    }

    /// The first rows wait until they show which columns hold what.
    void takeSample()
    {
        constexpr std::size_t Most = 20000; // rows
        for (const std::string_view field : fields_) sample_.push_back(format_.Number(field));
        if (sample_.size() >= Most * columnCount_) useSample();
    }
    void useSample()
    {
        try {
            columns_ = ColumnsByContent(sample_, columnCount_);
        } catch (const InputError& error) {
            input_.FailAt(firstRow_, error.what());
        }
        for (std::size_t row = 0; row < sample_.size(); row += columnCount_)
            add([&](std::size_t column) { return sample_[row + column]; });
        sample_ = {};
    }

    void add(auto&& valueOf)
    {
        const auto& [x, y, z] = columns_->point;
        cloud_.AddPoint({valueOf(x), valueOf(y), valueOf(z)});
        if (!columns_->normal) return;
        const auto& [nx, ny, nz] = *columns_->normal;
        cloud_.AddNormal({valueOf(nx), valueOf(ny), valueOf(nz)});
    }

    void finish()
    {
        if (firstRow_ == 0) return;
        if (!columns_) useSample();
        try {
            format_.RequireCertain(names_.empty() ? columnCount_ : 3);
        } catch (const RowFormat::Error& error) {
            input_.FailAt(firstRow_, error.what());
        }
    }

    ByteInput& input_;
    ScanBuilder cloud_;
    RowFormat format_;
    std::vector<std::string_view> fields_; // of the current row
    std::vector<std::string> names_;       // of the columns; empty: none were given
    std::size_t firstRow_ = 0;             // its line; 0: none yet
    std::size_t columnCount_ = 0;          // of all rows
    std::vector<double> sample_;           // the first rows
    std::optional<XyzColumns> columns_;    // once they are known
};

} // namespace

prereg::Scan ReadXyz(std::istream& stream, const std::string& name, double mmPerUnit)
{
    ByteInput input(stream, name);
    return XyzReader(input, mmPerUnit).Read();
}

prereg::Scan ReadXyz(const std::string& path, double mmPerUnit)
{
    RequireFile(path);
    std::ifstream file(path, std::ios::binary);
    return ReadXyz(file, path, mmPerUnit);
}

} // namespace voalgo
