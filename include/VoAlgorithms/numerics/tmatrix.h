#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <algorithm>
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

/// A dense matrix of float, double or int, stored column by column without gaps: element (r, c) is at c·rows + r, as
/// LAPACK expects. It owns its elements; copying copies them, and a moved-from matrix is 0×0. Wrong use throws
/// std::invalid_argument: a row or column beyond the end ("invalid row or column index"), operands whose shapes do not
/// fit ("sizes do not fit").
template <class T>
class TMatrix {
    static_assert(std::is_same_v<T, float> || std::is_same_v<T, double> || std::is_same_v<T, int>);

public:
    /// Type of the elements.
    using value_type = T;

    /// 0×0.
    TMatrix() = default;
    /// Every element has the given value. Throws std::length_error when rows or columns reach 2^32 (so also for
    /// negative numbers).
    TMatrix(std::integral auto rows, std::integral auto cols, T value = T{})
        : rows_(checked(rows)), cols_(checked(cols)), elements_(std::size_t{rows_} * cols_, value)
    {
    }
    /// Row by row: TMatrix<double>{{1, 2}, {3, 4}}. All rows must have the same length.
    TMatrix(std::initializer_list<std::initializer_list<T>> rows)
        : TMatrix(rows.size(), rows.size() != 0 ? rows.begin()->size() : 0)
    {
        std::size_t r = 0;
        for (const auto& row : rows) {
            if (row.size() != cols_) throw std::invalid_argument("sizes do not fit");
            std::size_t c = 0;
            for (const T e : row) elements_[c++ * rows_ + r] = e;
            ++r;
        }
    }
    TMatrix(const TMatrix&) = default;
    TMatrix& operator=(const TMatrix&) = default;
    ///@{
    /// Takes over the elements; `other` becomes 0×0.
    TMatrix(TMatrix&& other) noexcept { swap(other); }
    TMatrix& operator=(TMatrix&& other) noexcept
    {
        TMatrix moved(std::move(other));
        swap(moved);
        return *this;
    }
    ///@}
    ~TMatrix() = default;

    /// size × size, 1 on the diagonal and 0 elsewhere.
    [[nodiscard]] static TMatrix Identity(std::integral auto size)
    {
        TMatrix m(size, size);
        for (std::size_t i = 0; i < m.rows_; ++i) m.elements_[i * m.rows_ + i] = 1;
        return m;
    }

    ///@{
    /// The dimensions.
    [[nodiscard]] std::uint32_t Rows() const { return rows_; }
    [[nodiscard]] std::uint32_t Cols() const { return cols_; }
    ///@}
    /// No elements: one of the dimensions may still be positive.
    [[nodiscard]] bool Empty() const { return elements_.empty(); }
    ///@{
    /// All elements, column by column.
    [[nodiscard]] T* Data() { return elements_.data(); }
    [[nodiscard]] const T* Data() const { return elements_.data(); }
    ///@}

    ///@{
    /// Element (row, col), counted from 0. Throws std::invalid_argument ("invalid row or column index") beyond the end.
    T& operator()(std::integral auto row, std::integral auto col) { return elements_[index(row, col)]; }
    const T& operator()(std::integral auto row, std::integral auto col) const { return elements_[index(row, col)]; }
    ///@}

    ///@{
    /// A column in place, unchecked: for inner loops, where checking every index would cost time.
    [[nodiscard]] std::span<T> Column(std::integral auto col) { return {elements_.data() + columnStart(col), rows_}; }
    [[nodiscard]] std::span<const T> Column(std::integral auto col) const
    {
        return {elements_.data() + columnStart(col), rows_};
    }
    ///@}
    /// A copy of a row.
    [[nodiscard]] TVector<T> Row(std::integral auto row) const
    {
        const std::size_t r = inRange(row, rows_);
        TVector<T> copy(cols_);
        for (std::size_t c = 0; c < cols_; ++c) copy.Data()[c] = elements_[c * rows_ + r];
        return copy;
    }

    /// Reshapes the matrix and sets all elements to zero; allocates only when it needs more room than before.
    void Reset(std::integral auto rows, std::integral auto cols)
    {
        const std::uint32_t newRows = checked(rows);
        const std::uint32_t newCols = checked(cols);
        elements_.assign(std::size_t{newRows} * newCols, T{});
        rows_ = newRows;
        cols_ = newCols;
    }
    /// Sets every element.
    void Fill(T value) { std::fill(elements_.begin(), elements_.end(), value); }
    /// Adds a row below; a 0×0 matrix takes the row's length as its width. O(rows·cols): the columns move apart.
    void AppendRow(const TVector<T>& row)
    {
        if (rows_ != 0 || cols_ != 0)
            if (row.Size() != cols_) throw std::invalid_argument("sizes do not fit");
        TMatrix grown(std::size_t{rows_} + 1, row.Size());
        for (std::size_t c = 0; c < grown.cols_; ++c) {
            std::copy_n(elements_.data() + c * rows_, rows_, grown.elements_.data() + c * grown.rows_);
            grown.elements_[c * grown.rows_ + rows_] = row[c];
        }
        swap(grown);
    }

