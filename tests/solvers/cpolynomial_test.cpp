#include "VoAlgorithms/solvers/cpolynomial.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using VoAlgo::CPolynomial;
using Complex = std::complex<double>;
using Wide = std::complex<long double>;
using testing::ElementsAre;
using testing::IsEmpty;

/// factor·∏(x − root) in extended precision, ascending.
std::vector<long double> Product(const std::vector<Complex>& roots, long double factor)
{
    std::vector<Wide> a{factor};
    for (const Complex root : roots) {
        a.insert(a.begin(), 0);
        for (std::size_t k = 0; k + 1 < a.size(); ++k) a[k] -= Wide(root) * a[k + 1];
    }
    std::vector<long double> real;
    real.reserve(a.size());
    for (const Wide c : a) real.push_back(c.real());
    return real;
}

CPolynomial Rounded(const std::vector<Complex>& roots, double factor = 1)
{
    std::vector<double> a;
    for (const long double c : Product(roots, factor)) a.push_back(static_cast<double>(c));
    return CPolynomial(a);
}

/// How far the product of the computed roots is from the polynomial: the largest difference of a coefficient aₖ, in
/// units of 2⁻⁵² of the coefficient of |aₙ|·∏(x + |root|), which is |aₖ| unless terms of the product cancel.
double BackwardError(const CPolynomial& p)
{
    const std::vector<Complex> roots = p.Roots();
    std::vector<Complex> sizes;
    sizes.reserve(roots.size());
    for (const Complex root : roots) sizes.emplace_back(-std::hypot(root.real(), root.imag()));
    const double factor = p.Coefficients().back();
    const std::vector<long double> product = Product(roots, factor), bound = Product(sizes, std::abs(factor));
    if (product.size() != p.Coefficients().size()) return std::numeric_limits<double>::infinity();
    long double error = 0;
    for (std::size_t k = 0; k < product.size(); ++k)
        if (const long double difference = std::abs(product[k] - static_cast<long double>(p.Coefficients()[k]));
            difference != 0)
            error = std::max(error, difference / bound[k]);
    return static_cast<double>(error * 0x1p52L);
}

/// Roots of one kind of difficulty: 1 to 4 of them, with conjugate pairs.
std::vector<Complex> RandomRoots(std::mt19937_64& engine, int kind)
{
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> uniform(-1, 1);
    const double spread = std::pow(10, -8 + 7 * uniform(engine)), centre = normal(engine);
    const auto next = [&]() -> double {
        switch (kind) {
        case 0:
            return normal(engine);
        case 1:
            return std::floor(5 * uniform(engine)); // often multiple, or 0
        case 2:
            return centre + spread * normal(engine);
        case 3:
            return normal(engine) * std::pow(10, 70 * uniform(engine));
        default:
            return normal(engine) * std::pow(10, 3 * uniform(engine));
        }
    };
    const std::size_t n = 1 + engine() % 4;
    std::vector<Complex> roots;
    while (roots.size() < n) {
        if (n - roots.size() >= 2 && engine() % 2 == 0) {
            const double scale = kind == 2 ? spread : 1;
            const Complex root(next(), scale * std::abs(normal(engine)));
            roots.push_back(root);
            roots.push_back(std::conj(root));
        } else
            roots.emplace_back(next());
    }
    return roots;
}

TEST(Polynomial, RootsGiveTheCoefficientsBack)
{
    std::mt19937_64 engine(1);
    for (int i = 0; i < 200'000; ++i) {
        const CPolynomial p = Rounded(RandomRoots(engine, i % 5), i % 3 == 0 ? 1 : -0.3);
        const double error = BackwardError(p);
        ASSERT_LE(error, 4) << i << ' ' << testing::PrintToString(p.Coefficients());
    }
}

// The closed form finds a double root where the coefficients tell a conjugate pair from it.
TEST(Polynomial, APairStartedFromADoubleRootLeavesTheRealAxis)
{
    const CPolynomial p({-6.747692694369912e+21, 1899677906830113.5, -140907938.86114669, 1});
    EXPECT_EQ(p.RealRoots().size(), 1U);
    EXPECT_LE(BackwardError(p), 4);
}

TEST(Polynomial, ADoubleRootCloseToAPairIsFitted)
{
    const double d = 0.00025342937231812859;
    EXPECT_LE(BackwardError(Rounded({-1, -1, {-1, d}, {-1, -d}}, -0.3)), 4);
}

