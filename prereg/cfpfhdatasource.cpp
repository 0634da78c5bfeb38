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

bool SameBits(const Vec3& a, const Vec3& b)
{
    return std::memcmp(&a, &b, sizeof(Vec3)) == 0;
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

    [[nodiscard]] bool IsNew(std::size_t position) const { return origin.empty() || origin[position] == None; }
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

    const Scan scan(points, normals, candidates, radius_);
    if (gpu_ && *gpu_ && updateUsingGPU(scan)) {
        VOALGO_LOG(Log(), Info, function, L"Update of FPFH point set (GPU) took %.3f s", stopwatch.Seconds());
        return true;
    }
    Match match;
    if (incremental_) {
        for (const Vec3& p : points) dirtyMap_.insert(p);
        removeContentsOfDirtyBBoxes(dirtyMap_.dirty());
        if (grid_.Size() != 0) match = matchWithPrevious(scan);
    }
    updateFeatures(scan, match);
    VOALGO_LOG(Log(), Info, function, L"Update of FPFH point set (CPU, %u threads) took %.3f s", threads_,
               stopwatch.Seconds());
    if (static_cast<double>(features_.size()) < LeanShare * static_cast<double>(points_.size()))
        VOALGO_LOG(Log(), Warn, function,
                   L"only %zu of %zu points are feature points (curvature quality >= %g, radius %g mm)",
                   features_.size(), points_.size(), minCurvatureQuality_, static_cast<double>(radius_));
    return true;
}

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
        const auto isSame = [&](std::uint32_t oldPosition, std::uint32_t newPosition) {
            const std::uint32_t oldIndex = grid_.Order()[oldPosition];
            const std::uint32_t newIndex = scan.grid.Order()[newPosition];
            return SameBits(points_[oldIndex], scan.points[newIndex]) &&
                   SameBits(normals_[oldIndex], scan.normals[newIndex]);
        };
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

void CFPFHDataSource::updateFeatures(const Scan& scan, const Match& match)
{
    const std::size_t size = scan.points.size();
    const CSearchGrid& grid = scan.grid;
    const float radiusSq = radius_ * radius_;
    const bool fromScratch = match.origin.empty();

    // What the simple histograms depend on changed within the radius of every point that came or went.
    std::vector<std::uint8_t> isStale(size, fromScratch ? 1 : 0);
    for (const Vec3& place : match.changedPlaces) {
        CSearchGrid::Run runs[CSearchGrid::NumRuns];
        grid.Neighbourhood(place, runs);
        detail::ForNeighbours<F8>(grid, place, runs, radiusSq,
                                  [&](std::uint32_t position, float) { isStale[position] = 1; });
    }
    std::vector<SimpleHistogram> simple(size);
    std::vector<float> quality(size);
    std::vector<std::uint32_t> todo;
    for (std::uint32_t i = 0; i < size; ++i) {
        if (!fromScratch && match.origin[i] != None && featureOf_[match.origin[i]] != Dropped && isStale[i] == 0) {
            simple[i] = simple_[match.origin[i]];
            quality[i] = quality_[match.origin[i]];
        } else {
            isStale[i] = 1;
            todo.push_back(i);
        }
    }
    VoAlgo::tasks::ForRanges(todo.size(), threads_, [&](std::size_t begin, std::size_t end) {
        detail::NeighbourPlanes neighbours;
        detail::PairCounter<F8> counter;
        for (std::size_t t = begin; t < end; ++t) {
            const std::uint32_t i = todo[t];
            const Vec3& normal = scan.normals[grid.Order()[i]];
            detail::CollectNeighbours<F8>(grid, scan.sortedNormals, i, radiusSq, neighbours);
            counter.Count(neighbours, normal, simple[i].bins);
            const bool isWhole = detail::TangentScatterRatio<F8>(neighbours, normal, radius_) <= MaxScatterRatio;
            quality[i] = isWhole && normal.NormSq() > 0.0F ? detail::CurvatureQuality<F8>(neighbours, normal, radius_)
                                                           : CutOffSurface;
        }
    });

    // A feature changes with the set of its neighbours, which made its own simple histogram stale, and with theirs.
    if (!fromScratch) {
        const std::vector<std::uint8_t> hasNewSimple = isStale;
        for (const std::uint32_t i : todo) {
            if (match.origin[i] != None &&
                std::memcmp(&simple[i], &simple_[match.origin[i]], sizeof(SimpleHistogram)) == 0)
                continue;
            detail::ForNeighbours<F8>(grid, grid.Point(i), grid.Neighbourhood(grid.CellOf(i)), radiusSq,
                                      [&](std::uint32_t position, float) { isStale[position] = 1; });
        }
    }

    std::vector<std::uint8_t> isCandidate(size, scan.candidates == nullptr ? 1 : 0);
    if (scan.candidates != nullptr)
        for (const unsigned c : *scan.candidates) isCandidate[c] = 1;
    std::vector<std::uint32_t> positionOf(size);
    for (std::uint32_t i = 0; i < size; ++i) positionOf[grid.Order()[i]] = i;

    // Feature points in the caller's order.
    std::vector<Vec3> featurePoints;
    std::vector<Vec3> featureNormals;
    std::vector<std::uint32_t> featurePositions;
    std::vector<std::int32_t> featureOf(size, NoFeature);
    for (std::size_t index = 0; index < size; ++index) {
        const std::uint32_t i = positionOf[index];
        if (isCandidate[index] == 0 || quality[i] < 0.0F || static_cast<double>(quality[i]) < minCurvatureQuality_)
            continue;
        featureOf[i] = static_cast<std::int32_t>(featurePoints.size());
        featurePoints.push_back(scan.points[index]);
        featureNormals.push_back(scan.normals[index]);
        featurePositions.push_back(i);
    }
    std::vector<CPointFeatureHistogram> features(featurePoints.size());
    todo.clear();
    for (std::uint32_t f = 0; f < features.size(); ++f) {
        const std::uint32_t i = featurePositions[f];
        const std::int32_t old = isStale[i] != 0 ? NoFeature : featureOf_[match.origin[i]];
        if (old >= 0)
            features[f] = features_[static_cast<std::size_t>(old)];
        else
            todo.push_back(f);
    }
    VoAlgo::tasks::ForRanges(todo.size(), threads_, [&](std::size_t begin, std::size_t end) {
        detail::NeighbourList neighbours;
        for (std::size_t t = begin; t < end; ++t) {
            detail::ListNeighbours<F8>(grid, featurePositions[todo[t]], radiusSq, neighbours);
            features[todo[t]] = detail::MixHistograms<F8>(simple, neighbours);
        }
    });

    points_ = scan.points;
    normals_ = scan.normals;
    featurePoints_ = std::move(featurePoints);
    featureNormals_ = std::move(featureNormals);
    features_ = std::move(features);
    if (!incremental_) return;
    simple_ = std::move(simple);
    quality_ = std::move(quality);
    featureOf_ = std::move(featureOf);
    grid_ = grid;
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
