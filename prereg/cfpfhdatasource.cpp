#include "VoAlgorithms/prereg/cfpfhdatasource.h"

#include "VoAlgorithms/platform/gpgpu.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "kdtree/detail_unique.h"
#include "platform/detail_clock.h"
#include "platform/detail_log.h"
#include "platform/detail_tasks.h"
#include "prereg/detail_neighbours.h"
#include "prereg/detail_simplehistograms.h"
#include "prereg/detail_surface.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <tuple>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;
using VoAlgo::CSearchGrid;
using VoAlgo::simd::F8;
using VoAlgo::simd::Lanes;

constexpr std::uint32_t None = 0xFFFFFFFFU;
constexpr std::int32_t NoFeature = -1;
constexpr std::int32_t Dropped = -2; // the stored point lies in a changed region
constexpr float CutOffSurface = -1.0F;
// Where the principal axes of the tangential scatter differ by more than this in length, a border of the scan cuts the
// neighbourhood off; as a ratio of eigenvalues.
constexpr float MaxScatterRatio = 1.1236F * 1.1236F;
// Fewer feature points than this share of the points, and a registration has little to work with.
constexpr double LeanShare = 0.01;

const Logging::CLogger& Log()
{
    static const Logging::CLogger& logger = Logging::GetLogger("KEP.PreRegistration.FPFH");
    return logger;
}

bool SameBits(float a, float b)
{
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

unsigned CappedThreads(unsigned threads)
{
    return std::min(threads, std::max(1U, std::thread::hardware_concurrency()));
}

} // namespace

GPUContext::GPUContext() : accessor_(GPGPU::CGPGPUFactory::TechnologyAccess()) {}

/// A scan under examination.
struct CFPFHDataSource::Scan {
    const std::vector<Vec3>& points;
    const std::vector<Vec3>& normals;
    const std::vector<unsigned>* candidates;
    CSearchGrid grid;
    detail::NormalPlanes sortedNormals;

    Scan(const std::vector<Vec3>& scanPoints, const std::vector<Vec3>& scanNormals,
         const std::vector<unsigned>* featureCandidates, float radius)
        : points(scanPoints), normals(scanNormals), candidates(featureCandidates), grid(scanPoints, radius)
    {
        for (auto* plane : {&sortedNormals.x, &sortedNormals.y, &sortedNormals.z}) plane->resize(points.size() + Lanes);
        for (std::size_t i = 0; i < points.size(); ++i) {
            const Vec3& n = normals[grid.Order()[i]];
            sortedNormals.x[i] = n.x;
            sortedNormals.y[i] = n.y;
            sortedNormals.z[i] = n.z;
        }
    }
};

CFPFHDataSource::CFPFHDataSource(double radius, unsigned minCurvatureQuality, unsigned threads, bool incremental)
    : radius_(static_cast<float>(radius)), minCurvatureQuality_(minCurvatureQuality), threads_(CappedThreads(threads)),
      incremental_(incremental)
{
    if (!(radius_ > 0.0F)) throw std::invalid_argument("feature radius must be positive");
}

CFPFHDataSource::CFPFHDataSource(const std::shared_ptr<GPUContext>& gpu, double radius, unsigned minCurvatureQuality,
                                 bool incremental)
    : CFPFHDataSource(radius, minCurvatureQuality, 0, incremental)
{
    gpu_ = gpu;
}

/// What of the previous scan is still there.
struct CFPFHDataSource::Match {
    std::vector<std::uint32_t> origin; // per position of the new scan: position in the previous one, or None
    std::vector<Vec3> changedPlaces;   // of points that came or went

    [[nodiscard]] bool IsFromScratch() const { return origin.empty(); }
    [[nodiscard]] bool IsNew(std::size_t position) const { return origin.empty() || origin[position] == None; }
};

