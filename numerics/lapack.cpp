#include "VoAlgorithms/numerics/lapack.h"

#include "platform/finite.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

// The routines of LAPACK and BLAS as Fortran exports them: every argument by its address, the lengths of the character
// arguments behind all others.
extern "C" {
void dgemm_(const char* transA, const char* transB, const int* m, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
            const int* ldc, std::size_t, std::size_t);
void sgemm_(const char* transA, const char* transB, const int* m, const int* n, const int* k, const float* alpha,
            const float* a, const int* lda, const float* b, const int* ldb, const float* beta, float* c, const int* ldc,
            std::size_t, std::size_t);
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info, std::size_t);
void dpotri_(const char* uplo, const int* n, double* a, const int* lda, int* info, std::size_t);
void dgesvd_(const char* jobU, const char* jobVt, const int* m, const int* n, double* a, const int* lda, double* s,
             double* u, const int* ldu, double* vt, const int* ldvt, double* work, const int* lwork, int* info,
             std::size_t, std::size_t);
void sgesvd_(const char* jobU, const char* jobVt, const int* m, const int* n, float* a, const int* lda, float* s,
             float* u, const int* ldu, float* vt, const int* ldvt, float* work, const int* lwork, int* info,
             std::size_t, std::size_t);
void dgelss_(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b, const int* ldb,
             double* s, const double* rcond, int* rank, double* work, const int* lwork, int* info);
void sgelss_(const int* m, const int* n, const int* nrhs, float* a, const int* lda, float* b, const int* ldb, float* s,
             const float* rcond, int* rank, float* work, const int* lwork, int* info);
void dgeqp3_(const int* m, const int* n, double* a, const int* lda, int* jpvt, double* tau, double* work,
             const int* lwork, int* info);
void dormqr_(const char* side, const char* trans, const int* m, const int* n, const int* k, const double* a,
             const int* lda, const double* tau, double* c, const int* ldc, double* work, const int* lwork, int* info,
             std::size_t, std::size_t);

#ifdef VOALGO_LAPACK_REFERENCE
// The two things that the reference implementation would take from the Fortran runtime. With them here the library
// needs no Fortran runtime at all, nor its input and output units. They stand in this file because its wrappers are the
// only way into LAPACK: a linker that looks for them has them already. NOLINTBEGIN(bugprone-reserved-identifier): the
// names are the compiler's.

/// LAPACK's report of a wrong argument. Its own version prints and ends the process; with this one the routine returns
/// with its error code.
void xerbla_(const char*, const int*, std::size_t) {}

/// Fortran's a // b: cut or padded with blanks to the length of the destination.
void _gfortran_concat_string(std::size_t size, char* destination, std::size_t aSize, const char* a, std::size_t bSize,
                             const char* b)
{
    aSize = std::min(aSize, size);
    bSize = std::min(bSize, size - aSize);
    std::memcpy(destination, a, aSize);
    std::memcpy(destination + aSize, b, bSize);
    std::memset(destination + aSize + bSize, ' ', size - aSize - bSize);
}
// NOLINTEND(bugprone-reserved-identifier)
#endif
}

