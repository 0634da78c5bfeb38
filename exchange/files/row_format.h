#pragma once

#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace voalgo {

/// How a text file separates its columns and marks decimals. Learnt from the rows, which all must agree; what two ways
/// of reading would explain is refused. Columns are separated by blanks and tabs, by commas or by semicolons, the last
/// two with blanks around them if need be. Decimal commas can be told apart where blanks or semicolons separate.
class RowFormat {
public:
    /// A reason to refuse the row.
    struct Error : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    /// Splits a row that is not blank; the fields point into it. The separator is that of the first row.
    void Split(std::string_view row, std::vector<std::string_view>& fields);
    /// The number that a field states. Throws Error when it states none.
    double Number(std::string_view field);
    /// Throws Error when the rows so far leave open what their commas mean.
    void RequireCertain(std::size_t columns) const;

private:
    enum class Separator { Unknown, Blanks, Comma, Semicolon };

    static Separator separatorOf(std::string_view row);
    double numberWithComma(std::string_view field, std::size_t comma);
    void takeMark(char mark);

    Separator separator_ = Separator::Unknown;
    char mark_ = '\0';                // of decimals; not known before the first one
    bool commasSeparate_ = false;     // nothing else explains the rows
    bool commasMarkDecimals_ = false; // and not thousands
};

/// Splits a row of column names, whatever separates them; lower case, without quotation marks.
std::vector<std::string> SplitNames(std::string_view row);

} // namespace voalgo
