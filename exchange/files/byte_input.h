#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace voalgo {

/// The bytes of a file, front to back, in memory that depends on the longest piece asked for and not on the file.
class ByteInput {
public:
    /// `stream` is borrowed, binary and seekable; `name` begins every message.
    ByteInput(std::istream& stream, std::string name);

    /// The next n bytes; null when fewer remain. Valid until the next call.
    const char* Take(std::size_t n)
    {
        if (end_ - begin_ < n && !fill(n)) return nullptr;
        begin_ += n;
        return &buffer_[begin_ - n];
    }
    /// Passes over n bytes in constant time. Returns false when fewer remain.
    bool Skip(std::uint64_t n);
    /// The next line without its end; nothing at the end of the file. Lines end as the first one does: in a line feed,
    /// perhaps after carriage returns, or in a carriage return alone. Valid until the next call.
    std::optional<std::string_view> Line();
    /// Of the last line, from 1.
    [[nodiscard]] std::size_t LineNumber() const { return lineNumber_; }
    [[nodiscard]] std::uint64_t Remaining() const { return unread_ + (end_ - begin_); }

    ///@{
    /// Throws InputError: name: reason, or name:line: reason.
    [[noreturn]] void Fail(const std::string& reason) const;
    [[noreturn]] void FailAt(std::size_t line, const std::string& reason) const;
    [[noreturn]] void FailInLine(const std::string& reason) const { FailAt(lineNumber_, reason); }
    ///@}

private:
    bool fill(std::size_t n);
    char endOfFirstLine();
    std::size_t find(char c);

    std::istream& stream_;
    std::string name_;
    std::uint64_t unread_ = 0; // bytes that the buffer has not seen
    std::vector<char> buffer_;
    std::size_t begin_ = 0; // of what is buffered and not yet taken
    std::size_t end_ = 0;
    std::size_t lineNumber_ = 0;
    char lineEnd_ = '\0'; // not known before the first line
};

/// Up to 40 characters of a word for a message, in quotation marks; '?' stands for those that do not print.
std::string Quoted(std::string_view word);

} // namespace voalgo
