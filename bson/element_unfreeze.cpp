#include "bson/view.h"

#include <algorithm>
#include <istream>
#include <limits>
#include <stdexcept>
#include <streambuf>

namespace VoAlgo::bson {
namespace {

using detail::Load;
using detail::Store;

constexpr int EndOfInput = std::streambuf::traits_type::eof();

[[noreturn]] void Fail()
{
    throw std::invalid_argument("parse error");
}

/// A growing array of bytes.
class Buffer {
public:
    [[nodiscard]] std::size_t Size() const { return size_; }
    unsigned char* At(std::size_t i) { return &bytes_[i]; }

    /// Makes room for n more bytes; the capacity at least doubles unless `exactly`.
    void Reserve(std::size_t n, bool exactly)
    {
        if (n <= capacity_ - size_) return;
        constexpr std::size_t Smallest = 64;
        const std::size_t capacity = exactly ? size_ + n : std::max({size_ + n, 2 * capacity_, Smallest});
        auto bytes = std::make_unique_for_overwrite<unsigned char[]>(capacity);
        std::copy_n(bytes_.get(), size_, bytes.get());
        bytes_ = std::move(bytes);
        capacity_ = capacity;
    }
    void Append(int byte)
    {
        Reserve(1, false);
        bytes_[size_++] = static_cast<unsigned char>(byte);
    }
    /// Appends n bytes that are not yet set.
    unsigned char* Extend(std::size_t n)
    {
        Reserve(n, false);
        size_ += n;
        return &bytes_[size_ - n];
    }
    /// Hands the bytes over, the array itself when it is full, and is empty.
    std::unique_ptr<unsigned char[]> Take()
    {
        if (size_ == capacity_) {
            size_ = capacity_ = 0;
            return std::move(bytes_);
        }
        auto exact = std::make_unique_for_overwrite<unsigned char[]>(size_);
        std::copy_n(bytes_.get(), size_, exact.get());
        size_ = 0;
        return exact;
    }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

/// Reads elements, each into one flat buffer, without recursion: of the objects that are open only the places of their
/// counts are kept, and each count is set when the object's terminator is read.
class Parser {
public:
    /// `available`: number of bytes that the input is known to hold; it may hold more.
    Parser(std::streambuf& input, std::size_t available) : input_(input), available_(available) {}

    /// The bytes, their number and that of the value; null when the input is exhausted.
    struct Parsed {
        std::unique_ptr<unsigned char[]> bytes;
        std::size_t size, valueSize;
    };
    Parsed ReadElement()
    {
        const int type = input_.sbumpc();
        if (type == EndOfInput) return {};
        readHead(type);
        const std::size_t headSize = out_.Size();
        readValue(type);
        while (!open_.empty()) readInside();
        const std::size_t size = out_.Size();
        return {out_.Take(), size, size - headSize};
    }

    /// Skips the four bytes of the count; false when there are fewer.
    bool SkipCount()
    {
        char count[sizeof(std::uint32_t)];
        return input_.sgetn(count, sizeof(count)) == sizeof(count);
    }
    /// Whether another child follows; skips the terminator otherwise.
    bool AnotherFollows()
    {
        if (input_.sgetc() != 0) return true;
        input_.sbumpc();
        return false;
    }

private:
    void readHead(int type)
    {
        out_.Append(type);
        readText();
    }
    void readText()
    {
        int byte = 0;
        do {
            byte = input_.sbumpc();
            if (byte == EndOfInput) Fail();
            out_.Append(byte);
        } while (byte != 0);
    }

    /// Memory grows with the input read, or at once up to the bytes that the input is known to hold.
    void readBytes(std::size_t n)
    {
        constexpr std::size_t Step = 65536;
        out_.Reserve(std::min(n, available_),
                     open_.empty()); // a value outside any object ends its element: no room to spare
        while (n > 0) {
            const std::size_t step = std::min(n, std::max(Step, available_));
            const auto length = static_cast<std::streamsize>(step);
            if (input_.sgetn(reinterpret_cast<char*>(out_.Extend(step)), length) != length) Fail();
            n -= step;
        }
    }
    /// A count of bytes, signed in the format.
    std::size_t readCount()
    {
        readBytes(sizeof(std::int32_t));
        const auto count = Load<std::int32_t>(out_.At(out_.Size() - sizeof(std::int32_t)));
        if (count < 0) Fail();
        return static_cast<std::size_t>(count);
    }

