#include "VoAlgorithms/solvers/cpolynomial.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

// All roots of a polynomial with random coefficients; its degree.
void BM_PolynomialRoots(benchmark::State& state)
{
    std::mt19937_64 engine(1);
    std::uniform_real_distribution<double> uniform(-1, 1);
    std::vector<VoAlgo::CPolynomial> polynomials;
    for (int i = 0; i < 1000; ++i) {
        std::vector<double> coefficients(static_cast<std::size_t>(state.range(0)) + 1);
        for (double& c : coefficients) c = uniform(engine);
        polynomials.emplace_back(coefficients);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(polynomials[next].Roots());
        next = (next + 1) % polynomials.size();
    }
}
BENCHMARK(BM_PolynomialRoots)->DenseRange(2, 4);

// By Horner's scheme, plain (0) or compensated (1), of degree 20.
void BM_PolynomialValue(benchmark::State& state)
{
    const VoAlgo::CPolynomial p(std::vector<double>(21, 0.7));
    double x = 0.3;
    for (auto _ : state) {
        benchmark::DoNotOptimize(x);
        benchmark::DoNotOptimize(state.range(0) == 0 ? p(x) : p.CompensatedValue(x));
    }
}
BENCHMARK(BM_PolynomialValue)->Arg(0)->Arg(1);

} // namespace