/// Pairs the points of both scans cell by cell, in order, by equal bits of position and normal. The dirty map cannot
/// see a point that moves within a fine cell or turns its normal; this does, so that the result is that of a
/// computation from scratch.
CFPFHDataSource::Match CFPFHDataSource::matchWithPrevious(const Scan& scan) const
{
    Match match;
    match.origin.assign(scan.points.size(), None);
    const auto& oldCells = grid_.Cells();
    const auto& newCells = scan.grid.Cells();
    const auto isBefore = [](const CSearchGrid::Cell& a, const CSearchGrid::Cell& b) {
        return std::tie(a.z, a.y, a.x) < std::tie(b.z, b.y, b.x);
    };
    const auto isSame = [&, &n = scan.sortedNormals](std::uint32_t oldAt, std::uint32_t newAt) {
        return SameBits(grid_.X()[oldAt], scan.grid.X()[newAt]) && SameBits(grid_.Y()[oldAt], scan.grid.Y()[newAt]) &&
               SameBits(grid_.Z()[oldAt], scan.grid.Z()[newAt]) && SameBits(normalX_[oldAt], n.x[newAt]) &&
               SameBits(normalY_[oldAt], n.y[newAt]) && SameBits(normalZ_[oldAt], n.z[newAt]);
    };
    const auto lose = [&](std::uint32_t position) { match.changedPlaces.push_back(grid_.Point(position)); };
    const auto gain = [&](std::uint32_t position) { match.changedPlaces.push_back(scan.grid.Point(position)); };

    std::size_t o = 0;
    std::size_t n = 0;
    while (o < grid_.NumCells() || n < scan.grid.NumCells()) {
        const bool hasOld = o < grid_.NumCells() && (n == scan.grid.NumCells() || !isBefore(newCells[n], oldCells[o]));
        const bool hasNew = n < scan.grid.NumCells() && (o == grid_.NumCells() || !isBefore(oldCells[o], newCells[n]));
        std::uint32_t oldAt = hasOld ? oldCells[o].begin : 0;
        const std::uint32_t oldEnd = hasOld ? oldCells[o + 1].begin : 0;
        std::uint32_t newAt = hasNew ? newCells[n].begin : 0;
        const std::uint32_t newEnd = hasNew ? newCells[n + 1].begin : 0;
        while (oldAt < oldEnd && newAt < newEnd) {
            if (isSame(oldAt, newAt)) {
                match.origin[newAt++] = oldAt++;
                continue;
            }
            // The next of the old points that equals this one, if any: what lies between is gone.
            std::uint32_t next = oldAt + 1;
            while (next < oldEnd && !isSame(next, newAt)) ++next;
            if (next < oldEnd)
                while (oldAt < next) lose(oldAt++);
            else
                gain(newAt++);
        }
        while (oldAt < oldEnd) lose(oldAt++);
        while (newAt < newEnd) gain(newAt++);
        o += hasOld ? 1 : 0;
        n += hasNew ? 1 : 0;
    }
    return match;
}

/// The steps of one update. Points are numbered by their sorted positions in the new scan's grid.
class CFPFHDataSource::FeatureUpdate {
public:
    /// Takes over the scan's grid when the source keeps its state.
    FeatureUpdate(CFPFHDataSource& source, Scan& scan, const Match& match)
        : source_(source), scan_(scan), grid_(scan.grid), match_(match), size_(scan.points.size()),
          radiusSq_(source.radius_ * source.radius_), isStale_(size_ + Lanes)
    {
    }

    void Run()
    {
        FindStaleHistograms();
        ComputeSimpleHistograms();
        FindStaleFeatures();
        ChooseFeaturePoints();
        ComputeFeatures();
        Store();
    }

private:
    /// A simple histogram depends on the points within the radius. What is not stale is taken over.
    void FindStaleHistograms()
    {
        CSearchGrid::Cell cell{};
        CSearchGrid::Run runs[CSearchGrid::NumRuns];
        for (std::size_t k = 0; k < match_.changedPlaces.size(); ++k) { // cell by cell
            const Vec3& place = match_.changedPlaces[k];
            const CSearchGrid::Cell next = grid_.CellAt(place);
            if (k == 0 || !next.IsSamePlace(cell)) grid_.Neighbourhood(cell = next, runs);
            detail::MarkNeighbours<F8>(grid_, place, runs, radiusSq_, isStale_.data());
        }
        simple_.reserve(size_);
        quality_.reserve(size_);
        for (std::uint32_t i = 0; i < size_; ++i) {
            if (isStale_[i] == 0 && !match_.IsNew(i) && source_.featureOf_[match_.origin[i]] != Dropped) {
                simple_.push_back(source_.simple_[match_.origin[i]]);
                quality_.push_back(source_.quality_[match_.origin[i]]);
            } else {
                simple_.emplace_back();
                quality_.push_back(0.0F);
                isStale_[i] = 1;
                todo_.push_back(i);
            }
        }
    }

