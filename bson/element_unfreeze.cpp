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

/// Bytes that grow at their end.
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

/// Reads elements. Each is written once, into one flat buffer; of the objects that are open at a time only the places
/// of their counts are kept. The counts are set when the terminators come.
class Parser {
public:
    /// `available`: number of bytes that the input is known to have, no more.
    Parser(std::streambuf& input, std::size_t available) : input_(input), available_(available) {}

    /// Bytes, their number and that of the value; null when the input is exhausted.
    struct Parsed {
        std::unique_ptr<unsigned char[]> bytes;
        std::size_t size, valueSize;
    };
    Parsed ReadElement()
    {
        const int type = input_.sbumpc();
        if (type == EndOfInput) return {};
        ReadHead(type);
        const std::size_t headSize = out_.Size();
        ReadValue(type);
        while (!open_.empty()) ReadInside();
        const std::size_t size = out_.Size();
        return {out_.Take(), size, size - headSize};
    }

    /// Whether there are four bytes, which are skipped.
    bool SkipCount()
    {
        char count[sizeof(std::uint32_t)];
        return input_.sgetn(count, sizeof(count)) == sizeof(count);
    }
    /// Whether the object goes on; skips its terminator.
    bool GoesOn()
    {
        if (input_.sgetc() != 0) return true;
        input_.sbumpc();
        return false;
    }

private:
    void ReadHead(int type)
    {
        out_.Append(type);
        ReadText();
    }
    void ReadText()
    {
        int byte = 0;
        do {
            byte = input_.sbumpc();
            if (byte == EndOfInput) Fail();
            out_.Append(byte);
        } while (byte != 0);
    }

    /// Memory is taken as the input comes, or at once as far as the input is known to reach.
    void ReadBytes(std::size_t n)
    {
        constexpr std::size_t Step = 65536;
        out_.Reserve(std::min(n, available_), open_.empty()); // a value that ends the element fills its array
        while (n > 0) {
            const std::size_t step = std::min(n, std::max(Step, available_));
            const auto length = static_cast<std::streamsize>(step);
            if (input_.sgetn(reinterpret_cast<char*>(out_.Extend(step)), length) != length) Fail();
            n -= step;
        }
    }
    /// A count of bytes, signed in the format.
    std::size_t ReadCount()
    {
        ReadBytes(sizeof(std::int32_t));
        const auto count = Load<std::int32_t>(out_.At(out_.Size() - sizeof(std::int32_t)));
        if (count < 0) Fail();
        return static_cast<std::size_t>(count);
    }

    void ReadValue(int type)
    {
        switch (type) {
        case element::Double:
        case element::DateTime:
        case element::UInt64:
        case element::Int64:
            return ReadBytes(8);
        case element::Int32:
        case element::Float:
        case element::UInt32:
            return ReadBytes(4);
        case element::Int16:
        case element::UInt16:
            return ReadBytes(2);
        case element::Boolean:
        case element::UInt8:
        case element::Int8:
            return ReadBytes(1);
        case element::Null:
            return;
        case element::String:
            return ReadString();
        case element::Binary: {
            const std::size_t count = ReadCount();
            return ReadBytes(1 + count);
        }
        case element::Regex:
            ReadText();
            return ReadText();
        case element::Object:
            return OpenObject();
        default:
            Fail();
        }
    }
    void ReadString()
    {
        const std::size_t count = ReadCount();
        ReadBytes(count);
        if (count == 0 || *out_.At(out_.Size() - 1) != 0) Fail();
    }

    void OpenObject()
    {
        const std::size_t place = out_.Size();
        unsigned char* const count = out_.Extend(sizeof(std::uint32_t));
        const auto length = static_cast<std::streamsize>(sizeof(std::uint32_t));
        if (input_.sgetn(reinterpret_cast<char*>(count), length) == length) {
            // What the outermost object claims is made room for at once, as far as the input is known to reach.
            if (open_.empty()) out_.Reserve(std::min<std::size_t>(Load<std::uint32_t>(count), available_) + 1, true);
            open_.push_back(place);
        } else { // input that ends before an object's count is an empty object
            Store(count, std::uint32_t{0});
            out_.Append(0);
        }
    }
    /// The next child of the innermost open object, or its end.
    void ReadInside()
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
        ReadHead(type);
        ReadValue(type);
    }

    std::streambuf& input_;
    std::size_t available_; // at the start
    Buffer out_;
    std::vector<std::size_t> open_; // where the counts of the open objects stand, innermost last
};

/// Borrowed bytes as input.
class MemoryInput : public std::streambuf {
public:
    MemoryInput(const unsigned char* data, std::size_t size)
    {
        // Only read through; the base class wants pointers to non-const.
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

/// Nothing when there is no count.
std::optional<element::object> element::object::parse(std::streambuf& input, std::size_t available)
{
    Parser parser(input, available);
    if (!parser.SkipCount()) return std::nullopt;
    object result;
    while (parser.GoesOn()) {
        Parser::Parsed parsed = parser.ReadElement();
        if (!parsed.bytes) Fail();
        result.append(element(std::move(parsed.bytes), parsed.size, parsed.valueSize));
    }
    return result;
}

} // namespace VoAlgo::bson
