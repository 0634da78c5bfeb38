#pragma once

#include "VoAlgorithms/export.h"

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <list>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

namespace VoAlgo::bson {

namespace detail {
struct View;
}

/// Thrown by the typed readers; its text is "bad cast" on every platform.
class VOALGO_API bad_cast : public std::bad_cast {
public:
    /// "bad cast".
    [[nodiscard]] const char* what() const noexcept override;
};

/// One named, typed value in its serialised form: a type byte, the name (UTF-8) with its NUL, the bytes of the value,
/// all integers little-endian. The element is the only owner of these bytes; they are always well formed, down to the
/// innermost object. The value of an object is its frozen form, so nothing here recurses, however deep the nesting.
///
/// Names, patterns and options must not contain NUL (std::invalid_argument). Strings, binaries and objects hold less
/// than 2 GiB, 2 GiB and 4 GiB (std::length_error). Text that is not UTF-8 is kept as it is; conversions replace broken
/// parts by U+FFFD.
class VOALGO_API element {
public:
    class object;

    /// The type byte. Numbers are little-endian, floating point is IEEE 754; the names of integers give their size.
    enum Type : unsigned char {
        Double = 1,   ///< 64 bits
        String = 2,   ///< UTF-8 with its length
        Object = 4,   ///< elements, see object
        Binary = 5,   ///< bytes with their number and BinaryType
        Boolean = 8,  ///< one byte
        DateTime = 9, ///< signed 64-bit milliseconds since 1970-01-01 UTC
        Null = 10,    ///< no bytes
        Regex = 11,   ///< pattern and options, each with its NUL
        ///@{
        /// A number.
        Int32 = 16,
        UInt64 = 17,
        Int64 = 18,
        Float = 128,
        UInt32 = 129,
        Int16 = 130,
        UInt16 = 131,
        UInt8 = 132,
        Int8 = 133,
        ///@}
        Empty = 255, ///< the empty element; never stored
    };
    /// Meaning of the bytes of a binary; other values are kept as well.
    enum class BinaryType : unsigned char {
        Generic = 0,       ///< any
        Function = 1,      ///< code
        Uuid = 4,          ///< 16 bytes of a UUID
        Md5 = 5,           ///< 16 bytes of a checksum
        UserDefined = 128, ///< private to the writer
    };

    /// The empty element: no bytes, type 255.
    element() noexcept = default;
    ///@{
    /// An element of the type that matches the C++ type by width and sign; character pointers and strings become
    /// String, a name without a value becomes Null. Copies the value.
    explicit element(std::string_view name);
    element(std::string_view name, signed char value);
    element(std::string_view name, unsigned char value);
    element(std::string_view name, short value);
    element(std::string_view name, unsigned short value);
    element(std::string_view name, int value);
    element(std::string_view name, unsigned int value);
    element(std::string_view name, long value); // int32 or int64, by the width of the platform's long
    element(std::string_view name, unsigned long value);
    element(std::string_view name, long long value);
    element(std::string_view name, unsigned long long value);
    element(std::string_view name, float value);
    element(std::string_view name, double value);
    element(std::string_view name, bool value);
    element(std::string_view name, std::chrono::milliseconds value);
    element(std::string_view name, const char* value);
    element(std::string_view name, const wchar_t* value);
    element(std::string_view name, const std::string& value);
    element(std::string_view name, const object& value);
    ///@}
    /// Binary, subtype Generic; the bytes are copied.
    element(std::string_view name, const void* data, unsigned length);
    /// Other pointers would silently become booleans.
    template <class T>
    element(std::string_view name, const T* value) = delete;

    ///@{
    /// A copy has its own bytes; a moved-from element is the empty element.
    element(const element& other);
    element(element&& other) noexcept;
    element& operator=(const element& other);
    element& operator=(element&& other) noexcept;
    ///@}
    ~element() = default;