    void ComputeSimpleHistograms()
    {
        VoAlgo::tasks::ForRanges(todo_.size(), source_.threads_, [this](std::size_t begin, std::size_t end) {
            detail::NeighbourPlanes neighbours;
            detail::PairCounter<F8> counter;
            for (std::size_t t = begin; t < end; ++t) {
                const std::uint32_t i = todo_[t];
                const Vec3& normal = scan_.normals[grid_.Order()[i]];
                detail::CollectNeighbours<F8>(grid_, scan_.sortedNormals, i, radiusSq_, neighbours);
                counter.Count(neighbours, normal, simple_[i].bins);
                quality_[i] = Quality(neighbours, normal);
            }
        });
    }

    [[nodiscard]] float Quality(const detail::NeighbourPlanes& neighbours, const Vec3& normal) const
    {
        if (!(normal.NormSq() > 0.0F)) return CutOffSurface;
        const float quality = detail::CurvatureQuality<F8>(neighbours, normal, source_.radius_);
        if (!IsEnough(quality)) return quality;
        const float ratio = detail::TangentScatterRatio<F8>(neighbours, normal, source_.radius_);
        return ratio <= MaxScatterRatio ? quality : CutOffSurface;
    }

    [[nodiscard]] bool IsEnough(float quality) const
    {
        return quality >= 0.0F && static_cast<double>(quality) >= source_.minCurvatureQuality_;
    }

    /// A feature changes with the set of its neighbours, which made its own simple histogram stale, and with theirs.
    void FindStaleFeatures()
    {
        if (match_.IsFromScratch()) return;
        for (const std::uint32_t i : todo_) {
            if (!match_.IsNew(i) &&
                std::memcmp(&simple_[i], &source_.simple_[match_.origin[i]], sizeof(SimpleHistogram)) == 0)
                continue;
            detail::MarkNeighbours<F8>(grid_, grid_.Point(i), grid_.Neighbourhood(grid_.CellOf(i)), radiusSq_,
                                       isStale_.data());
        }
    }

    /// In the caller's order.
    void ChooseFeaturePoints()
    {
        std::vector<std::uint8_t> isCandidate(size_, scan_.candidates == nullptr ? 1 : 0);
        if (scan_.candidates != nullptr)
            for (const unsigned c : *scan_.candidates) isCandidate[c] = 1;
        std::vector<std::uint32_t> positionOf(size_);
        for (std::uint32_t i = 0; i < size_; ++i) positionOf[grid_.Order()[i]] = i;
        featureOf_.assign(size_, NoFeature);
        for (std::size_t index = 0; index < size_; ++index) {
            const std::uint32_t i = positionOf[index];
            if (isCandidate[index] == 0 || !IsEnough(quality_[i])) continue;
            featureOf_[i] = static_cast<std::int32_t>(featurePositions_.size());
            featurePositions_.push_back(i);
            featurePoints_.push_back(scan_.points[index]);
            featureNormals_.push_back(scan_.normals[index]);
        }
    }

    void ComputeFeatures()
    {
        features_.reserve(featurePositions_.size());
        for (const std::uint32_t i : featurePositions_) {
            const std::int32_t old = isStale_[i] != 0 ? NoFeature : source_.featureOf_[match_.origin[i]];
            if (old < 0) isStale_[i] = 1;
            features_.push_back(old < 0 ? CPointFeatureHistogram() : source_.features_[static_cast<std::size_t>(old)]);
        }
        // In sorted order: the simple histograms around one point are at hand for the next.
        todo_.clear();
        for (std::uint32_t i = 0; i < size_; ++i)
            if (featureOf_[i] != NoFeature && isStale_[i] != 0) todo_.push_back(i);
        VoAlgo::tasks::ForRanges(todo_.size(), source_.threads_, [this](std::size_t begin, std::size_t end) {
            detail::NeighbourList neighbours;
            for (std::size_t t = begin; t < end; ++t) {
                const std::uint32_t i = todo_[t];
                detail::ListNeighbours<F8>(grid_, i, radiusSq_, neighbours);
                features_[static_cast<std::size_t>(featureOf_[i])] = detail::MixHistograms<F8>(simple_, neighbours);
            }
        });
    }

    void Store()
    {
        source_.points_ = scan_.points;
        source_.normals_ = scan_.normals;
        source_.featurePoints_ = std::move(featurePoints_);
        source_.featureNormals_ = std::move(featureNormals_);
        source_.features_ = std::move(features_);
        if (!source_.incremental_) return;
        source_.simple_ = std::move(simple_);
        source_.quality_ = std::move(quality_);
        source_.featureOf_ = std::move(featureOf_);
        source_.grid_ = std::move(scan_.grid);
        source_.normalX_ = std::move(scan_.sortedNormals.x);
        source_.normalY_ = std::move(scan_.sortedNormals.y);
        source_.normalZ_ = std::move(scan_.sortedNormals.z);
    }

