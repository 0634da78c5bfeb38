#include "VoAlgorithms/bson/element.h"

#include "bson/view.h"
#include "platform/utf8.h"

#include <cstring>
#include <limits>
#include <ostream>
#include <stdexcept>

namespace VoAlgo::bson {

using detail::Children;
using detail::Load;
using detail::Store;
using detail::TypeOf;
using detail::View;

namespace {

/// The integer of the same width and sign that has a type code.
template <class T>
using Sized = std::conditional_t<sizeof(T) == 4, std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>,
                                 std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>;

/// Count field of a string or binary: signed 32 bits.
std::uint64_t RequireCount(std::uint64_t count)
{
    if (count > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
        throw std::length_error("value too long");
    return count;
}

void RequireNoNul(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos) throw std::invalid_argument("name or pattern contains NUL");
}

/// Copies the text and a NUL; returns the place after it.
unsigned char* WriteText(unsigned char* bytes, std::string_view text)
{
    std::memcpy(bytes, text.data(), text.size());
    bytes[text.size()] = 0;
    return bytes + text.size() + 1;
}

bool Matches(const char* name, const std::regex& pattern)
{
    constexpr std::size_t LongestName = 1024;
    const std::size_t length = std::strlen(name);
    return length <= LongestName && std::regex_match(name, name + length, pattern);
}

template <class Test>
View FindChild(const View& parent, Test test)
{
    if (parent.Type() != element::Object) return {};
    for (const View& child : Children(parent))
        if (test(child.Name())) return child;
    return {};
}

View FollowPath(View view, std::list<std::string>::const_iterator begin, std::list<std::string>::const_iterator end)
{
    for (auto step = begin; step != end; ++step)
        view = FindChild(view, [&](const char* name) { return *step == name; });
    return view;
}

const element& EmptyElement()
{
    static const element empty;
    return empty;
}

bool Write(std::ostream& stream, std::uint64_t size, const auto& write)
{
    const std::streamoff before = stream.tellp();
    write();
    const std::streamoff after = stream.tellp();
    return before >= 0 && after >= before && static_cast<std::uint64_t>(after - before) == size;
}

void WriteBytes(std::ostream& stream, const unsigned char* bytes, std::uint64_t size)
{
    stream.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
}

} // namespace

const char* bad_cast::what() const noexcept
{
    return "bad cast";
}

View View::At(const unsigned char* bytes)
{
    const auto textSize = [](const unsigned char* text) {
        return std::strlen(reinterpret_cast<const char*>(text)) + 1;
    };
    const std::size_t headSize = 1 + textSize(bytes + 1);
    const unsigned char* const value = bytes + headSize;
    std::size_t size = 0;
    if (const auto fixed = detail::FixedSize(*bytes))
        size = *fixed;
    else if (*bytes == element::Regex)
        size = textSize(value) + textSize(value + textSize(value));
    else // string, object, binary: a count; the last two have a byte more
        size = sizeof(std::uint32_t) + Load<std::uint32_t>(value) + (*bytes == element::String ? 0 : 1);
    return {bytes, headSize + size, size};
}

element::element(Type type, std::string_view name, std::uint64_t valueSize)
    : buffer_(std::make_unique_for_overwrite<unsigned char[]>(1 + name.size() + 1 + valueSize)),
      total_(1 + name.size() + 1 + valueSize), value_(valueSize)
{
    RequireNoNul(name);
    buffer_[0] = type;
    WriteText(&buffer_[1], name);
}

element::element(Bytes bytes, std::uint64_t total, std::uint64_t value) noexcept
    : buffer_(std::move(bytes)), total_(total), value_(value)
{
}

element::element(const View& view) : total_(view.total), value_(view.valueSize)
{
    if (view.raw == nullptr) return;
    buffer_ = std::make_unique_for_overwrite<unsigned char[]>(view.total);
    std::memcpy(buffer_.get(), view.raw, view.total);
}

View element::view() const noexcept
{
    return View::Of(*this);
}

element::element(std::string_view name) : element(Null, name, 0) {}
element::element(std::string_view name, signed char value) : element(make_int8(name, value)) {}
element::element(std::string_view name, unsigned char value) : element(make_uint8(name, value)) {}
element::element(std::string_view name, short value) : element(make_int16(name, value)) {}
element::element(std::string_view name, unsigned short value) : element(make_uint16(name, value)) {}
element::element(std::string_view name, int value) : element(make_int32(name, value)) {}
element::element(std::string_view name, unsigned int value) : element(make_uint32(name, value)) {}
element::element(std::string_view name, long value) : element(make_plain(name, static_cast<Sized<long>>(value))) {}
element::element(std::string_view name, unsigned long value)
    : element(make_plain(name, static_cast<Sized<unsigned long>>(value)))
{
}
element::element(std::string_view name, long long value) : element(make_int64(name, value)) {}
element::element(std::string_view name, unsigned long long value) : element(make_uint64(name, value)) {}
element::element(std::string_view name, float value) : element(make_float(name, value)) {}
element::element(std::string_view name, double value) : element(make_double(name, value)) {}
element::element(std::string_view name, bool value) : element(make_boolean(name, value)) {}
element::element(std::string_view name, std::chrono::milliseconds value) : element(make_datetime(name, value)) {}
element::element(std::string_view name, const char* value) : element(make_string(name, std::string(value))) {}
element::element(std::string_view name, const wchar_t* value) : element(make_string(name, std::wstring(value))) {}
element::element(std::string_view name, const std::string& value) : element(make_string(name, value)) {}
element::element(std::string_view name, const object& value) : element(make_object(name, value)) {}
element::element(std::string_view name, const void* data, unsigned length) : element(make_binary(name, data, length)) {}

element::element(const element& other) : element(other.view()) {}

element::element(element&& other) noexcept
    : buffer_(std::move(other.buffer_)), total_(std::exchange(other.total_, 0)), value_(std::exchange(other.value_, 0))
{
}

element& element::operator=(const element& other)
{
    return *this = element(other);
}

element& element::operator=(element&& other) noexcept
{
    element taken(std::move(other));
    std::swap(buffer_, taken.buffer_);
    std::swap(total_, taken.total_);
    std::swap(value_, taken.value_);
    return *this;
}

template <class T>
element element::make_plain(std::string_view name, T plain)
{
    element made(TypeOf<T>, name, sizeof(T));
    Store(made.value(), plain);
    return made;
}

element element::make_int8(std::string_view name, std::int8_t value)
{
    return make_plain(name, value);
}
element element::make_uint8(std::string_view name, std::uint8_t value)
{
    return make_plain(name, value);
}
element element::make_int16(std::string_view name, std::int16_t value)
{
    return make_plain(name, value);
}
element element::make_uint16(std::string_view name, std::uint16_t value)
{
    return make_plain(name, value);
}
element element::make_int32(std::string_view name, std::int32_t value)
{
    return make_plain(name, value);
}
element element::make_uint32(std::string_view name, std::uint32_t value)
{
    return make_plain(name, value);
}
element element::make_int64(std::string_view name, std::int64_t value)
{
    return make_plain(name, value);
}
element element::make_uint64(std::string_view name, std::uint64_t value)
{
    return make_plain(name, value);
}
element element::make_float(std::string_view name, float value)
{
    return make_plain(name, value);
}
element element::make_double(std::string_view name, double value)
{
    return make_plain(name, value);
}

element element::make_boolean(std::string_view name, bool value)
{
    element made(Boolean, name, 1);
    *made.value() = value ? 1 : 0;
    return made;
}

element element::make_datetime(std::string_view name, std::chrono::milliseconds value)
{
    element made(DateTime, name, sizeof(std::int64_t));
    Store(made.value(), static_cast<std::int64_t>(value.count()));
    return made;
}

element element::make_null(std::string_view name)
{
    return {Null, name, 0};
}

element element::make_string(std::string_view name, const std::string& value)
{
    const std::uint64_t count = RequireCount(value.size() + 1);
    element made(String, name, sizeof(std::int32_t) + count);
    Store(made.value(), static_cast<std::int32_t>(count));
    WriteText(made.value() + sizeof(std::int32_t), value);
    return made;
}

element element::make_string(std::string_view name, const std::wstring& value)
{
    return make_string(name, Utf8FromWide(value));
}

element element::make_regex(std::string_view name, std::string_view pattern, std::string_view options)
{
    RequireNoNul(pattern);
    RequireNoNul(options);
    element made(Regex, name, pattern.size() + 1 + options.size() + 1);
    WriteText(WriteText(made.value(), pattern), options);
    return made;
}

element element::make_object(std::string_view name, const object& value)
{
    element made(Object, name, value.frozen_size());
    value.write(made.value());
    return made;
}

element element::make_binary(std::string_view name, const void* data, unsigned length, BinaryType type)
{
    const std::uint64_t count = RequireCount(length);
    element made(Binary, name, sizeof(std::int32_t) + 1 + count);
    Store(made.value(), static_cast<std::int32_t>(count));
    made.value()[sizeof(std::int32_t)] = static_cast<unsigned char>(type);
    if (length > 0) std::memcpy(made.value() + sizeof(std::int32_t) + 1, data, length);
    return made;
}

const char* element::name() const noexcept
{
    return view().Name();
}

std::wstring element::name_utf16() const
{
    return WideFromUtf8(name());
}

bool element::operator==(const element& other) const noexcept
{
    return total_ == other.total_ && (total_ == 0 || std::memcmp(raw(), other.raw(), total_) == 0);
}

std::int8_t element::as_int8() const
{
    return view().Read<std::int8_t>();
}
std::uint8_t element::as_uint8() const
{
    return view().Read<std::uint8_t>();
}
std::int16_t element::as_int16() const
{
    return view().Read<std::int16_t>();
}
std::uint16_t element::as_uint16() const
{
    return view().Read<std::uint16_t>();
}
std::int32_t element::as_int32() const
{
    return view().Read<std::int32_t>();
}
std::uint32_t element::as_uint32() const
{
    return view().Read<std::uint32_t>();
}
std::int64_t element::as_int64() const
{
    return view().Read<std::int64_t>();
}
std::uint64_t element::as_uint64() const
{
    return view().Read<std::uint64_t>();
}
float element::as_float() const
{
    return view().Read<float>();
}
double element::as_double() const
{
    return view().Read<double>();
}

bool element::as_boolean() const
{
    view().Require(Boolean);
    return *raw_value() != 0;
}

std::chrono::milliseconds element::as_datetime() const
{
    view().Require(DateTime);
    return std::chrono::milliseconds(Load<std::int64_t>(raw_value()));
}

std::string element::as_string() const
{
    view().Require(String);
    const auto length = Load<std::uint32_t>(raw_value()) - 1;
    return {reinterpret_cast<const char*>(raw_value()) + sizeof(std::int32_t), length};
}

std::wstring element::as_string_utf16() const
{
    return WideFromUtf8(as_string());
}

element::object element::as_object() const
{
    object result;
    for (const View& child : Children(view())) result.append(element(child));
    return result;
}

std::pair<const char*, const char*> element::as_regex() const
{
    view().Require(Regex);
    const char* const pattern = reinterpret_cast<const char*>(raw_value());
    return {pattern, pattern + std::strlen(pattern) + 1};
}

std::tuple<const unsigned char*, unsigned, element::BinaryType> element::as_binary() const
{
    return view().Binary();
}

element::object element::children() const
{
    return as_object();
}

element element::child(std::string_view name) const
{
    return element(FindChild(view(), [&](const char* candidate) { return name == candidate; }));
}

element element::child(const std::regex& pattern) const
{
    return element(FindChild(view(), [&](const char* candidate) { return Matches(candidate, pattern); }));
}

element element::query(const std::list<std::string>& path) const
{
    return element(FollowPath(view(), path.begin(), path.end()));
}

std::list<std::string> element::split_path(std::string_view path)
{
    std::list<std::string> names;
    for (std::size_t begin = 0; (begin = path.find_first_not_of('/', begin)) != std::string_view::npos;) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        names.emplace_back(path.substr(begin, end - begin));
        begin = end;
    }
    return names;
}

