#pragma once

#include <stdexcept>

namespace VoAlgo {

/// A 4×4 matrix stored row by row, by default the identity. For homogeneous poses the upper-left 3×3 is the linear part
/// and the last column the translation.
template <typename T>
class TbMatrix4R {
public:
    /// The identity.
    constexpr TbMatrix4R() = default;

    ///@{
    /// Rows and columns 0 to 3. Throws std::invalid_argument ("invalid row or column index") for any other index.
    constexpr T operator()(unsigned row, unsigned col) const { return elements_[index(row, col)]; }
    constexpr T& operator()(unsigned row, unsigned col) { return elements_[index(row, col)]; }
    ///@}

    ///@{
    /// The 16 elements, row by row.
    [[nodiscard]] constexpr const T* Data() const { return elements_; }
    [[nodiscard]] constexpr T* Data() { return elements_; }
    ///@}

    /// Exact equality of all elements.
    constexpr bool operator==(const TbMatrix4R& other) const = default;

private:
    static constexpr unsigned index(unsigned row, unsigned col)
    {
        if (row > 3 || col > 3) throw std::invalid_argument("invalid row or column index");
        return 4 * row + col;
    }

    T elements_[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
};

///@{
/// The two precisions in use.
using CbMatrix4Rd = TbMatrix4R<double>;
using CbMatrix4Rf = TbMatrix4R<float>;
///@}

} // namespace VoAlgo