    /// aᵀ, as a new matrix.
    [[nodiscard]] TMatrix Transposed() const
    {
        TMatrix t(cols_, rows_);
        for (std::size_t c = 0; c < cols_; ++c)
            for (std::size_t r = 0; r < rows_; ++r) t.elements_[r * cols_ + c] = elements_[c * rows_ + r];
        return t;
    }

    ///@{
    /// Arithmetic by element. Throws std::invalid_argument ("sizes do not fit") for different shapes.
    TMatrix& operator+=(const TMatrix& other)
    {
        fits(other);
        for (std::size_t i = 0; i < elements_.size(); ++i) elements_[i] += other.elements_[i];
        return *this;
    }
    TMatrix& operator-=(const TMatrix& other)
    {
        fits(other);
        for (std::size_t i = 0; i < elements_.size(); ++i) elements_[i] -= other.elements_[i];
        return *this;
    }
    TMatrix& operator*=(T factor)
    {
        for (T& e : elements_) e *= factor;
        return *this;
    }
    friend TMatrix operator+(TMatrix a, const TMatrix& b) { return std::move(a += b); }
    friend TMatrix operator-(TMatrix a, const TMatrix& b) { return std::move(a -= b); }
    friend TMatrix operator*(TMatrix a, T factor) { return std::move(a *= factor); }
    friend TMatrix operator*(T factor, TMatrix a) { return std::move(a *= factor); }
    ///@}

    /// Whether shapes and all elements are equal; NaN equals nothing.
    bool operator==(const TMatrix& other) const = default;

    /// One row a line, the elements separated by blanks.
    friend std::ostream& operator<<(std::ostream& stream, const TMatrix& m)
    {
        for (std::size_t r = 0; r < m.rows_; ++r) stream << m.Row(r) << '\n';
        return stream;
    }

    /// Exchanges shapes and elements without copying any.
    void swap(TMatrix& other) noexcept
    {
        std::swap(rows_, other.rows_);
        std::swap(cols_, other.cols_);
        elements_.swap(other.elements_);
    }

private:
    static std::uint32_t checked(std::integral auto dimension)
    {
        if (static_cast<std::size_t>(dimension) > std::numeric_limits<std::uint32_t>::max())
            throw std::length_error("matrix too large");
        return static_cast<std::uint32_t>(dimension);
    }
    static std::size_t inRange(std::integral auto index, std::uint32_t size)
    {
        const auto i = static_cast<std::size_t>(index); // a negative one becomes too large
        if (i >= size) throw std::invalid_argument("invalid row or column index");
        return i;
    }
    [[nodiscard]] std::size_t index(std::integral auto row, std::integral auto col) const
    {
        const std::size_t r = inRange(row, rows_);
        return inRange(col, cols_) * rows_ + r;
    }
    [[nodiscard]] std::size_t columnStart(std::integral auto col) const { return inRange(col, cols_) * rows_; }
    void fits(const TMatrix& other) const
    {
        if (other.rows_ != rows_ || other.cols_ != cols_) throw std::invalid_argument("sizes do not fit");
    }

    std::uint32_t rows_ = 0;
    std::uint32_t cols_ = 0;
    std::vector<T> elements_;
};

///@{
/// product = a·b and product = aᵀ·b, through BLAS for float and double. `product` is reshaped, without an allocation if
/// it has room; it may be one of the factors, at the cost of an allocation. Int products are plain sums, which must not
/// overflow. Infinities and NaNs propagate. Throws std::invalid_argument ("sizes do not fit") for wrong shapes, and
/// std::length_error when a dimension exceeds BLAS's 32-bit signed integers.
template <class T>
VOALGO_API void Multiply(const TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& product);
template <class T>
VOALGO_API void Multiply(const TMatrix<T>& a, const TVector<T>& b, TVector<T>& product);
template <class T>
VOALGO_API void MultiplyTransposed(const TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& product);
template <class T>
VOALGO_API void MultiplyTransposed(const TMatrix<T>& a, const TVector<T>& b, TVector<T>& product);
///@}

///@{
/// a·b as a new object; throws as Multiply.
template <class T>
[[nodiscard]] TMatrix<T> operator*(const TMatrix<T>& a, const TMatrix<T>& b)
{
    TMatrix<T> product;
    Multiply(a, b, product);
    return product;
}

template <class T>
[[nodiscard]] TVector<T> operator*(const TMatrix<T>& a, const TVector<T>& b)
{
    TVector<T> product;
    Multiply(a, b, product);
    return product;
}
///@}

} // namespace VoAlgo