bool element::freeze(std::ostream& stream) const
{
    return Write(stream, total_, [&] { WriteBytes(stream, raw(), total_); });
}

element::object& element::object::append(element next)
{
    elements_.push_back(std::move(next));
    return *this;
}

element::object& element::object::append(object next)
{
    if (elements_.empty()) {
        elements_ = std::move(next.elements_);
    } else {
        elements_.insert(elements_.end(), std::make_move_iterator(next.elements_.begin()),
                         std::make_move_iterator(next.elements_.end()));
    }
    return *this;
}

std::uint64_t element::object::size() const noexcept
{
    std::uint64_t size = sizeof(std::uint32_t) + 1;
    for (const element& e : elements_) size += e.total_;
    return size;
}

std::uint64_t element::object::frozen_size() const
{
    const std::uint64_t frozen = size();
    if (frozen - sizeof(std::uint32_t) - 1 > std::numeric_limits<std::uint32_t>::max())
        throw std::length_error("object too long");
    return frozen;
}

const element& element::object::child(std::string_view name) const& noexcept
{
    for (const element& e : elements_)
        if (name == e.name()) return e;
    return EmptyElement();
}

const element& element::object::child(const std::regex& pattern) const&
{
    for (const element& e : elements_)
        if (Matches(e.name(), pattern)) return e;
    return EmptyElement();
}