namespace VoAlgo {
namespace {

// One name for both precisions.
template <class T>
constexpr auto* Gemm = dgemm_;
template <>
constexpr auto* Gemm<float> = sgemm_;
template <class T>
constexpr auto* Gesvd = dgesvd_;
template <>
constexpr auto* Gesvd<float> = sgesvd_;
template <class T>
constexpr auto* Gelss = dgelss_;
template <>
constexpr auto* Gelss<float> = sgelss_;

bool IsLapackSize(std::uint32_t dimension)
{
    return dimension <= static_cast<std::uint32_t>(std::numeric_limits<int>::max());
}

template <class T>
bool IsUsable(const TMatrix<T>& a)
{
    return IsLapackSize(a.Rows()) && IsLapackSize(a.Cols()) && AllFinite(a.Data(), std::size_t{a.Rows()} * a.Cols());
}

/// A square matrix whose upper triangle, all that Cholesky's routines read, can be used.
bool IsUsableTriangle(const TMatrix<double>& a)
{
    if (a.Rows() != a.Cols() || !IsLapackSize(a.Rows())) return false;
    for (std::size_t c = 0; c < a.Cols(); ++c)
        if (!AllFinite(a.Column(c).data(), c + 1)) return false;
    return true;
}

/// Leading dimension of an array with so many rows; LAPACK wants at least 1.
int Leading(std::uint32_t rows)
{
    return std::max(1, static_cast<int>(rows));
}

/// Calls a routine(work, lwork, info) twice: with lwork −1 it answers the best size of its work array, then it works.
template <class T, class Routine>
bool WithWorkspace(const Routine& routine)
{
    T best = 0;
    int lwork = -1;
    int info = 0;
    routine(&best, &lwork, &info);
    if (info != 0) return false;
    lwork = std::max(1, static_cast<int>(best));
    std::vector<T> work(static_cast<std::size_t>(lwork));
    routine(work.data(), &lwork, &info);
    return info == 0;
}

} // namespace

// Products

namespace {

/// The columns of a matrix, or the one column that a vector is.
template <class T>
struct Columns {
    T* data;
    std::uint32_t rows;
    std::uint32_t cols;
};

template <class T>
void ProductInto(bool transposed, const TMatrix<T>& a, const Columns<const T>& b, const Columns<T>& product)
{
    if constexpr (std::is_integral_v<T>) {
        for (std::size_t c = 0; c < product.cols; ++c)
            for (std::size_t r = 0; r < product.rows; ++r) {
                T sum = 0;
                for (std::size_t k = 0; k < b.rows; ++k)
                    sum += (transposed ? a(k, r) : a(r, k)) * b.data[c * b.rows + k];
                product.data[c * product.rows + r] = sum;
            }
    } else {
        if (!IsLapackSize(a.Rows()) || !IsLapackSize(a.Cols()) || !IsLapackSize(b.cols))
            throw std::length_error("matrix too large");
        const auto m = static_cast<int>(product.rows);
        const auto n = static_cast<int>(product.cols);
        const auto k = static_cast<int>(b.rows);
        const int lda = Leading(a.Rows());
        const int ldb = Leading(b.rows);
        const int ldc = Leading(product.rows);
        const T one = 1;
        const T zero = 0;
        Gemm<T>(transposed ? "T" : "N", "N", &m, &n, &k, &one, a.Data(), &lda, b.data, &ldb, &zero, product.data, &ldc,
                1, 1);
    }
}

template <class T>
void Product(bool transposed, const TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& product)
{
    if ((transposed ? a.Rows() : a.Cols()) != b.Rows()) throw std::invalid_argument("sizes do not fit");
    if (&product == &a || &product == &b) {
        TMatrix<T> apart;
        Product(transposed, a, b, apart);
        product = std::move(apart);
        return;
    }
    product.Reset(transposed ? a.Cols() : a.Rows(), b.Cols());
    ProductInto(transposed, a, {b.Data(), b.Rows(), b.Cols()}, {product.Data(), product.Rows(), product.Cols()});
}

template <class T>
void Product(bool transposed, const TMatrix<T>& a, const TVector<T>& b, TVector<T>& product)
{
    if ((transposed ? a.Rows() : a.Cols()) != b.Size()) throw std::invalid_argument("sizes do not fit");
    if (&product == &b) {
        TVector<T> apart;
        Product(transposed, a, b, apart);
        product = std::move(apart);
        return;
    }
    product.Resize(transposed ? a.Cols() : a.Rows());
    ProductInto(transposed, a, {b.Data(), b.Size(), 1}, {product.Data(), product.Size(), 1});
}

} // namespace

template <class T>
void Multiply(const TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& product)
{
    Product(false, a, b, product);
}
template <class T>
void Multiply(const TMatrix<T>& a, const TVector<T>& b, TVector<T>& product)
{
    Product(false, a, b, product);
}
template <class T>
void MultiplyTransposed(const TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& product)
{
    Product(true, a, b, product);
}
template <class T>
void MultiplyTransposed(const TMatrix<T>& a, const TVector<T>& b, TVector<T>& product)
{
    Product(true, a, b, product);
}

// Cholesky

template <>
bool cholesky<double>(TMatrix<double>& a)
{
    if (!IsUsableTriangle(a)) return false;
    const auto n = static_cast<int>(a.Rows());
    const int lda = Leading(a.Rows());
    int info = 0;
    dpotrf_("U", &n, a.Data(), &lda, &info, 1);
    if (info != 0) return false;
    for (std::size_t c = 0; c < a.Cols(); ++c) {
        const auto column = a.Column(c);
        std::fill(column.begin() + static_cast<std::ptrdiff_t>(c) + 1, column.end(), 0.0);
    }
    return true;
}

template <>
bool choleskyInverse<double>(const TMatrix<double>& u, TMatrix<double>& inv)
{
    if (!IsUsableTriangle(u)) return false;
    TMatrix<double> inverse = u;
    const auto n = static_cast<int>(u.Rows());
    const int lda = Leading(u.Rows());
    int info = 0;
    dpotri_("U", &n, inverse.Data(), &lda, &info, 1);
    if (info != 0) return false;
    for (std::size_t c = 0; c < inverse.Cols(); ++c)
        for (std::size_t r = c + 1; r < inverse.Rows(); ++r) inverse(r, c) = inverse(c, r);
    inv = std::move(inverse);
    return true;
}

namespace lapack {

// Singular values

template <class T>
bool svd(TMatrix<T>& a, TMatrix<T>& u, TVector<T>& s, TMatrix<T>& vt)
{
    if (!IsUsable(a)) return false;
    const std::uint32_t rows = a.Rows();
    const std::uint32_t cols = a.Cols();
    auto newU = TMatrix<T>::Identity(rows);
    auto newVt = TMatrix<T>::Identity(cols);
    TVector<T> newS(std::min(rows, cols));
    if (!a.Empty()) {
        const auto m = static_cast<int>(rows);
        const auto n = static_cast<int>(cols);
        const bool done = WithWorkspace<T>([&](T* work, const int* lwork, int* info) {
            Gesvd<T>("A", "A", &m, &n, a.Data(), &m, newS.Data(), newU.Data(), &m, newVt.Data(), &n, work, lwork, info,
                     1, 1);
        });
        if (!done) return false;
    }
    u = std::move(newU);
    s = std::move(newS);
    vt = std::move(newVt);
    return true;
}

namespace {

/// Solves for all columns of the right-hand side.
template <class T>
bool LeastSquares(TMatrix<T>& a, const Columns<const T>& b, const Columns<T>& x, T* cond)
{
    const std::uint32_t rows = a.Rows();
    const std::uint32_t cols = a.Cols();
    if (b.rows != rows || x.rows != cols || x.cols != b.cols || !IsUsable(a) || !IsLapackSize(b.cols) ||
        !AllFinite(b.data, std::size_t{b.rows} * b.cols))
        return false;
    if (a.Empty()) {
        std::fill_n(x.data, std::size_t{x.rows} * x.cols, T{0});
        if (cond != nullptr) *cond = 1;
        return true;
    }

    // The routine overwrites the right-hand sides with the solutions, so there must be room for the longer of the two.
    // One column at least: without any the routine would read one that is not there.
    TMatrix<T> bx(std::max(rows, cols), std::max(1U, b.cols));
    for (std::size_t c = 0; c < b.cols; ++c) std::copy_n(b.data + c * rows, rows, bx.Data() + c * bx.Rows());
    TVector<T> s(std::min(rows, cols));
    const auto m = static_cast<int>(rows);
    const auto n = static_cast<int>(cols);
    const auto problems = static_cast<int>(bx.Cols());
    const auto ldb = static_cast<int>(bx.Rows());
    const T machinePrecision = -1;
    int rank = 0;
    const bool done = WithWorkspace<T>([&](T* work, const int* lwork, int* info) {
        Gelss<T>(&m, &n, &problems, a.Data(), &m, bx.Data(), &ldb, s.Data(), &machinePrecision, &rank, work, lwork,
                 info);
    });
    if (!done) return false;
    for (std::size_t c = 0; c < x.cols; ++c) std::copy_n(bx.Data() + c * bx.Rows(), cols, x.data + c * cols);
    if (cond != nullptr) *cond = s[0] / s[s.Size() - 1];
    return true;
}

} // namespace

template <class T>
bool lssolve(TMatrix<T>& a, const TVector<T>& b, TVector<T>& x, std::type_identity_t<T>* cond)
{
    return LeastSquares<T>(a, {b.Data(), b.Size(), 1}, {x.Data(), x.Size(), 1}, cond);
}

template <class T>
bool lssolve(TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& x, std::type_identity_t<T>* cond)
{
    return LeastSquares<T>(a, {b.Data(), b.Rows(), b.Cols()}, {x.Data(), x.Rows(), x.Cols()}, cond);
}

// Pivoted QR

bool qrp(TMatrix<double>& a, TMatrix<double>& q, TMatrix<double>& r, CPMatrix& p)
{
    const std::uint32_t rows = a.Rows();
    const std::uint32_t cols = a.Cols();
    if (q.Rows() != rows || q.Cols() != rows || r.Rows() != rows || r.Cols() != cols || p.Size() != cols ||
        !IsUsable(a))
        return false;
    auto newQ = TMatrix<double>::Identity(rows);
    TMatrix<double> newR(rows, cols);
    CPMatrix newP(cols);
    if (!a.Empty()) {
        const auto m = static_cast<int>(rows);
        const auto n = static_cast<int>(cols);
        const int reflections = std::min(m, n);
        TVector<int> pivots(cols); // 0: the column may go anywhere
        TVector<double> tau(reflections);
        const bool done = WithWorkspace<double>([&](double* work, const int* lwork, int* info) {
                              dgeqp3_(&m, &n, a.Data(), &m, pivots.Data(), tau.Data(), work, lwork, info);
                          }) &&
                          WithWorkspace<double>([&](double* work, const int* lwork, int* info) {
                              dormqr_("L", "N", &m, &m, &reflections, a.Data(), &m, tau.Data(), newQ.Data(), &m, work,
                                      lwork, info, 1, 1);
                          });
        if (!done) return false;
        for (std::size_t c = 0; c < cols; ++c) {
            std::copy_n(a.Column(c).begin(), std::min<std::size_t>(c + 1, rows), newR.Column(c).begin());
            newP[c] = pivots[c] - 1; // Fortran counts from 1
        }
    }
    q = std::move(newQ);
    r = std::move(newR);
    p = std::move(newP);
    return true;
}

} // namespace lapack

// The types that exist

#define VOALGO_PRODUCTS(T)                                                                                             \
    template VOALGO_API void Multiply(const TMatrix<T>&, const TMatrix<T>&, TMatrix<T>&);                              \
    template VOALGO_API void Multiply(const TMatrix<T>&, const TVector<T>&, TVector<T>&);                              \
    template VOALGO_API void MultiplyTransposed(const TMatrix<T>&, const TMatrix<T>&, TMatrix<T>&);                    \
    template VOALGO_API void MultiplyTransposed(const TMatrix<T>&, const TVector<T>&, TVector<T>&);
VOALGO_PRODUCTS(double)
VOALGO_PRODUCTS(float)
VOALGO_PRODUCTS(int)

#define VOALGO_SOLVES(T)                                                                                               \
    template VOALGO_API bool lapack::svd(TMatrix<T>&, TMatrix<T>&, TVector<T>&, TMatrix<T>&);                          \
    template VOALGO_API bool lapack::lssolve(TMatrix<T>&, const TVector<T>&, TVector<T>&, std::add_pointer_t<T>);      \
    template VOALGO_API bool lapack::lssolve(TMatrix<T>&, const TMatrix<T>&, TMatrix<T>&, std::add_pointer_t<T>);
VOALGO_SOLVES(double)
VOALGO_SOLVES(float)

} // namespace VoAlgo