    ///@{
    /// An element of the type in the function's name. Throws as stated for the class.
    [[nodiscard]] static element make_int8(std::string_view name, std::int8_t value);
    [[nodiscard]] static element make_uint8(std::string_view name, std::uint8_t value);
    [[nodiscard]] static element make_int16(std::string_view name, std::int16_t value);
    [[nodiscard]] static element make_uint16(std::string_view name, std::uint16_t value);
    [[nodiscard]] static element make_int32(std::string_view name, std::int32_t value);
    [[nodiscard]] static element make_uint32(std::string_view name, std::uint32_t value);
    [[nodiscard]] static element make_int64(std::string_view name, std::int64_t value);
    [[nodiscard]] static element make_uint64(std::string_view name, std::uint64_t value);
    [[nodiscard]] static element make_float(std::string_view name, float value);
    [[nodiscard]] static element make_double(std::string_view name, double value);
    [[nodiscard]] static element make_boolean(std::string_view name, bool value);
    [[nodiscard]] static element make_datetime(std::string_view name, std::chrono::milliseconds value);
    [[nodiscard]] static element make_null(std::string_view name);
    [[nodiscard]] static element make_string(std::string_view name, const std::string& value);
    [[nodiscard]] static element make_string(std::string_view name, const std::wstring& value);
    [[nodiscard]] static element make_regex(std::string_view name, std::string_view pattern, std::string_view options);
    [[nodiscard]] static element make_object(std::string_view name, const object& value);
    [[nodiscard]] static element make_binary(std::string_view name, const void* data, unsigned length,
                                             BinaryType type = BinaryType::Generic);
    ///@}

    /// The type byte, Empty for the empty element.
    [[nodiscard]] Type type() const noexcept { return buffer_ ? static_cast<Type>(buffer_[0]) : Empty; }
    /// Borrowed; "" for the empty element.
    [[nodiscard]] const char* name() const noexcept;
    /// The name in the platform's wide characters.
    [[nodiscard]] std::wstring name_utf16() const;
    ///@{
    /// All bytes, and those of the value; borrowed, null for the empty element.
    [[nodiscard]] const unsigned char* raw() const noexcept { return buffer_.get(); }
    [[nodiscard]] const unsigned char* raw_value() const noexcept { return buffer_.get() + (total_ - value_); }
    ///@}
    /// Bytes of the value.
    [[nodiscard]] std::uint64_t size_of_value() const noexcept { return value_; }
    /// Equality of all bytes.
    bool operator==(const element& other) const noexcept;

    ///@{
    /// The typed readers accept only their own type, without any widening, and throw bad_cast for every other.
    std::int8_t as_int8() const;
    std::uint8_t as_uint8() const;
    std::int16_t as_int16() const;
    std::uint16_t as_uint16() const;
    std::int32_t as_int32() const;
    std::uint32_t as_uint32() const;
    std::int64_t as_int64() const;
    std::uint64_t as_uint64() const;
    float as_float() const;
    double as_double() const;
    bool as_boolean() const; // any byte but 0 is true
    std::chrono::milliseconds as_datetime() const;
    std::string as_string() const;
    std::wstring as_string_utf16() const;
    object as_object() const; // copies the bytes of each child
    ///@}
    /// Pattern and options, borrowed.
    std::pair<const char*, const char*> as_regex() const;
    /// Bytes (borrowed, not aligned), their number, subtype.
    std::tuple<const unsigned char*, unsigned, BinaryType> as_binary() const;

    /// The elements of an object element, as as_object.
    object children() const;
    /// Copy of the first child of that name; the empty element when there is none or this is not an object.
    element child(std::string_view name) const;
    /// Copy of the first child whose whole name matches. Names of more than 1,024 bytes never match: the standard
    /// library's matcher recurses for every character.
    element child(const std::regex& pattern) const;
    ///@{
    /// Copy of the element at a path below this one: names separated by slashes, of which each selects the first child
    /// of that name. Empty names are ignored; a path without names leads to this element. The empty element when a
    /// child is missing. Only the result is copied.
    template <std::convertible_to<std::string_view> Path>
    element query(const Path& path) const
    {
        return query(split_path(path));
    }
    element query(const std::list<std::string>& path) const;
    ///@}

    /// All bytes (borrowed) and their number.
    std::pair<const unsigned char*, std::uint64_t> freeze() const noexcept { return {buffer_.get(), total_}; }
    /// Writes them; true exactly when the stream's position advanced by their number (never for a stream without
    /// positions).
    bool freeze(std::ostream& stream) const; // NOLINT(modernize-use-nodiscard)

    /// Reads one element. A stream that is exhausted before the type byte gives the empty element. Any other input that
    /// is not a complete element of a known type throws std::invalid_argument "parse error". The counts of objects are
    /// not trusted but corrected. Memory grows with the input read, not with the counts in it.
    static element unfreeze(std::istream& stream);
    /// The same from memory (borrowed); bytes after the element are ignored.
    static element unfreeze(const unsigned char* data, std::size_t size);

    /// The value as JSON; see object::to_json.
    [[nodiscard]] std::string to_json(std::size_t longestBinary = SIZE_MAX) const;

private:
    friend class object;
    using Bytes = std::unique_ptr<unsigned char[]>;

