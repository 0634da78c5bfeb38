#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace VoAlgo {

/// The column permutation P of a pivoted factorisation a·P = Q·R, one entry for each column: column j of a·P is column
/// (*this)[j] of a. Entries count from 0.
class CPMatrix {
public:
    /// No columns.
    CPMatrix() = default;
    /// The identity. Throws as TVector does for too large a size.
    explicit CPMatrix(std::integral auto size) : source_(size) { std::iota(source_.begin(), source_.end(), 0); }

    /// Number of columns.
    [[nodiscard]] std::uint32_t Size() const { return source_.Size(); }
    ///@{
    /// The Size() entries, contiguous.
    [[nodiscard]] int* Data() { return source_.Data(); }
    [[nodiscard]] const int* Data() const { return source_.Data(); }
    ///@}

    ///@{
    /// The entry of a column, counted from 0. Throws std::invalid_argument ("invalid index") beyond the end.
    int& operator[](std::integral auto index) { return source_[index]; }
    const int& operator[](std::integral auto index) const { return source_[index]; }
    ///@}

    /// P itself: element ((*this)[j], j) is 1 for every j, all others are 0.
    template <class T>
    [[nodiscard]] TMatrix<T> Matrix() const
    {
        TMatrix<T> p(Size(), Size());
        for (std::size_t j = 0; j < Size(); ++j) p(source_[j], j) = 1;
        return p;
    }

    /// Whether both are the same permutation.
    bool operator==(const CPMatrix& other) const = default;

private:
    TVector<int> source_;
};

} // namespace VoAlgo
