#pragma once

#include "prereg/detail_neighbours.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace prereg::detail {

/// Share of the feature radius within which the local surface is examined, and the fewest neighbours it takes.
inline constexpr float LocalSurfaceShare = 0.75F;
inline constexpr unsigned MinLocalNeighbours = 12;

/// 100 · min(1, r·k), k² = Σ|n_q − n_p|² ÷ Σ|q − p|² over the neighbours q of p: free of scale.
template <class Pack>
float CurvatureQuality(const NeighbourPlanes& neighbours, const kdtree::Vector<3>& normal, float radius)
{
    using enum NeighbourPlanes::Plane;
    if (neighbours.count == 0) return 0.0F;
    const Pack nx = Pack::Set(normal.x);
    const Pack ny = Pack::Set(normal.y);
    const Pack nz = Pack::Set(normal.z);
    Pack turn = Pack::Set(0.0F);
    Pack way = Pack::Set(0.0F);
    for (std::size_t i = 0; i < neighbours.count; i += VoAlgo::simd::Lanes) {
        const Pack ex = Pack::Load(neighbours[NX] + i) - nx;
        const Pack ey = Pack::Load(neighbours[NY] + i) - ny;
        const Pack ez = Pack::Load(neighbours[NZ] + i) - nz;
        turn = turn + ((ex * ex + ey * ey) + ez * ez);
        const Pack dx = Pack::Load(neighbours[DX] + i);
        const Pack dy = Pack::Load(neighbours[DY] + i);
        const Pack dz = Pack::Load(neighbours[DZ] + i);
        way = way + ((dx * dx + dy * dy) + dz * dz);
    }
    return 100.0F * std::min(radius * std::sqrt(turn.Sum() / way.Sum()), 1.0F); // NaN stays NaN
}

/// Whether a neighbourhood surrounds its point or a border of the scan cuts it off: the ratio of the larger to the
/// smaller eigenvalue of the neighbours' scatter within the tangent plane. 1 for a whole disc, 3.2 for a half one;
/// infinite for fewer than MinLocalNeighbours within R = LocalSurfaceShare · radius and for collinear ones. The scatter
/// is about the mean; a neighbour at distance d weighs 1 − d² ÷ R², so that the ratio does not jump when one more point
/// comes within R.
template <class Pack>
float TangentScatterRatio(const NeighbourPlanes& neighbours, const kdtree::Vector<3>& normal, float radius)
{
    using enum NeighbourPlanes::Plane;
    const float reachSq = LocalSurfaceShare * radius * LocalSurfaceShare * radius;
    const Pack bound = Pack::Set(reachSq);
    const Pack perReachSq = Pack::Set(1.0F / reachSq);
    const Pack one = Pack::Set(1.0F);
    const Pack zero = Pack::Set(0.0F);
    unsigned number = 0;
    Pack s = zero, sx = zero, sy = zero, sz = zero;
    Pack sxx = zero, syy = zero, szz = zero, sxy = zero, sxz = zero, syz = zero;
    for (std::size_t i = 0; i < neighbours.count; i += VoAlgo::simd::Lanes) {
        const Pack distanceSq = Pack::Load(neighbours[DistanceSq] + i);
        number += static_cast<unsigned>(std::popcount(Pack::MaskLessEqual(distanceSq, bound)));
        const Pack weight = Pack::Max(one - distanceSq * perReachSq, zero);
        const Pack x = Pack::Load(neighbours[DX] + i);
        const Pack y = Pack::Load(neighbours[DY] + i);
        const Pack z = Pack::Load(neighbours[DZ] + i);
        const Pack wx = weight * x;
        const Pack wy = weight * y;
        const Pack wz = weight * z;
        s = s + weight;
        sx = sx + wx;
        sy = sy + wy;
        sz = sz + wz;
        sxx = sxx + wx * x;
        syy = syy + wy * y;
        szz = szz + wz * z;
        sxy = sxy + wx * y;
        sxz = sxz + wx * z;
        syz = syz + wy * z;
    }
    if (number < MinLocalNeighbours) return std::numeric_limits<float>::infinity();

    const double n = s.Sum();
    // Scatter S about the mean; projected onto the tangent plane it has the eigenvalues h ± √(m/2 − h²) with
    // h = (tr S − nᵀSn)/2 and m = |S|² − 2|Sn|² + (nᵀSn)².
    const double mx = sx.Sum() / n;
    const double my = sy.Sum() / n;
    const double mz = sz.Sum() / n;
    const double xx = sxx.Sum() / n - mx * mx;
    const double yy = syy.Sum() / n - my * my;
    const double zz = szz.Sum() / n - mz * mz;
    const double xy = sxy.Sum() / n - mx * my;
    const double xz = sxz.Sum() / n - mx * mz;
    const double yz = syz.Sum() / n - my * mz;
    const double ax = xx * normal.x + xy * normal.y + xz * normal.z;
    const double ay = xy * normal.x + yy * normal.y + yz * normal.z;
    const double az = xz * normal.x + yz * normal.y + zz * normal.z;
    const double along = ax * normal.x + ay * normal.y + az * normal.z;
    const double h = 0.5 * (xx + yy + zz - along);
    const double m = xx * xx + yy * yy + zz * zz + 2.0 * (xy * xy + xz * xz + yz * yz) -
                     2.0 * (ax * ax + ay * ay + az * az) + along * along;
    const double spread = std::sqrt(std::max(0.0, 0.5 * m - h * h));
    if (!(h > spread)) return std::numeric_limits<float>::infinity(); // on a line rounding leaves either sign
    return static_cast<float>((h + spread) / (h - spread));
}

} // namespace prereg::detail
