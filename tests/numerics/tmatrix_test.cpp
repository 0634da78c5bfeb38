#include "VoAlgorithms/numerics/cpmatrix.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using VoAlgo::CPMatrix;
using VoAlgo::TMatrix;
using VoAlgo::TVector;

template <class T>
class TMatrixTest : public testing::Test {
protected:
    /// Small whole numbers, so that every product is exact in every type.
    TMatrix<T> random(unsigned rows, unsigned cols)
    {
        TMatrix<T> m(rows, cols);
        for (unsigned c = 0; c < cols; ++c)
            for (T& e : m.Column(c)) e = static_cast<T>(static_cast<int>(twister_() % 19) - 9);
        return m;
    }

    std::mt19937 twister_{4711};
};
using Types = testing::Types<float, double, int>;
TYPED_TEST_SUITE(TMatrixTest, Types);

// Catches rows for columns anywhere, and transposed or swapped arguments of the BLAS call.
TYPED_TEST(TMatrixTest, ProductsAreSumsOverTheInnerIndex)
{
    using T = TypeParam;
    for (const auto& [rows, inner, cols] :
         {std::array{3U, 4U, 5U}, {1U, 7U, 2U}, {6U, 1U, 6U}, {2U, 0U, 3U}, {0U, 3U, 2U}, {4U, 4U, 0U}}) {
        const TMatrix<T> a = this->random(rows, inner);
        const TMatrix<T> b = this->random(inner, cols);
        TMatrix<T> expected(rows, cols);
        for (unsigned r = 0; r < rows; ++r)
            for (unsigned c = 0; c < cols; ++c)
                for (unsigned k = 0; k < inner; ++k) expected(r, c) += a(r, k) * b(k, c);
        EXPECT_EQ(a * b, expected);
        TMatrix<T> product = this->random(7, 7); // shape and elements from before must not matter
        MultiplyTransposed(a.Transposed(), b, product);
        EXPECT_EQ(product, expected);
        if (cols == 0) continue;
        TVector<T> first(inner);
        std::copy_n(b.Data(), inner, first.begin());
        TVector<T> image = first;
        Multiply(a, image, image);
        EXPECT_THAT(image, testing::ElementsAreArray(expected.Column(0)));
        MultiplyTransposed(a.Transposed(), first, image);
        EXPECT_THAT(image, testing::ElementsAreArray(expected.Column(0)));
    }
    TMatrix<T> square = this->random(3, 3);
    const TMatrix<T> squared = square * square;
    Multiply(square, square, square);
    EXPECT_EQ(square, squared);
    EXPECT_EQ(square * TMatrix<T>::Identity(3), squared);
}

TYPED_TEST(TMatrixTest, StoresColumnByColumnAndMovesWhole)
{
    using T = TypeParam;
    TMatrix<T> m{{1, 2, 3}, {4, 5, 6}};
    EXPECT_THAT(std::vector<T>(m.Data(), m.Data() + 6), ElementsAre(1, 4, 2, 5, 3, 6));
    EXPECT_THAT(m.Row(1), ElementsAre(4, 5, 6));
    EXPECT_THAT(m.Column(2), ElementsAre(3, 6));
    m.AppendRow({7, 8, 9});
    EXPECT_EQ(m, (TMatrix<T>{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}));
    EXPECT_EQ(T{2} * m - m + m * T{0}, m);

    const TMatrix<T> copy = m;
    TMatrix<T> taken(1, 1);
    taken = std::move(m);
    EXPECT_EQ(taken, copy);
    EXPECT_EQ(m, TMatrix<T>()); // NOLINT(bugprone-use-after-move): what is promised
    m.Reset(1, 2);
    EXPECT_EQ(m, TMatrix<T>(1, 2));

    std::ostringstream text;
    text << TMatrix<T>{{1, 2}, {3, 4}} << TVector<T>{5, -6};
    EXPECT_EQ(text.str(), "1 2\n3 4\n5 -6");
}

TYPED_TEST(TMatrixTest, VectorsAddScaleAndMeasure)
{
    using T = TypeParam;
    TVector<T> v{3, -4};
    EXPECT_EQ(v.Dot({2, 1}), 2);
    EXPECT_EQ(v.MaxAbs(), 4);
    EXPECT_THAT(v + v - T{3} * v, ElementsAre(-3, 4));
    EXPECT_THAT(-v * T{2}, ElementsAre(-6, 8));
    v.Resize(3);
    v.Append(9);
    EXPECT_THAT(v, ElementsAre(3, -4, 0, 9));
    if constexpr (std::is_floating_point_v<T>) {
        EXPECT_EQ((TVector<T>{3, -4}.Norm()), 5);
        const T nan = std::numeric_limits<T>::quiet_NaN();
        EXPECT_TRUE(std::isnan((TVector<T>{1, nan, 7}.MaxAbs())));
    }
}

TYPED_TEST(TMatrixTest, WrongUseThrows)
{
    using T = TypeParam;
    TMatrix<T> m(2, 3);
    TVector<T> v(2);
    TMatrix<T> product;
    const std::function<void()> calls[] = {[&] { (void)m(2, 0); },
                                           [&] { (void)m(0, -1); },
                                           [&] { (void)m.Column(3); },
                                           [&] { (void)m.Row(2); },
                                           [&] { (void)v[-1]; },
                                           [&] { (void)(m * m); },
                                           [&] { (void)(m * v); },
                                           [&] { MultiplyTransposed(m, TMatrix<T>(3, 3), product); },
                                           [&] { m += product; },
                                           [&] { m.AppendRow(v); },
                                           [&] { (void)v.Dot(TVector<T>(3)); },
                                           [&] {
                                               (void)TMatrix<T>{{1, 2}, {3}};
                                           }};
    for (const auto& call : calls) EXPECT_THROW(call(), std::invalid_argument) << &call - calls;
    EXPECT_THROW((TMatrix<T>(-1, 0)), std::length_error);
    EXPECT_THROW(TVector<T>(-1), std::length_error);
}

// A product that skips zero factors would lose what is not a number.
TEST(TMatrixProducts, NotANumberSpreads)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const TMatrix<double> product = TMatrix<double>{{1, nan}, {3, 4}} * TMatrix<double>{{1, 1}, {0, 1}};
    EXPECT_TRUE(std::isnan(product(0, 0)) && std::isnan(product(0, 1)));
    EXPECT_EQ(product(1, 1), 7);
}

TEST(CPMatrixTest, PermutesColumnsAsItsMatrixDoes)
{
    CPMatrix p(3);
    EXPECT_EQ(p.Matrix<int>(), TMatrix<int>::Identity(3));
    for (const int i : {0, 1, 2}) p[i] = (i + 2) % 3;
    EXPECT_EQ((TMatrix<int>{{10, 11, 12}} * p.Matrix<int>()), (TMatrix<int>{{12, 10, 11}}));
    EXPECT_THROW((void)p[3], std::invalid_argument);
}

} // namespace