// Not from roots: each coefficient at random, of any size.
TEST(Polynomial, RootsOfUnrelatedCoefficientsGiveThemBack)
{
    std::mt19937_64 engine(2);
    std::uniform_real_distribution<double> uniform(-1, 1);
    for (int i = 0; i < 50'000; ++i) {
        std::vector<double> a(2 + engine() % 4);
        for (double& c : a)
            c = engine() % 8 == 0 ? 0 : uniform(engine) * std::pow(10, (i % 2 == 0 ? 1 : 70) * uniform(engine));
        const CPolynomial p(a);
        if (p.Degree() < 1) continue;
        ASSERT_LE(BackwardError(p), 4) << i << ' ' << testing::PrintToString(a);
    }
}

/// Ascending as Roots orders them.
void Sort(std::vector<Complex>& roots)
{
    const auto key = [](Complex z) { return std::make_tuple(z.imag() != 0, z.real(), std::abs(z.imag()), -z.imag()); };
    std::sort(roots.begin(), roots.end(), [&](Complex a, Complex b) { return key(a) < key(b); });
    if (roots.size() == 4 && roots[0] == roots[1] && roots[0].imag() != 0) std::swap(roots[1], roots[2]);
}

// Integer roots of at most 11 bits: the coefficients are exact, hence the roots are, too, in clusters and multiple
// ones.
TEST(Polynomial, IntegerRootsAreExact)
{
    std::mt19937_64 engine(3);
    for (int i = 0; i < 50'000; ++i) {
        const int width = i % 4 == 0 ? 2000 : i % 4 == 1 ? 20 : 2, centre = i % 4 == 3 ? 1500 : 0;
        std::uniform_int_distribution<int> integer(-width, width);
        const std::size_t n = 1 + engine() % 4;
        std::vector<Complex> roots;
        while (roots.size() < n) {
            const int real = centre + integer(engine);
            if (const int imag = integer(engine); imag != 0 && n - roots.size() >= 2 && engine() % 2 == 0) {
                roots.emplace_back(real, imag);
                roots.emplace_back(real, -imag);
            } else
                roots.emplace_back(real);
        }
        Sort(roots);
        const CPolynomial p = Rounded(roots);
        std::vector<Complex> found = p.Roots();
        for (Complex& z : found) // the real part of a root on the imaginary axis is what remains of a difference
            if (std::abs(z.real()) < 1e-17 * std::abs(z.imag())) z.real(0);
        Sort(found);
        if (std::adjacent_find(roots.begin(), roots.end()) != roots.end() && centre != 0) { // a fit, close to others
            for (std::size_t k = 0; k < n; ++k) ASSERT_LE(std::abs(found[k] - roots[k]), 1e-15 * centre) << i;
            continue;
        }
        ASSERT_EQ(found, roots) << i << ' ' << testing::PrintToString(p.Coefficients());
    }
}

TEST(Polynomial, MultipleRootsAreRepeatedWithinTheRoundingOfTheCoefficients)
{
    for (const double r : {0.1, -1 / 3.0, 1e-70, -7.7e60}) {
        for (const std::size_t m : {2U, 3U, 4U}) {
            const CPolynomial p = Rounded(std::vector<Complex>(m, r), 0.3);
            const std::vector<double> roots = p.RealRoots();
            ASSERT_EQ(roots.size(), m) << r;
            EXPECT_EQ(roots.front(), roots.back()) << r;
            EXPECT_THAT(roots, testing::Each(testing::DoubleNear(r, 4e-16 * std::abs(r))));
        }
    }
    const std::vector<Complex> twice = Rounded({{0.1, 0.7}, {0.1, -0.7}, {0.1, 0.7}, {0.1, -0.7}}).Roots();
    EXPECT_EQ(twice[0], twice[2]);
    EXPECT_LE(std::abs(twice[0] - Complex(0.1, 0.7)), 2e-16);
    // Roots that the coefficients tell apart stay apart.
    const double d = 0x1p-10;
    EXPECT_THAT(Rounded({1, 1 + d * d}).RealRoots(), ElementsAre(1, 1 + d * d));
    EXPECT_THAT(Rounded({1 - 2 * d, 1 - d, 1 + d, 1 + 2 * d}).RealRoots(),
                ElementsAre(1 - 2 * d, 1 - d, 1 + d, 1 + 2 * d));
    EXPECT_THAT(CPolynomial({1 + d * d * d * d, -2, 1}).RealRoots(), IsEmpty());
}

