#pragma once

#include "VoAlgorithms/bson/element.h"

#include <bit>
#include <cstring>
#include <optional>
#include <type_traits>

namespace VoAlgo::bson::detail {

static_assert(std::endian::native == std::endian::little, "documents are little-endian");

template <class T>
T Load(const unsigned char* bytes)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template <class T>
void Store(unsigned char* bytes, const T& value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(bytes, &value, sizeof(T));
}

/// The type code of a plain value.
template <class T>
constexpr element::Type TypeOf = element::Empty;
template <>
inline constexpr element::Type TypeOf<double> = element::Double;
template <>
inline constexpr element::Type TypeOf<float> = element::Float;
template <>
inline constexpr element::Type TypeOf<std::int8_t> = element::Int8;
template <>
inline constexpr element::Type TypeOf<std::uint8_t> = element::UInt8;
template <>
inline constexpr element::Type TypeOf<std::int16_t> = element::Int16;
template <>
inline constexpr element::Type TypeOf<std::uint16_t> = element::UInt16;
template <>
inline constexpr element::Type TypeOf<std::int32_t> = element::Int32;
template <>
inline constexpr element::Type TypeOf<std::uint32_t> = element::UInt32;
template <>
inline constexpr element::Type TypeOf<std::int64_t> = element::Int64;
template <>
inline constexpr element::Type TypeOf<std::uint64_t> = element::UInt64;

/// Bytes of a value of this type code; nothing when they vary (string, object, binary, regex) or the code is unknown.
constexpr std::optional<std::size_t> FixedSize(int type)
{
    switch (type) {
    case element::Double:
    case element::DateTime:
    case element::UInt64:
    case element::Int64:
        return 8;
    case element::Int32:
    case element::Float:
    case element::UInt32:
        return 4;
    case element::Int16:
    case element::UInt16:
        return 2;
    case element::Boolean:
    case element::UInt8:
    case element::Int8:
        return 1;
    case element::Null:
        return 0;
    default:
        return std::nullopt;
    }
}

/// The bytes of an element, borrowed and well formed; or none, as of the empty element.
struct View {
    const unsigned char* raw = nullptr;
    std::size_t total = 0;
    std::size_t valueSize = 0;

    [[nodiscard]] static View Of(const element& e)
    {
        return {e.raw(), static_cast<std::size_t>(e.freeze().second), static_cast<std::size_t>(e.size_of_value())};
    }
    /// The element that begins here.
    [[nodiscard]] static View At(const unsigned char* bytes);

    [[nodiscard]] element::Type Type() const { return raw ? static_cast<element::Type>(*raw) : element::Empty; }
    [[nodiscard]] const char* Name() const { return raw ? reinterpret_cast<const char*>(raw + 1) : ""; }
    [[nodiscard]] const unsigned char* Value() const { return raw + (total - valueSize); }
    void Require(element::Type type) const
    {
        if (Type() != type) throw bad_cast();
    }
    /// The plain value of exactly this type; throws bad_cast for another.
    template <class T>
    [[nodiscard]] T Read() const
    {
        static_assert(TypeOf<T> != element::Empty);
        Require(TypeOf<T>);
        return Load<T>(Value());
    }
    /// Bytes, number and subtype of a binary; throws bad_cast for another type.
    [[nodiscard]] std::tuple<const unsigned char*, unsigned, element::BinaryType> Binary() const
    {
        Require(element::Binary);
        return {Value() + 5, Load<std::uint32_t>(Value()), static_cast<element::BinaryType>(Value()[4])};
    }
};

/// The children of an object element for a range-based for; throws bad_cast for another type.
class Children {
public:
    class Iterator {
    public:
        explicit Iterator(const unsigned char* bytes) : bytes_(bytes) { look(); }
        const View& operator*() const { return view_; }
        Iterator& operator++()
        {
            bytes_ += view_.total;
            look();
            return *this;
        }
        bool operator!=(std::nullptr_t) const { return view_.raw != nullptr; }

    private:
        void look() { view_ = *bytes_ == 0 ? View() : View::At(bytes_); }

        const unsigned char* bytes_;
        View view_;
    };

    explicit Children(const View& parent) : value_(parent.Value()) { parent.Require(element::Object); }
    [[nodiscard]] Iterator begin() const { return Iterator(value_ + sizeof(std::uint32_t)); }
    [[nodiscard]] static std::nullptr_t end() { return nullptr; }

private:
    const unsigned char* value_;
};

} // namespace VoAlgo::bson::detail
