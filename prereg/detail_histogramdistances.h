#pragma once

#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"
#include "platform/simd.h"

#include <cmath>

namespace prereg::detail {

/// Sums term(a, b) over the 33 bins: eight lanes in four passes, neighbouring lanes in pairs, bin 32 last. `scalarTerm`
/// is the same term for one bin.
template <class Pack, class PackTerm, class ScalarTerm>
float SumOverBins(const float* a, const float* b, PackTerm packTerm, ScalarTerm scalarTerm)
{
    Pack sum = Pack::Set(0.0F);
    for (std::size_t i = 0; i < 32; i += VoAlgo::simd::Lanes)
        sum = sum + packTerm(Pack::Load(a + i), Pack::Load(b + i));
    return sum.SumOfPairs() + scalarTerm(a[32], b[32]);
}

template <class Pack>
float SumOfSquaredDifferences(const float* a, const float* b)
{
    const auto term = [](auto x, auto y) { return (x - y) * (x - y); };
    return SumOverBins<Pack>(a, b, term, term);
}

template <class Pack>
float Dissimilarity(const float* a, const float* b)
{
    const float differences = SumOverBins<Pack>(
        a, b, [](Pack x, Pack y) { return Pack::Abs(x - y); }, [](float x, float y) { return std::fabs(x - y); });
    const auto sum = [](auto x, auto y) { return x + y; };
    return differences / SumOverBins<Pack>(a, b, sum, sum);
}

template <class Pack>
float Chi2(const float* a, const float* b)
{
    return SumOverBins<Pack>(
        a, b, [](Pack x, Pack y) { return Pack::ZeroWhereNan((x - y) * (x - y) / (x + y)); },
        [](float x, float y) {
            const float term = (x - y) * (x - y) / (x + y);
            return std::isnan(term) ? 0.0F : term;
        });
}

} // namespace prereg::detail
