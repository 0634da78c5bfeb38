#pragma once

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <span>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace VoAlgo {

/// A dense vector of float, double or int. It owns its elements; copying copies them, and a moved-from vector is empty.
/// Wrong use throws std::invalid_argument: an index beyond the end ("invalid index"), operands of different sizes
/// ("sizes do not fit").
template <class T>
class TVector {
    static_assert(std::is_same_v<T, float> || std::is_same_v<T, double> || std::is_same_v<T, int>);

public:
    /// Type of the elements.
    using value_type = T;

    /// No elements.
    TVector() = default;
    /// `size` elements of the given value. Throws std::length_error for 2^32 and more (so also for a negative int).
    explicit TVector(std::integral auto size, T value = T{}) : elements_(checked(size), value) {}
    ///@{
    /// A copy of the given elements.
    TVector(std::initializer_list<T> elements) : elements_(elements) {}
    explicit TVector(std::span<const T> elements) : elements_(elements.begin(), elements.end()) {}
    ///@}

    /// Number of elements.
    [[nodiscard]] std::uint32_t Size() const { return static_cast<std::uint32_t>(elements_.size()); }
    /// Whether there are none.
    [[nodiscard]] bool Empty() const { return elements_.empty(); }
    ///@{
    /// The elements, contiguous.
    [[nodiscard]] T* Data() { return elements_.data(); }
    [[nodiscard]] const T* Data() const { return elements_.data(); }
    ///@}

    ///@{
    /// Element `index`, counted from 0. Throws std::invalid_argument ("invalid index") beyond the end.
    T& operator[](std::integral auto index) { return elements_[inRange(index)]; }
    const T& operator[](std::integral auto index) const { return elements_[inRange(index)]; }
    ///@}

    ///@{
    /// Iterators over all elements in order, for range-based loops; any change of the size makes them invalid.
    auto begin() { return elements_.begin(); }
    auto end() { return elements_.end(); }
    auto begin() const { return elements_.begin(); }
    auto end() const { return elements_.end(); }
    ///@}

    /// Keeps the leading elements; new ones are zero.
    void Resize(std::integral auto size) { elements_.resize(checked(size)); }
    /// Sets every element.
    void Fill(T value) { std::fill(elements_.begin(), elements_.end(), value); }
    /// Adds an element at the end; amortised O(1). Throws std::length_error beyond 2^32 − 1 elements.
    void Append(T value)
    {
        checked(elements_.size() + 1);
        elements_.push_back(value);
    }

    ///@{
    /// Arithmetic by element. Throws std::invalid_argument ("sizes do not fit") for different sizes.
    TVector& operator+=(const TVector& other)
    {
        fits(other);
        for (std::size_t i = 0; i < elements_.size(); ++i) elements_[i] += other.elements_[i];
        return *this;
    }
    TVector& operator-=(const TVector& other)
    {
        fits(other);
        for (std::size_t i = 0; i < elements_.size(); ++i) elements_[i] -= other.elements_[i];
        return *this;
    }
    TVector& operator*=(T factor)
    {
        for (T& e : elements_) e *= factor;
        return *this;
    }
    friend TVector operator+(TVector a, const TVector& b) { return std::move(a += b); }
    friend TVector operator-(TVector a, const TVector& b) { return std::move(a -= b); }
    friend TVector operator*(TVector a, T factor) { return std::move(a *= factor); }
    friend TVector operator*(T factor, TVector a) { return std::move(a *= factor); }
    friend TVector operator-(TVector a)
    {
        for (T& e : a.elements_) e = -e;
        return a;
    }
    ///@}

    /// Σ aᵢ·bᵢ, summed in order.
    [[nodiscard]] T Dot(const TVector& other) const
    {
        fits(other);
        T sum{};
        for (std::size_t i = 0; i < elements_.size(); ++i) sum += elements_[i] * other.elements_[i];
        return sum;
    }
    /// √(Σ aᵢ²), summed in order; infinite when a square overflows.
    [[nodiscard]] T Norm() const requires std::is_floating_point_v<T> { return static_cast<T>(std::sqrt(Dot(*this))); }
    /// max |aᵢ|; 0 for an empty vector, NaN when an element is NaN.
    [[nodiscard]] T MaxAbs() const
    {
        T largest{};
        for (const T e : elements_) {
            const T magnitude = e < T{} ? -e : e;
            if (!(magnitude <= largest)) largest = magnitude;
            if (magnitude != magnitude) break;
        }
        return largest;
    }

    /// Whether sizes and all elements are equal; NaN equals nothing.
    bool operator==(const TVector& other) const = default;

    /// The elements on one line, separated by blanks.
    friend std::ostream& operator<<(std::ostream& stream, const TVector& v)
    {
        const char* separator = "";
        for (const T e : v.elements_) {
            stream << separator << e;
            separator = " ";
        }
        return stream;
    }

private:
    static std::size_t checked(std::integral auto size)
    {
        if (static_cast<std::size_t>(size) > std::numeric_limits<std::uint32_t>::max())
            throw std::length_error("vector too long");
        return static_cast<std::size_t>(size);
    }
    [[nodiscard]] std::size_t inRange(std::integral auto index) const
    {
        const auto i = static_cast<std::size_t>(index); // a negative one becomes too large
        if (i >= elements_.size()) throw std::invalid_argument("invalid index");
        return i;
    }
    void fits(const TVector& other) const
    {
        if (other.elements_.size() != elements_.size()) throw std::invalid_argument("sizes do not fit");
    }

    std::vector<T> elements_;
};

} // namespace VoAlgo