TEST(Polynomial, RootsOfAnySizeAndDegenerateLeadingCoefficients)
{
    EXPECT_THAT(Rounded({1e-300, 1e300, -2}).RealRoots(), ElementsAre(-2, 1e-300, 1e300));
    EXPECT_THAT(CPolynomial({2, -3, 1, 1e-300}).RealRoots(), ElementsAre(-1 / 1e-300, 1, 2));
    EXPECT_THAT(CPolynomial({0, 0, 4, -4, 1}).RealRoots(), ElementsAre(0, 0, 2, 2));
    EXPECT_THAT(CPolynomial({1e308, -1e308, -1e308, 1e308}).RealRoots(), ElementsAre(-1, 1, 1));
    EXPECT_THAT(CPolynomial({5e-324, -1e-323, 5e-324}).RealRoots(), ElementsAre(1, 1));
    EXPECT_THAT(CPolynomial({1, 1e10, 1e-310}).RealRoots(),
                ElementsAre(-std::numeric_limits<double>::infinity(), -1e-10));
    EXPECT_THAT(CPolynomial({-6, 3, 0, 0}).RealRoots(), ElementsAre(2));
    EXPECT_THAT(CPolynomial({7}).RealRoots(), IsEmpty());
}

TEST(Polynomial, RefusesWhatHasNoAnswer)
{
    EXPECT_THROW(CPolynomial({1, std::nan("")}), std::invalid_argument);
    EXPECT_THROW(CPolynomial({1, std::numeric_limits<double>::infinity()}), std::invalid_argument);
    EXPECT_THROW((void)(CPolynomial({0, 1e200}) * CPolynomial({1e200})), std::invalid_argument);
    EXPECT_THROW((void)CPolynomial({0, 0}).Roots(), std::domain_error);
    EXPECT_THROW((void)CPolynomial({1, 0, 0, 0, 0, 1}).RealRoots(), std::domain_error);
    EXPECT_THROW((void)CPolynomial({1, 2}).DividedBy(CPolynomial({0})), std::domain_error);
}

// Small integers: every operation is exact.
TEST(Polynomial, ArithmeticAgreesWithTheValues)
{
    std::mt19937_64 engine(4);
    std::uniform_int_distribution<int> integer(-9, 9);
    const auto random = [&](std::size_t size) {
        std::vector<double> a(size);
        for (double& c : a) c = integer(engine);
        return CPolynomial(a);
    };
    for (int i = 0; i < 500; ++i) {
        const CPolynomial p = random(engine() % 6), q = random(engine() % 4), monic({3.0 * integer(engine), 2, 1});
        const double x = integer(engine);
        EXPECT_EQ((p + q)(x), p(x) + q(x));
        EXPECT_EQ((p - q)(x), p(x) - q(x));
        EXPECT_EQ((p * q)(x), p(x) * q(x));
        EXPECT_EQ((2 * p)(x), 2 * p(x));
        EXPECT_EQ(p.Of(q)(x), p(q(x)));
        EXPECT_EQ(p(Complex(x, 0)), p(x));
        EXPECT_EQ((p - p).Degree(), -1);
        const auto [quotient, remainder] = p.DividedBy(monic);
        EXPECT_LT(remainder.Degree(), 2);
        EXPECT_EQ(quotient * monic + remainder, p);
        EXPECT_EQ((p * q).Derivative(), p.Derivative() * q + p * q.Derivative());
        EXPECT_NEAR(p.Derivative().Integral()(x), p(x) - p(0), 1e-9);
    }
}

// (x − 1)⁷ close to 1, where Horner's scheme gives noise; the value is a power of a dyadic fraction.
TEST(Polynomial, CompensatedValueIsThatOfTwiceThePrecision)
{
    const CPolynomial p({-1, 7, -21, 35, -35, 21, -7, 1});
    double noise = 0;
    for (int k = -100; k <= 100; ++k) {
        const double x = 1 + k * 0x1p-12, exact = std::pow(k * 0x1p-12, 7);
        noise = std::max(noise, std::abs(p(x) - exact));
        EXPECT_NEAR(p.CompensatedValue(x), exact, 0x1p-52 * std::abs(exact) + 1e3 * 0x1p-106) << k;
    }
    EXPECT_GT(noise, 1e-16);
}

} // namespace
