#pragma once

#include "VoAlgorithms/bson/element.h"
#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <cmath>
#include <compare>
#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <variant>

namespace VoAlgo {

/// A value whose type is known at run time: nothing, a truth value, a number, a string, a vector, a matrix, a map of
/// names to such values, or an element of a document. It owns what it holds; a copy is deep.
class VOALGO_API Any {
public:
    ///@{
    /// What an Any may hold. Integers have 64 bits; an unsigned one is held as such only beyond the signed ones.
    using Vector = TVector<double>;
    using Matrix = TMatrix<double>;
    using Map = std::map<std::string, Any, std::less<>>;
    using Value = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Vector, Matrix,
                               Map, bson::element>;
    ///@}

    /// Nothing.
    Any() = default;
    ///@{
    /// Holds a copy of the value.
    Any(bool value) : value_(value) {}
    Any(std::floating_point auto value) : value_(static_cast<double>(value)) {}
    template <std::integral T>
    Any(T value) : value_(held(value))
    {
    }
    Any(const char* value) : value_(std::string(value)) {}
    Any(std::string_view value) : value_(std::string(value)) {}
    Any(std::string value) : value_(std::move(value)) {}
    Any(Vector value) : value_(std::move(value)) {}
    Any(Matrix value) : value_(std::move(value)) {}
    Any(Map value) : value_(std::move(value)) {}
    explicit Any(Value value) : value_(std::move(value)) {}
    ///@}
    /// Other pointers would silently become truth values.
    template <class T>
    Any(const T* value) = delete;

    /// The value of a document's element: null is nothing, integers of any width and both floating-point types are
    /// numbers. Objects are maps, vectors and matrices where ToElement would have written them so. All else (binary,
    /// date, regular expression, objects that name two elements alike) is held as the element, without its name.
    [[nodiscard]] static Any FromElement(const bson::element& element);
    /// An element of this name that FromElement reads back as an equal value. A vector is {"$vector": binary}, a matrix
    /// {"$matrix": {"rows", "cols", "columnwise": binary}}, the numbers as little-endian doubles. Throws as
    /// bson::element; recurses into maps.
    [[nodiscard]] bson::element ToElement(std::string_view name) const;

    /// Whether it holds nothing.
    [[nodiscard]] bool IsEmpty() const noexcept { return Is<std::monostate>(); }
    /// Whether it holds a value of this very type, one of those of Value.
    template <class T>
    [[nodiscard]] bool Is() const noexcept
    {
        return std::holds_alternative<T>(value_);
    }
    /// Calls the visitor with the value held, whatever its type.
    template <class Visitor>
    decltype(auto) Visit(Visitor&& visitor) const
    {
        return std::visit(std::forward<Visitor>(visitor), value_);
    }
    ///@{
    /// The value held, of this very type. Throws std::bad_cast when it holds another.
    template <class T>
    [[nodiscard]] const T& Get() const
    {
        if (const T* value = std::get_if<T>(&value_)) return *value;
        throw std::bad_cast();
    }
    template <class T>
    [[nodiscard]] T& Get()
    {
        return const_cast<T&>(std::as_const(*this).template Get<T>());
    }
    ///@}
    /// The number held, as a number of another type. Throws std::bad_cast for a value that is no number, and when T
    /// cannot represent it exactly (NaN becomes NaN).
    template <class T>
    requires std::is_arithmetic_v<T> &&(!std::same_as<T, bool>) [[nodiscard]] T To() const
    {
        if (const auto* i = std::get_if<std::int64_t>(&value_)) return exactly<T>(*i);
        if (const auto* u = std::get_if<std::uint64_t>(&value_)) return exactly<T>(*u);
        return exactly<T>(Get<double>());
    }

    /// Numbers are equal when their values are, whatever their types; other values when type and content are.
    [[nodiscard]] bool operator==(const Any& other) const;
    /// Orders numbers by their values, strings by their bytes, and false before true; everything else is unordered
    /// unless it is equal.
    [[nodiscard]] std::partial_ordering operator<=>(const Any& other) const;

private:
    template <class T>
    static Value held(T value)
    {
        if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
        return static_cast<std::uint64_t>(value);
    }
    template <class T, class From>
    static T exactly(From value)
    {
        if constexpr (std::integral<T> && std::integral<From>) {
            if (std::in_range<T>(value)) return static_cast<T>(value);
        } else if constexpr (std::integral<T>) { // both bounds are powers of two, or 0: exact
            const From end = std::ldexp(From{1}, std::numeric_limits<T>::digits);
            const From begin = static_cast<From>(std::numeric_limits<T>::min());
            if (value >= begin && value < end && static_cast<From>(static_cast<T>(value)) == value)
                return static_cast<T>(value);
        } else {
            const T converted = static_cast<T>(value);
            if constexpr (std::integral<From>) {
                if (isExactly(converted, value)) return converted;
            } else if (static_cast<From>(converted) == value || value != value) {
                return converted;
            }
        }
        throw std::bad_cast();
    }
    template <class T, class From>
    static bool isExactly(T converted, From value)
    {
        const T end = std::ldexp(T{1}, std::numeric_limits<From>::digits);
        return converted < end && static_cast<From>(converted) == value;
    }

    Value value_;
};

/// Writes the value as JSON would: numbers so that they read back exactly, strings in quotation marks, vectors and
/// matrices as (nested, row by row) lists, maps in the order of their names, nothing as null.
VOALGO_API std::ostream& operator<<(std::ostream& stream, const Any& value);

} // namespace VoAlgo