element element::object::child(std::string_view name) &&
{
    return std::as_const(*this).child(name);
}

element element::object::child(const std::regex& pattern) &&
{
    return std::as_const(*this).child(pattern);
}

element element::object::query(const std::list<std::string>& path) const
{
    if (path.empty()) return {};
    return element(FollowPath(child(path.front()).view(), std::next(path.begin()), path.end()));
}

/// `frozen` has room for size() bytes.
void element::object::write(unsigned char* frozen) const
{
    Store(frozen, static_cast<std::uint32_t>(size() - sizeof(std::uint32_t) - 1));
    frozen += sizeof(std::uint32_t);
    for (const element& e : elements_) {
        if (e.total_ > 0) std::memcpy(frozen, e.raw(), e.total_);
        frozen += e.total_;
    }
    *frozen = 0;
}

std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t> element::object::freeze() const
{
    const std::uint64_t size = frozen_size();
    auto frozen = std::make_unique_for_overwrite<unsigned char[]>(size);
    write(frozen.get());
    return {std::move(frozen), size};
}

bool element::object::freeze(std::ostream& stream) const
{
    const std::uint64_t size = frozen_size();
    return Write(stream, size, [&] {
        unsigned char count[sizeof(std::uint32_t)];
        Store(count, static_cast<std::uint32_t>(size - sizeof(count) - 1));
        WriteBytes(stream, count, sizeof(count));
        for (const element& e : elements_) WriteBytes(stream, e.raw(), e.total_);
        stream.put(0);
    });
}

} // namespace VoAlgo::bson
