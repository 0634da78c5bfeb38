#include "exchange/files/row_format.h"

#include "exchange/files/byte_input.h"
#include "exchange/files/parse_number.h"
#include "exchange/files/words.h"

#include <algorithm>
#include <array>
#include <string>

namespace voalgo {

namespace {

constexpr std::string_view Blanks = " \t";

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(Blanks), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(Blanks) + 1);
}

std::string_view Unquoted(std::string_view field)
{
    const bool isQuoted = field.size() >= 2 && field.front() == '"' && field.back() == '"';
    return isQuoted ? field.substr(1, field.size() - 2) : field;
}

void SplitAtBlanks(std::string_view row, std::vector<std::string_view>& fields)
{
    for (std::string_view word = NextWord(row); !word.empty(); word = NextWord(row)) fields.push_back(Unquoted(word));
}

void SplitAt(char separator, std::string_view row, std::vector<std::string_view>& fields)
{
    while (true) {
        const std::size_t end = row.find(separator);
        fields.push_back(Unquoted(Trimmed(row.substr(0, end))));
        if (end == std::string_view::npos) return;
        row.remove_prefix(end + 1);
    }
}

bool HasCommaBetweenDigits(std::string_view row)
{
    for (std::size_t i = row.find(','); i != std::string_view::npos; i = row.find(',', i + 1))
        if (i > 0 && i + 1 < row.size() && IsDigit(row[i - 1]) && IsDigit(row[i + 1])) return true;
    return false;
}

bool Has(std::string_view text, char c)
{
    return text.find(c) != std::string_view::npos;
}

} // namespace

RowFormat::Separator RowFormat::separatorOf(std::string_view row)
{
    if (Has(row, ';')) return Separator::Semicolon;
    if (!Has(row, ',')) return Separator::Blanks;
    const bool hasBlank = Trimmed(row).find_first_of(Blanks) != std::string_view::npos;
    return hasBlank && HasCommaBetweenDigits(row) && !Has(row, '.') ? Separator::Blanks : Separator::Comma;
}

void RowFormat::Split(std::string_view row, std::vector<std::string_view>& fields)
{
    if (separator_ == Separator::Unknown) separator_ = separatorOf(row);
    fields.clear();
    if (separator_ == Separator::Blanks) return SplitAtBlanks(row, fields);
    SplitAt(separator_ == Separator::Comma ? ',' : ';', row, fields);
    if (separator_ == Separator::Comma && !HasCommaBetweenDigits(row)) commasSeparate_ = true;
}

double RowFormat::Number(std::string_view field)
{
    if (field.empty()) throw Error("a column is empty");
    // Points and commas are rare enough for a second look at the field to cost little.
    if (const std::size_t comma = field.find(','); comma != std::string_view::npos)
        return numberWithComma(field, comma);
    if (mark_ != '.' && Has(field, '.')) takeMark('.');
    const std::optional<double> number = ParseNumber(field);
    if (!number) throw Error("not a number: " + Quoted(field));
    return *number;
}

double RowFormat::numberWithComma(std::string_view field, std::size_t comma)
{
    std::array<char, 64> copy{};
    const std::string_view fraction = field.substr(comma + 1);
    const auto digits =
        static_cast<std::size_t>(std::find_if_not(fraction.begin(), fraction.end(), IsDigit) - fraction.begin());
    const std::string_view whole = field.substr(field.find_first_not_of("+-"), std::string_view::npos);
    const std::size_t wholeDigits = whole.find(',');
    const bool isPlain = field.size() <= copy.size() && digits > 0 && wholeDigits > 0 && !Has(field, '.') &&
                         std::all_of(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(wholeDigits), IsDigit);
    std::copy_n(field.begin(), std::min(field.size(), copy.size()), copy.begin());
    copy[std::min(comma, copy.size() - 1)] = '.';
    const std::optional<double> number = isPlain ? ParseNumber({copy.data(), field.size()}) : std::nullopt;
    if (!number) throw Error("not a number: " + Quoted(field));
    takeMark(',');
    // Thousands would have three digits behind each comma, and neither a zero nor more than three digits before it.
    if (digits != 3 || digits != fraction.size() || whole[0] == '0' || wholeDigits > 3) commasMarkDecimals_ = true;
    return *number;
}

void RowFormat::takeMark(char mark)
{
    if (mark_ != '\0' && mark_ != mark) throw Error("decimal points and decimal commas in one file");
    mark_ = mark;
}

void RowFormat::RequireCertain(std::size_t columns) const
{
    if (mark_ == ',' && !commasMarkDecimals_) throw Error("the commas may mark decimals or thousands");
    if (separator_ == Separator::Comma && columns > 3 && mark_ != '.' && !commasSeparate_)
        throw Error("the commas may separate columns or mark decimals; a row of column names would tell");
}

std::vector<std::string> SplitNames(std::string_view row)
{
    std::vector<std::string_view> fields;
    if (Has(row, ';') || Has(row, ','))
        SplitAt(Has(row, ';') ? ';' : ',', row, fields);
    else
        SplitAtBlanks(row, fields);
    std::vector<std::string> names(fields.begin(), fields.end());
    for (std::string& name : names)
        for (char& c : name)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return names;
}

} // namespace voalgo