    void readValue(int type)
    {
        if (const auto size = detail::FixedSize(type)) return readBytes(*size);
        switch (type) {
        case element::String:
            return readString();
        case element::Binary:
            return readBytes(1 + readCount());
        case element::Regex:
            readText();
            return readText();
        case element::Object:
            return openObject();
        default:
            Fail();
        }
    }
    void readString()
    {
        const std::size_t count = readCount();
        readBytes(count);
        if (count == 0 || *out_.At(out_.Size() - 1) != 0) Fail();
    }

    void openObject()
    {
        const std::size_t place = out_.Size();
        unsigned char* const count = out_.Extend(sizeof(std::uint32_t));
        const auto length = static_cast<std::streamsize>(sizeof(std::uint32_t));
        if (input_.sgetn(reinterpret_cast<char*>(count), length) == length) {
            // The size of the outermost object is reserved at once, up to the bytes that the input is known to hold.
            if (open_.empty()) out_.Reserve(std::min<std::size_t>(Load<std::uint32_t>(count), available_) + 1, true);
            open_.push_back(place);
        } else { // input that ends before an object's count is an empty object
            Store(count, std::uint32_t{0});
            out_.Append(0);
        }
    }
    /// Reads the next child of the innermost open object, or its terminator.
    void readInside()
    {
        const int type = input_.sbumpc();
        if (type == EndOfInput) Fail();
        if (type == 0) {
            const std::size_t size = out_.Size() - open_.back() - sizeof(std::uint32_t);
            if (size > std::numeric_limits<std::uint32_t>::max()) Fail();
            Store(out_.At(open_.back()), static_cast<std::uint32_t>(size));
            out_.Append(0);
            open_.pop_back();
            return;
        }
        readHead(type);
        readValue(type);
    }

    std::streambuf& input_;
    std::size_t available_; // at the start
    Buffer out_;
    std::vector<std::size_t> open_; // places of the counts of the open objects, innermost last
};

/// Borrowed bytes as input.
class MemoryInput : public std::streambuf {
public:
    MemoryInput(const unsigned char* data, std::size_t size)
    {
        // Never written to; the base class takes pointers to non-const.
        char* const begin = const_cast<char*>(reinterpret_cast<const char*>(data));
        setg(begin, begin, begin + size);
    }
};

std::size_t Available(std::streambuf& input)
{
    return static_cast<std::size_t>(std::max<std::streamsize>(input.in_avail(), 0));
}

} // namespace

element element::unfreeze(std::istream& stream)
{
    const std::istream::sentry sentry(stream, true);
    if (!sentry) return {};
    Parser::Parsed parsed = Parser(*stream.rdbuf(), Available(*stream.rdbuf())).ReadElement();
    if (!parsed.bytes) stream.setstate(std::ios::eofbit | std::ios::failbit);
    return {std::move(parsed.bytes), parsed.size, parsed.valueSize};
}

element element::unfreeze(const unsigned char* data, std::size_t size)
{
    MemoryInput input(data, size);
    Parser::Parsed parsed = Parser(input, size).ReadElement();
    return {std::move(parsed.bytes), parsed.size, parsed.valueSize};
}

element::object element::object::unfreeze(std::istream& stream)
{
    const std::istream::sentry sentry(stream, true);
    if (!sentry) return {};
    std::optional<object> parsed = parse(*stream.rdbuf(), Available(*stream.rdbuf()));
    if (!parsed) stream.setstate(std::ios::eofbit | std::ios::failbit);
    return parsed ? std::move(*parsed) : object();
}

element::object element::object::unfreeze(const unsigned char* data, std::size_t size)
{
    MemoryInput input(data, size);
    return parse(input, size).value_or(object());
}

element::object element::object::unfreeze(const unsigned char* data)
{
    MemoryInput input(data, std::numeric_limits<std::ptrdiff_t>::max() / 2);
    return parse(input, 0).value_or(object());
}

/// Nothing when the input ends before the count.
std::optional<element::object> element::object::parse(std::streambuf& input, std::size_t available)
{
    Parser parser(input, available);
    if (!parser.SkipCount()) return std::nullopt;
    object result;
    while (parser.AnotherFollows()) {
        Parser::Parsed parsed = parser.ReadElement();
        if (!parsed.bytes) Fail();
        result.append(element(std::move(parsed.bytes), parsed.size, parsed.valueSize));
    }
    return result;
}

} // namespace VoAlgo::bson
