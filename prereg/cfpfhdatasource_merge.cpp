#include "VoAlgorithms/clustering/thashmap.h"
#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "platform/channels.h"
#include "platform/finite.h"
#include "platform/simd.h"

#include <algorithm>
#include <cmath>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;

/// Cell of a position: the position over the edge, rounded to integers.
struct THash3D_Vec3 {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t z = 0;
};

struct THash3D_GridHashF {
    std::uint32_t operator()(const THash3D_Vec3& cell) const
    {
        std::uint32_t crc = 0;
        for (const std::int32_t c : {cell.x, cell.y, cell.z})
            crc = VoAlgo::simd::Crc32c(crc, static_cast<std::uint32_t>(c));
        return crc;
    }
};

struct THash3D_GridCmp {
    bool operator()(const THash3D_Vec3& a, const THash3D_Vec3& b) const
    {
        return a.x == b.x && a.y == b.y && a.z == b.z;
    }
};

/// The points of one cell, as sums in double so that many sets merge without drift.
struct GridCell {
    double count = 0.0;
    double position[3] = {};
    double normal[3] = {};

    void Add(const Vec3& p, const Vec3& n)
    {
        count += 1.0;
        for (std::size_t k = 0; k < 3; ++k) {
            position[k] += static_cast<double>(p[k]);
            normal[k] += static_cast<double>(n[k]);
        }
    }
    [[nodiscard]] Vec3 MeanPosition() const
    {
        return {static_cast<float>(position[0] / count), static_cast<float>(position[1] / count),
                static_cast<float>(position[2] / count)};
    }
    /// Of unit length; zero when the normals cancel out.
    [[nodiscard]] Vec3 MeanNormal() const
    {
        const double length = std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
        if (!(length > 0.0)) return {};
        return {static_cast<float>(normal[0] / length), static_cast<float>(normal[1] / length),
                static_cast<float>(normal[2] / length)};
    }
};

/// Feature points of one cell with the sum of their histograms.
struct PFHGridCell : GridCell {
    CPointFeatureHistogram sum;
};

/// Cells by place, visited in the order in which they were first hit.
template <class Cell>
class Grid {
public:
    explicit Grid(double edge) : inverseEdge_(1.0 / edge) {}

    Cell& At(const Vec3& p)
    {
        const std::size_t before = cells_.Size();
        Cell& cell = cells_[{coordinate(p.x), coordinate(p.y), coordinate(p.z)}];
        if (cells_.Size() != before) order_.push_back(&cell); // elements of the map do not move
        return cell;
    }
    [[nodiscard]] const std::vector<Cell*>& Order() const { return order_; }

private:
    [[nodiscard]] std::int32_t coordinate(float position) const
    {
        constexpr double Farthest = 2147483647.0; // what lies beyond shares the last cell
        return static_cast<std::int32_t>(
            std::clamp(std::nearbyint(static_cast<double>(position) * inverseEdge_), -Farthest, Farthest));
    }

    double inverseEdge_;
    VoAlgo::THashMap<THash3D_Vec3, Cell, THash3D_GridHashF, THash3D_GridCmp> cells_;
    std::vector<Cell*> order_;
};

} // namespace

bool CFPFHDataSource::Update(const std::vector<std::pair<const CFPFHPointSet*, VoAlgo::CTrafo>>& posedSets,
                             double cellSize)
{
    constexpr const char* Function = "prereg::CFPFHDataSource::Update";
    forgetScan();                                       // resets the dirty map
    if (!(cellSize > 0.0 && std::isnormal(cellSize))) { // the reciprocal of a subnormal one is infinite
        VOALGO_LOG(channels::Features(), Error, Function, L"rejecting update: invalid cell size %g", cellSize);
        return false;
    }
    Grid<GridCell> surface(cellSize);
    Grid<PFHGridCell> features(cellSize);
    for (const auto& [set, pose] : posedSets) {
        if (set == nullptr) continue;
        for (std::size_t i = 0; i < set->Size(); ++i) {
            const auto [p, n] = pose.Transform(set->GetPoint(i), set->GetNormal(i));
            if (p.IsValid() && n.IsValid()) surface.At(p).Add(p, n);
        }
        for (std::size_t i = 0; i < set->SizeFeatures(); ++i) {
            const auto [p, n] = pose.Transform(set->GetFeaturePoint(i), set->GetFeatureNormal(i));
            if (!p.IsValid() || !n.IsValid() ||
                !VoAlgo::AllFinite(set->GetFeature(i).bins, CPointFeatureHistogram::NumBins))
                continue;
            PFHGridCell& cell = features.At(p);
            cell.Add(p, n);
            cell.sum.Add(set->GetFeature(i), 1.0F);
        }
    }
    if (surface.Order().empty()) {
        VOALGO_LOG(channels::Features(), Error, Function,
                   L"rejecting update: detected (only) irregular points (Inf/NaN/dupes)");
        return false;
    }

    points_.clear();
    normals_.clear();
    for (const GridCell* cell : surface.Order()) {
        points_.push_back(cell->MeanPosition());
        normals_.push_back(cell->MeanNormal());
    }
    featurePoints_.clear();
    featureNormals_.clear();
    features_.clear();
    featureSlots_.clear();
    for (const PFHGridCell* cell : features.Order()) {
        featurePoints_.push_back(cell->MeanPosition());
        featureNormals_.push_back(cell->MeanNormal());
        featureSlots_.push_back(static_cast<std::uint32_t>(features_.size()));
        features_.push_back(cell->sum);
        features_.back().Normalize();
    }
    return true;
}

} // namespace prereg
