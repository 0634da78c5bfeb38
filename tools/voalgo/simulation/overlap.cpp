#include "simulation/overlap.h"

#include "VoAlgorithms/kdtree/tkdtree.h"

namespace voalgo {

double OverlapShare(const prereg::Scan& a, const prereg::Scan& b, double radius)
{
    if (a.points.empty() || b.points.empty()) return 0.0;
    constexpr float MinCosine = 0.5F;
    const kdtree::TKdTree<3, 48> tree(&b.points.front().x, b.points.size(), 4);
    const auto radiusSq = static_cast<float>(radius * radius);
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.points.size(); ++i) {
        const int nearest = tree.Nearest(&a.points[i].x, radiusSq);
        if (nearest >= 0 && a.normals[i].Dot(b.normals[static_cast<std::size_t>(nearest)]) > MinCosine) ++count;
    }
    return static_cast<double>(count) / static_cast<double>(a.points.size());
}

} // namespace voalgo
