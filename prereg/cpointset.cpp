#include "VoAlgorithms/prereg/cpointset.h"

#include "platform/channels.h"
#include "prereg/detail_textfile.h"

#include <algorithm>
#include <stdexcept>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;

bool Satisfies(const Vec3& p, const float* A, const float* b, unsigned n)
{
    for (std::size_t row = 0; row < n; ++row) {
        const Vec3 normal(A[3 * row], A[3 * row + 1], A[3 * row + 2]);
        if (!(normal.Dot(p) <= b[row])) return false;
    }
    return true;
}

void RequireSameLength(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    if (points.size() != normals.size()) throw std::invalid_argument("points and normals differ in number");
}

} // namespace

CPointSet::CPointSet(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
    : points_(points), normals_(normals)
{
    RequireSameLength(points, normals);
    rebuildKdTree();
    rebuildEllipsoid();
}

CPointSet::CPointSet(const std::vector<Vec3>& points, const std::vector<Vec3>& normals, const Tree& tree)
    : points_(points), normals_(normals), tree_(tree)
{
    RequireSameLength(points, normals);
    rebuildEllipsoid();
}

void CPointSet::rebuildKdTree()
{
    if (points_.empty()) {
        tree_ = Tree();
        return;
    }
    tree_ = Tree(&points_[0].x, points_.size(), sizeof(Vec3) / sizeof(float));
    if (!tree_.Empty()) return;
    VOALGO_LOG(channels::Registration(), Error, "prereg::CPointSet::rebuildKdTree",
               L"Inf/NaN in point data resulted in empty kD-tree; invalidating point set");
    points_.clear();
    normals_.clear();
    ellipsoid_ = Ellipsoid();
}

void CPointSet::rebuildEllipsoid()
{
    ellipsoid_ = Ellipsoid(points_.data(), points_.size());
}

std::size_t CPointSet::GetMemUsage() const
{
    return sizeof(*this) + (points_.capacity() + normals_.capacity()) * sizeof(Vec3) +
           bitMasks_.capacity() * sizeof(std::uint32_t) + tree_.GetMemUsage();
}

void CPointSet::InitializeBitMasks(unsigned mask)
{
    bitMasks_.assign(points_.size(), mask);
}

void CPointSet::ClearBitMasks()
{
    bitMasks_.clear();
}

std::uint32_t CPointSet::GetBitMask(std::size_t i) const
{
    if (bitMasks_.empty()) return 0;
    if (i >= bitMasks_.size()) throw std::out_of_range("invalid vector<T> subscript");
    return bitMasks_[i];
}

void CPointSet::SetBitMask(std::size_t i, std::uint32_t mask)
{
    if (i >= bitMasks_.size()) throw std::out_of_range("invalid vector<T> subscript");
    bitMasks_[i] = mask;
}

/// Non-finite points, which the tree drops too, do not count.
std::pair<Vec3, Vec3> CPointSet::GetAABB() const
{
    std::pair<Vec3, Vec3> box;
    bool isFirst = true;
    for (const Vec3& p : points_) {
        if (!p.IsValid()) continue;
        if (isFirst) box = {p, p};
        isFirst = false;
        auto& [low, high] = box;
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
    return box;
}

CPointSet::Surfels CPointSet::filterSurfelsWithMask(unsigned mask) const
{
    Surfels result;
    if (mask == 0) return result;
    for (std::size_t i = 0; i < bitMasks_.size(); ++i) {
        if ((bitMasks_[i] & mask) != mask) continue;
        result.first.push_back(points_[i]);
        result.second.push_back(normals_[i]);
    }
    return result;
}

CPointSet::Surfels CPointSet::filterSurfelsWithPredicate(const std::function<bool(const Vec3&)>& keep) const
{
    Surfels result;
    for (std::size_t i = 0; i < points_.size(); ++i) {
        if (!keep(points_[i])) continue;
        result.first.push_back(points_[i]);
        result.second.push_back(normals_[i]);
    }
    return result;
}

CPointSet::Surfels CPointSet::filterSurfelsWithInequalities(const float* A, const float* b, unsigned n) const
{
    return filterSurfelsWithPredicate([=](const Vec3& p) { return Satisfies(p, A, b, n); });
}

CPointSet CPointSet::filterPointSet(const float* A, const float* b, unsigned n) const
{
    const auto [points, normals] = filterSurfelsWithInequalities(A, b, n);
    return {points, normals};
}

std::vector<std::size_t> CPointSet::identifyMatchingIndices(const std::vector<Vec3>& points, const float* A,
                                                            const float* b, unsigned n)
{
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < points.size(); ++i)
        if (Satisfies(points[i], A, b, n)) indices.push_back(i);
    return indices;
}

CPointSet::Surfels CPointSet::transformSurfels(const VoAlgo::CTrafo& pose) const
{
    Surfels result;
    result.first.reserve(points_.size());
    result.second.reserve(points_.size());
    for (const Vec3& p : points_) result.first.push_back(pose * p);
    for (const Vec3& n : normals_) result.second.push_back(pose.Rotate(n));
    return result;
}

CPointSet::Surfels CPointSet::scaleSurfels(const Vec3& scale) const
{
    Surfels result{points_, normals_};
    for (Vec3& p : result.first) p = {p.x * scale.x, p.y * scale.y, p.z * scale.z};
    if (scale.x == scale.y && scale.y == scale.z && scale.x > 0.0F) return result;
    const auto unscaled = [](float n, float factor) { return factor == 0.0F ? 0.0F : n / factor; };
    const auto flattened = [](float n, float factor) { return factor == 0.0F ? n : 0.0F; };
    for (Vec3& n : result.second) { // normals transform with the inverse transpose
        // The limit of ever smaller factors: what lies along flattened axes outweighs the rest.
        const Vec3 limit(flattened(n.x, scale.x), flattened(n.y, scale.y), flattened(n.z, scale.z));
        n = limit != Vec3() ? limit : Vec3(unscaled(n.x, scale.x), unscaled(n.y, scale.y), unscaled(n.z, scale.z));
        const float length = n.Norm();
        if (length > 0.0F) n /= length;
    }
    return result;
}

void CPointSet::SaveXYZN(const std::string& fileName, unsigned colour) const
{
    detail::SaveSurfels(fileName, points_, normals_, colour, detail::Digits::AsNeeded);
}

} // namespace prereg
