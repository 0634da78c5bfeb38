#include "VoAlgorithms/solvers/cpolynomial.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <stdexcept>
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
    for (int i = 0; i < 2'000'000; ++i) {
        const CPolynomial p = Rounded(RandomRoots(engine, i % 5), i % 3 == 0 ? 1 : -0.3);
        const double error = BackwardError(p);
        if (error > 4) { std::printf("%d kind %d err %g:", i, i%5, error); for (double c : p.Coefficients()) std::printf(" %.17g", c); std::puts(""); for (auto c: p.Roots()) std::printf("   %.17g %.17g\n", c.real(), c.imag());} continue; ASSERT_LE(error, 4) << i << ' ' << testing::PrintToString(p.Coefficients());
    }
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

} // namespace