    CFPFHDataSource& source_; // holds the previous scan until Store
    Scan& scan_;
    const CSearchGrid& grid_;
    const Match& match_;
    std::size_t size_;
    float radiusSq_;
    std::vector<std::uint8_t> isStale_; // the simple histogram, later the feature, must be computed
    std::vector<std::uint32_t> todo_;
    std::vector<SimpleHistogram> simple_;
    std::vector<float> quality_;
    std::vector<std::int32_t> featureOf_;
    std::vector<std::uint32_t> featurePositions_; // its inverse
    std::vector<Vec3> featurePoints_;
    std::vector<Vec3> featureNormals_;
    std::vector<CPointFeatureHistogram> features_;
};

bool CFPFHDataSource::Update(const std::vector<Vec3>& points, const std::vector<Vec3>& normals,
                             const std::vector<unsigned>* candidates)
{
    constexpr const char* function = "prereg::CFPFHDataSource::Update";
    const VoAlgo::CStopwatch stopwatch;
    if (points.size() != normals.size()) throw std::invalid_argument("points and normals differ in number");
    if (candidates != nullptr)
        for (const unsigned c : *candidates)
            if (c >= points.size()) throw std::out_of_range("invalid vector<T> subscript");

    const std::size_t regular =
        points.empty() ? 0 : kdtree::detail::UniqueFinite(&points[0].x, points.size(), 4, 3).size();
    if (regular == 0 && !points.empty()) {
        VOALGO_LOG(Log(), Error, function, L"rejecting update: detected (only) irregular points (Inf/NaN/dupes)");
        return false;
    }
    if (regular != points.size()) {
        VOALGO_LOG(Log(), Error, function, L"rejecting update: kD-tree detected irregular points (Inf/NaN/dupes)");
        return false;
    }

    Scan scan(points, normals, candidates, radius_);
    if (gpu_ && *gpu_ && updateUsingGPU(scan)) {
        VOALGO_LOG(Log(), Info, function, L"Update of FPFH point set (GPU) took %.3f s", stopwatch.Seconds());
        return true;
    }
    Match match;
    if (incremental_) {
        for (std::size_t i = 0; i < points.size(); ++i)
            dirtyMap_.insert(scan.grid.Point(i)); // by place: less to search
        removeContentsOfDirtyBBoxes(dirtyMap_.dirty());
        if (grid_.Size() != 0) match = matchWithPrevious(scan);
    }
    FeatureUpdate(*this, scan, match).Run();
    VOALGO_LOG(Log(), Info, function, L"Update of FPFH point set (CPU, %u threads) took %.3f s", threads_,
               stopwatch.Seconds());
    if (static_cast<double>(features_.size()) < LeanShare * static_cast<double>(points_.size()))
        VOALGO_LOG(Log(), Warn, function,
                   L"only %zu of %zu points are feature points (curvature quality >= %g, radius %g mm)",
                   features_.size(), points_.size(), minCurvatureQuality_, static_cast<double>(radius_));
    return true;
}

bool CFPFHDataSource::updateUsingGPU(const Scan& /*scan*/)
{
    return false;
}

/// What is stored in the boxes is not taken over but computed again.
void CFPFHDataSource::removeContentsOfDirtyBBoxes(const std::vector<kdtree::Range<3>>& boxes)
{
    std::vector<CSearchGrid::Run> runs;
    for (const kdtree::Range<3>& box : boxes) {
        runs.clear();
        grid_.AppendRuns(box, runs);
        for (const CSearchGrid::Run& run : runs)
            for (std::uint32_t i = run.begin; i < run.end; ++i)
                if (kdtree::Contains(box, grid_.Point(i))) featureOf_[i] = Dropped;
    }
}

void CFPFHDataSource::forgetScan()
{
    simple_.clear();
    quality_.clear();
    featureOf_.clear();
    grid_ = CSearchGrid();
    for (auto* plane : {&normalX_, &normalY_, &normalZ_}) plane->clear();
    dirtyMap_.reset();
}

void CFPFHDataSource::Clear()
{
    points_.clear();
    normals_.clear();
    featurePoints_.clear();
    featureNormals_.clear();
    features_.clear();
    forgetScan();
}

} // namespace prereg
