#pragma once

#include "VoAlgorithms/kdtree/vector.h"
#include "platform/simd.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace prereg::detail {

inline constexpr int BlockBins = 11;
inline constexpr float LinearScale = 5.0F;
inline constexpr float AngleScale = 1.5915493F; // 5/π
inline constexpr float BinOffset = 5.0F;

/// Bins, one per block, of a pair of surface points.
struct PairBins {
    int alpha;
    int phi;
    int theta;
};

inline int Bin(float value, float scale)
{
    return std::clamp(VoAlgo::simd::RoundToInt(value * scale + BinOffset), 0, BlockBins - 1);
}

/// Darboux frame u, v, w of the pair at the source and the three angles, single precision throughout.
inline PairBins ComputePairBins(const kdtree::Vector<3>& ps, const kdtree::Vector<3>& ns, const kdtree::Vector<3>& pt,
                                const kdtree::Vector<3>& nt)
{
    kdtree::Vector<3> d = pt - ps;
    const float inverseLength = VoAlgo::simd::ApproximateReciprocalSqrt(d.NormSq());
    if (std::isfinite(inverseLength)) d *= inverseLength;
    const kdtree::Vector<3>& u = ns;
    const kdtree::Vector<3> v = d.Cross(u);
    const kdtree::Vector<3> w = u.Cross(v);
    const float theta = std::atan2(w.Dot(nt), u.Dot(nt));
    return {Bin(v.Dot(nt), LinearScale), Bin(u.Dot(d), LinearScale), Bin(theta, AngleScale)};
}

/// Code of no pair: none of its bytes is a bin. A pair's code has its bins alpha, phi and theta as bytes, the lowest
/// first.
inline constexpr std::uint32_t NoPair = 0xFFFFFFFFU;

/// Eight pairs with a common source normal. The bins equal ComputePairBins' bit for bit.
/// theta is binned without an arc tangent: in the quadrant of (|x|, |y|), x = u·nt, y = w·nt, the angle exceeds the
/// border t between two bins where |y|·cos t − |x|·sin t > 0. Lanes that lie within rounding of a border go through the
/// arc tangent.
template <class Pack>
class PairBinner {
public:
    explicit PairBinner(const kdtree::Vector<3>& ns) : ux_(Pack::Set(ns.x)), uy_(Pack::Set(ns.y)), uz_(Pack::Set(ns.z))
    {
    }

    /// d: targets minus source; n: target normals. Writes the eight pairs' codes.
    void operator()(Pack dx, Pack dy, Pack dz, Pack nx, Pack ny, Pack nz, std::uint32_t* codes) const
    {
        const Pack one = Pack::Set(1.0F);
        const Pack scale = Pack::FiniteOr(Pack::ApproximateReciprocalSqrt((dx * dx + dy * dy) + dz * dz), one);
        dx = dx * scale;
        dy = dy * scale;
        dz = dz * scale;
        const Pack vx = dy * uz_ - dz * uy_;
        const Pack vy = dz * ux_ - dx * uz_;
        const Pack vz = dx * uy_ - dy * ux_;
        const Pack wx = uy_ * vz - uz_ * vy;
        const Pack wy = uz_ * vx - ux_ * vz;
        const Pack wz = ux_ * vy - uy_ * vx;
        const Pack alpha = (vx * nx + vy * ny) + vz * nz;
        const Pack phi = (ux_ * dx + uy_ * dy) + uz_ * dz;
        const Pack x = (ux_ * nx + uy_ * ny) + uz_ * nz;
        const Pack y = (wx * nx + wy * ny) + wz * nz;

        // Signed distances, times a length, of the quadrant's angle from the borders at 18°, 54° and 90°.
        const Pack absX = Pack::Abs(x);
        const Pack absY = Pack::Abs(y);
        const Pack beyond18 = absY * Pack::Set(0.95105652F) - absX * Pack::Set(0.30901699F);
        const Pack beyond54 = absY * Pack::Set(0.58778525F) - absX * Pack::Set(0.80901699F);
        const Pack nearest = Pack::Min(Pack::Min(Pack::Abs(beyond18), Pack::Abs(beyond54)), absX);
        const unsigned clear = Pack::MaskLess((absX + absY) * Pack::Set(BorderZone), nearest);

        const Pack zero = Pack::Set(0.0F);
        const Pack five = Pack::Set(BinOffset);
        const Pack linear = Pack::Set(LinearScale);
        const Pack borders = Pack::OneWhereGreater(beyond18, zero) + Pack::OneWhereGreater(beyond54, zero);
        const Pack fromMiddle = Pack::Abs(Pack::OneWhereGreater(zero, x) * five - borders); // x < 0: from the other end
        Pack::StoreCodes(alpha * linear + five, phi * linear + five, Pack::WithSignOf(fromMiddle, y) + five,
                         BlockBins - 1, codes);
        if (clear != 0xFFU) binThetaExactly(x, y, ~clear, codes);
    }

private:
    // Several times the rounding of the products here and of the arc tangent and its scaling there, radians.
    static constexpr float BorderZone = 8e-6F;

    static void binThetaExactly(Pack x, Pack y, unsigned lanes, std::uint32_t* codes)
    {
        float xs[VoAlgo::simd::Lanes];
        float ys[VoAlgo::simd::Lanes];
        x.Store(xs);
        y.Store(ys);
        for (std::size_t i = 0; i < VoAlgo::simd::Lanes; ++i) {
            if ((lanes >> i & 1U) == 0) continue;
            const auto bin = static_cast<std::uint32_t>(Bin(std::atan2(ys[i], xs[i]), AngleScale));
            codes[i] = (codes[i] & 0xFFFFU) | bin << 16;
        }
    }

    Pack ux_, uy_, uz_;
};

} // namespace prereg::detail
