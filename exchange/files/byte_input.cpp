#include "exchange/files/byte_input.h"

#include "exchange/files/input_error.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace voalgo {

ByteInput::ByteInput(std::istream& stream, std::string name) : stream_(stream), name_(std::move(name))
{
    const auto start = stream_.tellg();
    const auto end = stream_.seekg(0, std::ios::end).tellg();
    if (!stream_.seekg(start)) Fail("cannot be read");
    unread_ = static_cast<std::uint64_t>(end - start);
}

bool ByteInput::Skip(std::uint64_t n)
{
    if (n > Remaining()) return false;
    const auto buffered = static_cast<std::size_t>(std::min<std::uint64_t>(n, end_ - begin_));
    begin_ += buffered;
    n -= buffered;
    if (n == 0) return true;
    if (!stream_.seekg(static_cast<std::streamoff>(n), std::ios::cur)) Fail("cannot be read");
    unread_ -= n;
    return true;
}

std::optional<std::string_view> ByteInput::Line()
{
    if (lineEnd_ == '\0') lineEnd_ = endOfFirstLine();
    if (begin_ == end_ && !fill(1)) return std::nullopt;
    const std::size_t at = find(lineEnd_);
    std::string_view line(buffer_.data() + begin_, at - begin_);
    begin_ = std::min(at + 1, end_);
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    ++lineNumber_;
    return line;
}

char ByteInput::endOfFirstLine()
{
    const auto at = [&](std::size_t i) { return i < end_ - begin_ || fill(i + 1) ? buffer_[begin_ + i] : '\0'; };
    std::size_t i = 0;
    while (i < Remaining() && at(i) != '\n' && at(i) != '\r') ++i;
    const bool hasReturn = i < Remaining() && at(i) == '\r';
    while (i < Remaining() && at(i) == '\r') ++i;
    return hasReturn && !(i < Remaining() && at(i) == '\n') ? '\r' : '\n';
}

/// The offset of the next c in the buffer, or of the end of the file. Buffers as much as needed.
std::size_t ByteInput::find(char c)
{
    for (std::size_t searched = 0;;) {
        const void* const found = std::memchr(buffer_.data() + begin_ + searched, c, end_ - begin_ - searched);
        if (found != nullptr) return static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data());
        searched = end_ - begin_;
        if (!fill(searched + 1)) return end_;
    }
}

/// Buffers at least n bytes that are not yet taken. Returns false when the file has fewer.
bool ByteInput::fill(std::size_t n)
{
    constexpr std::size_t Block = std::size_t{1} << 18U;
    if (n > Remaining()) return false;
    const std::size_t kept = end_ - begin_;
    if (begin_ > 0) std::memmove(buffer_.data(), buffer_.data() + begin_, kept);
    begin_ = 0;
    end_ = kept;
    if (buffer_.size() < n)
        buffer_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(std::max(Block, 2 * n), Remaining())));
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer_.size() - kept, unread_));
    if (!stream_.read(buffer_.data() + kept, static_cast<std::streamsize>(wanted))) Fail("cannot be read");
    end_ += wanted;
    unread_ -= wanted;
    return true;
}

void ByteInput::Fail(const std::string& reason) const
{
    throw InputError(name_ + ": " + reason);
}

void ByteInput::FailAt(std::size_t line, const std::string& reason) const
{
    throw InputError(name_ + ':' + std::to_string(line) + ": " + reason);
}

std::string Quoted(std::string_view word)
{
    std::string text = "\"" + std::string(word.substr(0, 40)) + '"';
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    return text;
}

} // namespace voalgo
