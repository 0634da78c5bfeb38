#include "VoAlgorithms/numerics/lapack.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

using VoAlgo::TMatrix;
using VoAlgo::TVector;

TMatrix<double> RandomMatrix(std::int64_t rows, std::int64_t cols)
{
    std::mt19937 engine(1);
    std::normal_distribution<double> normal;
    TMatrix<double> m(rows, cols);
    for (std::int64_t c = 0; c < cols; ++c)
        for (double& e : m.Column(c)) e = normal(engine);
    return m;
}

void CountOperations(benchmark::State& state, double operations)
{
    state.counters["per_multiply_add"] = benchmark::Counter(static_cast<double>(state.iterations()) * operations,
                                                            benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The normal matrix of a fit: measurements, parameters.
void BM_NormalMatrix(benchmark::State& state)
{
    const TMatrix<double> jacobian = RandomMatrix(state.range(0), state.range(1));
    TMatrix<double> normal;
    for (auto _ : state) {
        MultiplyTransposed(jacobian, jacobian, normal);
        benchmark::DoNotOptimize(normal.Data());
    }
    CountOperations(state, static_cast<double>(state.range(0) * state.range(1) * state.range(1)));
}
BENCHMARK(BM_NormalMatrix)->Args({1'000, 10})->Args({100'000, 10})->Unit(benchmark::kMicrosecond);

void BM_Product(benchmark::State& state)
{
    const TMatrix<double> a = RandomMatrix(state.range(0), state.range(0));
    TMatrix<double> product;
    for (auto _ : state) {
        Multiply(a, a, product);
        benchmark::DoNotOptimize(product.Data());
    }
    CountOperations(state, static_cast<double>(state.range(0) * state.range(0) * state.range(0)));
}
BENCHMARK(BM_Product)->Arg(4)->Arg(10)->Arg(100)->Arg(500)->Unit(benchmark::kMicrosecond);

// The step of a damped iteration.
void BM_LeastSquares(benchmark::State& state)
{
    const TMatrix<double> a = RandomMatrix(state.range(0), state.range(0));
    const TVector<double> b(state.range(0), 1.0);
    TVector<double> x(state.range(0));
    TMatrix<double> destroyed;
    for (auto _ : state) {
        destroyed = a;
        if (!VoAlgo::lapack::lssolve(destroyed, b, x)) state.SkipWithError("no solution");
    }
}
BENCHMARK(BM_LeastSquares)->Arg(3)->Arg(10)->Arg(50)->Unit(benchmark::kMicrosecond);

void BM_Cholesky(benchmark::State& state)
{
    const TMatrix<double> root = RandomMatrix(2 * state.range(0), state.range(0));
    const TMatrix<double> a = root.Transposed() * root;
    TMatrix<double> u;
    for (auto _ : state) {
        u = a;
        if (!VoAlgo::cholesky(u) || !VoAlgo::choleskyInverse(u, u)) state.SkipWithError("not positive definite");
    }
}
BENCHMARK(BM_Cholesky)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);

} // namespace