    template <class T>
    static element make_plain(std::string_view name, T plain);
    element(Type type, std::string_view name, std::uint64_t valueSize);
    element(Bytes bytes, std::uint64_t total, std::uint64_t value) noexcept;
    explicit element(const detail::View& view);
    [[nodiscard]] unsigned char* value() noexcept { return buffer_.get() + (total_ - value_); }
    [[nodiscard]] detail::View view() const noexcept;
    static std::list<std::string> split_path(std::string_view path);

    Bytes buffer_;
    std::uint64_t total_ = 0;
    std::uint64_t value_ = 0;
};

/// An ordered list of elements; names may repeat. An empty element in it takes no bytes when frozen.
///
/// Frozen form: unsigned 32-bit count S of the elements' bytes, the elements, one zero byte. The count leaves out
/// itself and the zero byte.
class VOALGO_API element::object {
public:
    /// No elements.
    object() = default;
    /// One element.
    explicit object(element first) { append(std::move(first)); }

    ///@{
    /// Adds an element, or all of another object, at the end; returns this object.
    object& append(element next);
    object& append(object next);
    ///@}

    ///@{
    /// The elements in order.
    [[nodiscard]] std::vector<element>::const_iterator begin() const noexcept { return elements_.begin(); }
    [[nodiscard]] std::vector<element>::const_iterator end() const noexcept { return elements_.end(); }
    ///@}
    /// Length of the frozen form, S + 5 bytes. The number of elements is end() − begin().
    [[nodiscard]] std::uint64_t size() const noexcept;

    ///@{
    /// The first element of that name (see element::child); a static empty element when there is none.
    const element& child(std::string_view name) const& noexcept;
    const element& child(const std::regex& pattern) const&;
    element child(std::string_view name) &&;
    element child(const std::regex& pattern) &&;
    ///@}
    ///@{
    /// As element::query; a path without names gives the empty element.
    template <std::convertible_to<std::string_view> Path>
    element query(const Path& path) const
    {
        return query(split_path(path));
    }
    element query(const std::list<std::string>& path) const;
    ///@}

    /// The frozen bytes and their number. Throws std::length_error when S exceeds 32 bits.
    std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t> freeze() const;
    /// Writes them without an intermediate copy; true exactly when the stream's position advanced by their number.
    bool freeze(std::ostream& stream) const; // NOLINT(modernize-use-nodiscard)

    ///@{
    /// Reads elements up to the terminating zero byte; the count is ignored. Fewer than four bytes give the empty
    /// object. Errors as for element::unfreeze; a missing terminator is one.
    static object unfreeze(std::istream& stream);
    static object unfreeze(const unsigned char* data, std::size_t size);
    ///@}
    /// For bytes that are known to hold a complete object: reading ends only at its terminator.
    static object unfreeze(const unsigned char* data);

    /// JSON text (RFC 8259, UTF-8, no spaces) of the elements in order, repeated names included. Numbers are the
    /// shortest text that reads back exactly; NaN and infinities are the strings "NaN", "Infinity" and "-Infinity".
    /// - binary: `{"$binary":{"base64":"…","subType":"00"}}`, the subtype in hexadecimal; one of more than
    ///   `longestBinary` bytes `{"$binary":{"size":n,"subType":"00"}}`
    /// - datetime: `{"$date":{"$numberLong":"…"}}`, milliseconds
    /// - regex: `{"$regularExpression":{"pattern":"…","options":"…"}}`
    [[nodiscard]] std::string to_json(std::size_t longestBinary = SIZE_MAX) const;

private:
    friend class element;

    [[nodiscard]] std::uint64_t frozen_size() const;
    void write(unsigned char* frozen) const;
    static std::optional<object> parse(std::streambuf& input, std::size_t available);

    std::vector<element> elements_;
};

///@{
/// element , element gives an object of both; object , element and object , object append (a const object is copied).
inline element::object operator,(element first, element second)
{
    element::object both(std::move(first));
    both.append(std::move(second));
    return both;
}
/// Right operand of the comma operators.
template <class Next>
concept element_or_object = std::same_as<Next, element> || std::same_as<Next, element::object>;
template <element_or_object Next>
element::object& operator,(element::object& head, Next next)
{
    return head.append(std::move(next));
}
template <element_or_object Next>
element::object operator,(element::object&& head, Next next)
{
    return std::move(head.append(std::move(next)));
}
template <element_or_object Next>
element::object operator,(const element::object& head, Next next)
{
    return element::object(head), std::move(next);
}
///@}

} // namespace VoAlgo::bson
