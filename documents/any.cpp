#include "VoAlgorithms/documents/any.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <optional>
#include <ostream>
#include <tuple>
#include <vector>

namespace VoAlgo {
namespace {

using bson::element;

constexpr std::string_view VectorKey = "$vector";
constexpr std::string_view MatrixKey = "$matrix";

/// Visitors made of lambdas.
template <class... F>
struct Overloaded : F... {
    using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

std::vector<unsigned char> LittleEndian(const double* values, std::size_t count)
{
    std::vector<unsigned char> bytes(count * sizeof(double));
    for (std::size_t i = 0; i < count; ++i) {
        auto bits = std::bit_cast<std::uint64_t>(values[i]);
        for (std::size_t b = 0; b < sizeof bits; ++b, bits >>= 8U)
            bytes[i * sizeof bits + b] = static_cast<unsigned char>(bits);
    }
    return bytes;
}

double DoubleAt(const unsigned char* bytes)
{
    std::uint64_t bits = 0;
    for (std::size_t b = sizeof bits; b-- > 0;) bits = bits << 8U | bytes[b];
    return std::bit_cast<double>(bits);
}

element BinaryOf(std::string_view name, const double* values, std::size_t count)
{
    if (count >= std::numeric_limits<std::int32_t>::max() / sizeof(double))
        throw std::length_error("Any: too many numbers for an element");
    const std::vector<unsigned char> bytes = LittleEndian(values, count);
    return {name, bytes.data(), static_cast<unsigned>(bytes.size())};
}

/// Whether the element is a binary of so many doubles; reads them.
template <class Numbers>
bool ReadDoubles(const element& binary, Numbers&& numbers)
{
    if (binary.type() != element::Binary) return false;
    const auto [bytes, size, type] = binary.as_binary();
    if (size % sizeof(double) != 0) return false;
    double* values = numbers(size / sizeof(double));
    if (values == nullptr && size > 0) return false;
    for (std::size_t i = 0; i < size / sizeof(double); ++i) values[i] = DoubleAt(bytes + i * sizeof(double));
    return true;
}

std::optional<Any> VectorFrom(const element& only)
{
    Any::Vector vector;
    const bool isVector = ReadDoubles(only, [&](std::size_t count) {
        vector = Any::Vector(count);
        return vector.Data();
    });
    return isVector ? std::optional<Any>(std::move(vector)) : std::nullopt;
}

std::optional<Any> MatrixFrom(const element& only)
{
    const element rows = only.child("rows"), cols = only.child("cols");
    if (rows.type() != element::UInt32 || cols.type() != element::UInt32) return std::nullopt;
    Any::Matrix matrix;
    const bool isMatrix = ReadDoubles(only.child("columnwise"), [&](std::size_t count) -> double* {
        if (std::uint64_t{rows.as_uint32()} * cols.as_uint32() != count) return nullptr;
        matrix = Any::Matrix(rows.as_uint32(), cols.as_uint32());
        return matrix.Data();
    });
    const bool isWhole = matrix.Rows() == rows.as_uint32() && matrix.Cols() == cols.as_uint32();
    return isMatrix && isWhole ? std::optional<Any>(std::move(matrix)) : std::nullopt;
}

/// The same value without the element's name.
element Unnamed(const element& named)
{
    const auto [bytes, size] = named.freeze();
    std::vector<unsigned char> unnamed = {bytes[0], 0};
    unnamed.insert(unnamed.end(), named.raw_value(), named.raw_value() + named.size_of_value());
    return element::unfreeze(unnamed.data(), unnamed.size());
}

element Named(std::string_view name, const element& value)
{
    if (value.type() == element::Empty) return element(name);
    std::vector<unsigned char> named = {static_cast<unsigned char>(value.type())};
    named.insert(named.end(), name.begin(), name.end());
    named.push_back(0);
    named.insert(named.end(), value.raw_value(), value.raw_value() + value.size_of_value());
    return element::unfreeze(named.data(), named.size());
}

Any FromObject(const element& object)
{
    const element::object children = object.children();
    if (children.end() - children.begin() == 1) {
        const element& only = *children.begin();
        if (only.name() == VectorKey)
            if (std::optional<Any> vector = VectorFrom(only)) return *std::move(vector);
        if (only.name() == MatrixKey)
            if (std::optional<Any> matrix = MatrixFrom(only)) return *std::move(matrix);
    }
    Any::Map map;
    for (const element& child : children)
        if (!map.try_emplace(child.name(), Any::FromElement(child)).second) return Any(Any::Value(Unnamed(object)));
    return map;
}

std::partial_ordering CompareNumbers(std::int64_t a, std::uint64_t b)
{
    return std::cmp_less(a, b) ? std::partial_ordering::less : a <=> static_cast<std::int64_t>(b);
}

/// Exact, although the double may lie between two integers, or beyond all.
template <class Integer>
std::partial_ordering CompareNumbers(Integer a, double b)
{
    const double end = std::ldexp(1.0, std::numeric_limits<Integer>::digits);
    if (std::isnan(b)) return std::partial_ordering::unordered;
    if (b >= end) return std::partial_ordering::less;
    if (b < static_cast<double>(std::numeric_limits<Integer>::min())) return std::partial_ordering::greater;
    const double whole = std::trunc(b);
    const std::partial_ordering order = a <=> static_cast<Integer>(whole);
    return order != 0 ? order : 0.0 <=> b - whole;
}

std::partial_ordering Reversed(std::partial_ordering order)
{
    return 0 <=> order;
}

std::partial_ordering EqualOrUnordered(bool isEqual)
{
    return isEqual ? std::partial_ordering::equivalent : std::partial_ordering::unordered;
}

void PrintString(std::ostream& stream, std::string_view text)
{
    stream << element::make_string("", std::string(text)).to_json();
}

void PrintNumber(std::ostream& stream, double value)
{
    stream << element::make_double("", value).to_json();
}

template <class At>
void PrintList(std::ostream& stream, std::size_t size, At&& at)
{
    stream << '[';
    for (std::size_t i = 0; i < size; ++i) {
        if (i > 0) stream << ',';
        at(i);
    }
    stream << ']';
}

} // namespace

Any Any::FromElement(const bson::element& element)
{
    switch (element.type()) {
    case bson::element::Empty:
    case bson::element::Null:
        return {};
    case bson::element::Boolean:
        return element.as_boolean();
    case bson::element::Int8:
        return element.as_int8();
    case bson::element::Int16:
        return element.as_int16();
    case bson::element::Int32:
        return element.as_int32();
    case bson::element::Int64:
        return element.as_int64();
    case bson::element::UInt8:
        return element.as_uint8();
    case bson::element::UInt16:
        return element.as_uint16();
    case bson::element::UInt32:
        return element.as_uint32();
    case bson::element::UInt64:
        return element.as_uint64();
    case bson::element::Float:
        return element.as_float();
    case bson::element::Double:
        return element.as_double();
    case bson::element::String:
        return element.as_string();
    case bson::element::Object:
        return FromObject(element);
    default:
        return Any(Value(Unnamed(element)));
    }
}

bson::element Any::ToElement(std::string_view name) const
{
    const auto object = [name](const element::object& children) { return element::make_object(name, children); };
    return std::visit(Overloaded{
                          [&](std::monostate) { return element(name); },
                          [&](bool value) { return element::make_boolean(name, value); },
                          [&](std::int64_t value) { return element::make_int64(name, value); },
                          [&](std::uint64_t value) { return element::make_uint64(name, value); },
                          [&](double value) { return element::make_double(name, value); },
                          [&](const std::string& value) { return element::make_string(name, value); },
                          [&](const Vector& value) {
                              return object(element::object(BinaryOf(VectorKey, value.Data(), value.Size())));
                          },
                          [&](const Matrix& value) {
                              element::object matrix(element::make_uint32("rows", value.Rows()));
                              matrix.append(element::make_uint32("cols", value.Cols()));
                              matrix.append(
                                  BinaryOf("columnwise", value.Data(), std::size_t{value.Rows()} * value.Cols()));
                              return object(element::object(element::make_object(MatrixKey, matrix)));
                          },
                          [&](const Map& value) {
                              element::object map;
                              for (const auto& [key, child] : value) map.append(child.ToElement(key));
                              return object(map);
                          },
                          [&](const element& value) { return Named(name, value); },
                      },
                      value_);
}

bool Any::operator==(const Any& other) const
{
    return (*this <=> other) == 0;
}

std::partial_ordering Any::operator<=>(const Any& other) const
{
    return std::visit(Overloaded{
                          [](std::int64_t a, std::uint64_t b) { return CompareNumbers(a, b); },
                          [](std::uint64_t a, std::int64_t b) { return Reversed(CompareNumbers(b, a)); },
                          []<std::integral Integer>(Integer a, double b) {
                              if constexpr (std::same_as<Integer, bool>)
                                  return std::partial_ordering::unordered;
                              else
                                  return CompareNumbers(a, b);
                          },
                          []<std::integral Integer>(double a, Integer b) {
                              if constexpr (std::same_as<Integer, bool>)
                                  return std::partial_ordering::unordered;
                              else
                                  return Reversed(CompareNumbers(b, a));
                          },
                          []<class T>(const T& a, const T& b) -> std::partial_ordering {
                              if constexpr (std::is_arithmetic_v<T> || std::same_as<T, std::string>)
                                  return a <=> b;
                              else
                                  return EqualOrUnordered(a == b);
                          },
                          [](const auto&, const auto&) { return std::partial_ordering::unordered; },
                      },
                      value_, other.value_);
}

std::ostream& operator<<(std::ostream& stream, const Any& value)
{
    value.Visit(Overloaded{
        [&](std::monostate) { stream << "null"; },
        [&](bool b) { stream << (b ? "true" : "false"); },
        [&](double d) { PrintNumber(stream, d); },
        [&](const std::string& text) { PrintString(stream, text); },
        [&](const Any::Vector& v) { PrintList(stream, v.Size(), [&](std::size_t i) { PrintNumber(stream, v[i]); }); },
        [&](const Any::Matrix& m) {
            PrintList(stream, m.Rows(), [&](std::size_t r) {
                PrintList(stream, m.Cols(), [&](std::size_t c) { PrintNumber(stream, m(r, c)); });
            });
        },
        [&](const Any::Map& map) {
            const char* before = "{";
            for (const auto& [name, child] : map) {
                stream << std::exchange(before, ",");
                PrintString(stream, name);
                stream << ':' << child;
            }
            stream << (map.empty() ? "{}" : "}");
        },
        [&](const element& e) { stream << e.to_json(); },
        [&](const auto& integer) { stream << std::to_string(integer); },
    });
    return stream;
}

} // namespace VoAlgo
