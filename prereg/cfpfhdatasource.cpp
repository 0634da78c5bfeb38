// Fast point feature histograms of a scan (R. B. Rusu, N. Blodow, M. Beetz, ICRA 2009):
// 1. Index the points in a uniform grid of the feature radius; refuse scans with non-finite or duplicate points.
// 2. Simple histogram of each point: how its normal is turned against those of its neighbours, three angles a pair.
// 3. Choose the feature points: enough curvature, and a neighbourhood that no border of the scan cuts off.
// 4. Feature of a feature point: the sum of its neighbours' simple histograms, each divided by its distance,
// normalised. Incremental updates repeat this only where the dirty map says that the scan has changed; the bits are the
// same. Workers write only their own entries, so results do not depend on the number of threads.
#include "VoAlgorithms/prereg/cfpfhdatasource.h"

#include "VoAlgorithms/platform/gpgpu.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "kdtree/unique.h"
#include "platform/channels.h"
#include "platform/clock.h"
#include "platform/tasks.h"
#include "prereg/detail_curvature.h"
#include "prereg/detail_neighbours.h"
#include "prereg/detail_simplehistograms.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <tuple>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;
using VoAlgo::CSearchGrid;
using VoAlgo::simd::F8;
using VoAlgo::simd::Lanes;

constexpr std::uint32_t None = 0xFFFFFFFFU;
constexpr float CutOffSurface = -1.0F;
// The scatter of an intact neighbourhood is about as wide as long: its eigenvalues differ by no more than this factor.
constexpr float MaxScatterRatio = 1.1236F; // 1.06²
// Fewer feature points than this share of the points, and a registration has little to work with.
constexpr double LeanShare = 0.01;

bool SameBits(float a, float b)
{
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

bool HasDuplicates(const std::vector<Vec3>& finite)
{
    return !finite.empty() && kdtree::detail::UniqueFinite(&finite[0].x, finite.size(), 4, 3).size() != finite.size();
}

unsigned CappedThreads(unsigned threads)
{
    return std::min(threads, std::max(1U, std::thread::hardware_concurrency()));
}

} // namespace

GPUContext::GPUContext() : accessor_(GPGPU::CGPGPUFactory::TechnologyAccess()) {}

/// The scan being processed.
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

/// Which points of the previous scan are still there.
struct CFPFHDataSource::Match {
    std::vector<std::uint32_t> origin;  // per position of the new scan: position in the previous one, or None
    std::vector<std::uint32_t> arrived; // positions of new points
    std::vector<Vec3> changedPlaces;    // of points that came or went

    [[nodiscard]] bool IsFromScratch() const { return origin.empty(); }
    [[nodiscard]] bool IsNew(std::size_t position) const { return origin.empty() || origin[position] == None; }
    [[nodiscard]] bool HasDuplicates(const CSearchGrid& grid) const;
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
    const auto gain = [&](std::uint32_t position) {
        match.arrived.push_back(position);
        match.changedPlaces.push_back(scan.grid.Point(position));
    };

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

/// Whether a point that came repeats another one. Those that stayed were distinct before.
bool CFPFHDataSource::Match::HasDuplicates(const CSearchGrid& grid) const
{
    return std::any_of(arrived.begin(), arrived.end(), [&grid](std::uint32_t i) {
        const std::uint32_t cell = grid.CellOf(i);
        for (std::uint32_t other = grid.Cells()[cell].begin; other < grid.Cells()[cell + 1].begin; ++other)
            if (other != i && grid.X()[other] == grid.X()[i] && grid.Y()[other] == grid.Y()[i] &&
                grid.Z()[other] == grid.Z()[i])
                return true;
        return false;
    });
}

/// The steps of one update. Points are numbered by their sorted positions in the new scan's grid; what was computed for
/// a point stays in its slot from update to update, so that only what is new is written.
class CFPFHDataSource::FeatureUpdate {
public:
    /// Takes over the scan's grid when the source keeps its state.
    FeatureUpdate(CFPFHDataSource& source, Scan& scan, const Match& match)
        : source_(source), scan_(scan), grid_(scan.grid), match_(match), size_(scan.points.size()),
          radiusSq_(source.radius_ * source.radius_), isStale_(size_ + Lanes, match.IsFromScratch() ? 1 : 0)
    {
    }

    void Run()
    {
        assignSlots();
        findStaleHistograms();
        computeSimpleHistograms();
        findStaleFeatures();
        chooseFeaturePoints();
        computeFeatures();
        store();
    }

private:
    /// New points take the slots of those that went, then further ones.
    void assignSlots()
    {
        slotOf_.resize(size_);
        if (match_.IsFromScratch()) {
            std::iota(slotOf_.begin(), slotOf_.end(), 0U);
            source_.states_.clear();
            resize(size_);
            return;
        }
        std::vector<std::uint8_t> isTaken(source_.states_.size());
        for (std::uint32_t i = 0; i < size_; ++i) {
            if (match_.IsNew(i)) continue;
            slotOf_[i] = source_.slotOf_[match_.origin[i]];
            isTaken[slotOf_[i]] = 1;
        }
        std::uint32_t slot = 0;
        for (std::uint32_t i = 0; i < size_; ++i) {
            if (!match_.IsNew(i)) continue;
            while (slot < isTaken.size() && isTaken[slot] != 0) ++slot;
            slotOf_[i] = slot++;
            if (slot <= isTaken.size()) source_.states_[slotOf_[i]] = Unknown;
        }
        resize(std::max<std::size_t>(slot, isTaken.size()));
    }

    void resize(std::size_t slots)
    {
        source_.states_.resize(slots, Unknown);
        source_.simple_.resize(slots);
        source_.quality_.resize(slots);
        source_.features_.resize(slots);
    }

    /// A simple histogram depends on the points within the radius.
    void findStaleHistograms()
    {
        CSearchGrid::Cell cell{};
        CSearchGrid::Run runs[CSearchGrid::NumRuns];
        for (std::size_t k = 0; k < match_.changedPlaces.size(); ++k) { // cell by cell
            const Vec3& place = match_.changedPlaces[k];
            const CSearchGrid::Cell next = grid_.CellAt(place);
            if (k == 0 || !next.IsSamePlace(cell)) grid_.Neighbourhood(cell = next, runs);
            detail::MarkNeighbours<F8>(grid_, place, runs, radiusSq_, isStale_.data());
        }
        for (std::uint32_t i = 0; i < size_; ++i) {
            if (source_.states_[slotOf_[i]] == Unknown) isStale_[i] = 1;
            if (isStale_[i] != 0) todo_.push_back(i);
        }
    }

    void computeSimpleHistograms()
    {
        isChanged_.resize(todo_.size());
        VoAlgo::tasks::ForRanges(todo_.size(), source_.threads_, [this](std::size_t begin, std::size_t end) {
            detail::NeighbourPlanes neighbours;
            detail::PairCounter<F8> counter;
            for (std::size_t t = begin; t < end; ++t) {
                const std::uint32_t i = todo_[t];
                const Vec3& normal = scan_.normals[grid_.Order()[i]];
                detail::CollectNeighbours<F8>(grid_, scan_.sortedNormals, i, radiusSq_, neighbours);
                SimpleHistogram computed;
                counter.Count(neighbours, normal, computed.bins);
                SimpleHistogram& stored = source_.simple_[slotOf_[i]];
                isChanged_[t] = match_.IsNew(i) || std::memcmp(&computed, &stored, sizeof(stored)) != 0 ? 1 : 0;
                stored = computed;
                source_.quality_[slotOf_[i]] = qualityOf(neighbours, normal);
            }
        });
    }

    [[nodiscard]] float qualityOf(const detail::NeighbourPlanes& neighbours, const Vec3& normal) const
    {
        if (!(normal.NormSq() > 0.0F)) return CutOffSurface;
        const float quality = detail::CurvatureQuality<F8>(neighbours, normal, source_.radius_);
        if (!isEnough(quality)) return quality;
        const float ratio = detail::TangentScatterRatio<F8>(neighbours, normal, source_.radius_);
        return ratio <= MaxScatterRatio ? quality : CutOffSurface;
    }

    [[nodiscard]] bool isEnough(float quality) const
    {
        return quality >= 0.0F && static_cast<double>(quality) >= source_.minCurvatureQuality_;
    }

    /// A feature changes with the set of its neighbours, which made its own simple histogram stale, and with theirs.
    void findStaleFeatures()
    {
        if (match_.IsFromScratch()) return;
        for (std::size_t t = 0; t < todo_.size(); ++t) {
            if (isChanged_[t] == 0) continue;
            const std::uint32_t i = todo_[t];
            detail::MarkNeighbours<F8>(grid_, grid_.Point(i), grid_.Neighbourhood(grid_.CellOf(i)), radiusSq_,
                                       isStale_.data());
        }
    }

    /// Lists the feature points in the caller's order and, in sorted order, the features to be computed: the simple
    /// histograms around one point are then at hand for the next.
    void chooseFeaturePoints()
    {
        std::vector<std::uint8_t> isCandidate(size_, scan_.candidates == nullptr ? 1 : 0);
        if (scan_.candidates != nullptr)
            for (const unsigned c : *scan_.candidates) isCandidate[c] = 1;
        std::vector<std::uint32_t> featureSlot(size_, None); // by the caller's index
        todo_.clear();
        for (std::uint32_t i = 0; i < size_; ++i) {
            const std::uint32_t slot = slotOf_[i];
            const std::uint32_t index = grid_.Order()[i];
            const bool isFeature = isEnough(source_.quality_[slot]) && isCandidate[index] != 0;
            if (isFeature) {
                featureSlot[index] = slot;
                if (isStale_[i] != 0 || source_.states_[slot] != HasFeature) todo_.push_back(i);
            }
            source_.states_[slot] = isFeature ? HasFeature : HasHistogram;
        }
        source_.featurePoints_.clear();
        source_.featureNormals_.clear();
        source_.featureSlots_.clear();
        for (std::size_t index = 0; index < size_; ++index) {
            if (featureSlot[index] == None) continue;
            source_.featurePoints_.push_back(scan_.points[index]);
            source_.featureNormals_.push_back(scan_.normals[index]);
            source_.featureSlots_.push_back(featureSlot[index]);
        }
    }

    void computeFeatures()
    {
        VoAlgo::tasks::ForRanges(todo_.size(), source_.threads_, [this](std::size_t begin, std::size_t end) {
            detail::NeighbourList neighbours;
            for (std::size_t t = begin; t < end; ++t) {
                const std::uint32_t i = todo_[t];
                detail::ListNeighbours<F8>(grid_, i, radiusSq_, neighbours);
                if (!match_.IsFromScratch()) // else positions are slots
                    for (std::size_t k = 0; k < neighbours.count; ++k)
                        neighbours.positions[k] = slotOf_[neighbours.positions[k]];
                source_.features_[slotOf_[i]] = detail::MixHistograms<F8>(source_.simple_, neighbours);
            }
        });
    }

    void store()
    {
        source_.points_ = scan_.points;
        source_.normals_ = scan_.normals;
        if (!source_.incremental_) {
            source_.simple_ = std::vector<SimpleHistogram>();
            return;
        }
        source_.slotOf_ = std::move(slotOf_);
        source_.grid_ = std::move(scan_.grid);
        source_.normalX_ = std::move(scan_.sortedNormals.x);
        source_.normalY_ = std::move(scan_.sortedNormals.y);
        source_.normalZ_ = std::move(scan_.sortedNormals.z);
    }

    CFPFHDataSource& source_;
    Scan& scan_;
    const CSearchGrid& grid_;
    const Match& match_;
    std::size_t size_;
    float radiusSq_;
    std::vector<std::uint32_t> slotOf_;
    std::vector<std::uint8_t> isStale_; // the simple histogram, later the feature, must be computed
    std::vector<std::uint32_t> todo_;
    std::vector<std::uint8_t> isChanged_; // of todo_: the simple histogram came out different
};

bool CFPFHDataSource::Update(const std::vector<Vec3>& points, const std::vector<Vec3>& normals,
                             const std::vector<unsigned>* candidates)
{
    constexpr const char* Function = "prereg::CFPFHDataSource::Update";
    const VoAlgo::CStopwatch stopwatch;
    if (points.size() != normals.size()) throw std::invalid_argument("points and normals differ in number");
    if (candidates != nullptr)
        for (const unsigned c : *candidates)
            if (c >= points.size()) throw std::out_of_range("invalid vector<T> subscript");

    const auto finite = static_cast<std::size_t>(
        std::count_if(points.begin(), points.end(), [](const Vec3& p) { return p.IsValid(); }));
    if (finite == 0 && !points.empty()) {
        VOALGO_LOG(channels::Features(), Error, Function,
                   L"rejecting update: detected (only) irregular points (Inf/NaN/dupes)");
        return false;
    }
    const auto reject = [] {
        VOALGO_LOG(channels::Features(), Error, Function,
                   L"rejecting update: kD-tree detected irregular points (Inf/NaN/dupes)");
        return false;
    };
    if (finite != points.size()) return reject();
    const bool isFromScratch = grid_.Size() == 0;
    if (isFromScratch && HasDuplicates(points)) return reject();

    Scan scan(points, normals, candidates, radius_);
    Match match;
    if (!isFromScratch) match = matchWithPrevious(scan);
    if (match.HasDuplicates(scan.grid)) return reject();
    if (gpu_ && *gpu_ && updateUsingGPU(scan)) {
        forgetScan(); // the next update starts from scratch
        VOALGO_LOG(channels::Features(), Info, Function, L"Update of FPFH point set (GPU) took %.3f s",
                   stopwatch.Seconds());
        return true;
    }
    if (incremental_) {
        dirtyMap_.insert(scan.grid.X(), scan.grid.Y(), scan.grid.Z(), points.size());
        removeContentsOfDirtyBBoxes(dirtyMap_.dirty());
    }
    try {
        FeatureUpdate(*this, scan, match).Run();
    } catch (...) { // out of memory half-way
        Clear();
        throw;
    }
    VOALGO_LOG(channels::Features(), Info, Function, L"Update of FPFH point set (CPU, %u threads) took %.3f s",
               threads_, stopwatch.Seconds());
    if (static_cast<double>(featureSlots_.size()) < LeanShare * static_cast<double>(points_.size()))
        VOALGO_LOG(channels::Features(), Warn, Function,
                   L"only %zu of %zu points are feature points (curvature quality >= %g, radius %g mm)",
                   featureSlots_.size(), points_.size(), minCurvatureQuality_, static_cast<double>(radius_));
    return true;
}

/// There are no kernels for any GPU yet: nothing is computed or stored, and the CPU does the work. An implementation
/// stores the whole result, with the bits of the CPU path, before it answers true, and leaves no state for increments.
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
                if (kdtree::Contains(box, grid_.Point(i))) states_[slotOf_[i]] = Unknown;
    }
}

std::vector<CPointFeatureHistogram> CFPFHDataSource::GetFeatures() const
{
    std::vector<CPointFeatureHistogram> features;
    features.reserve(featureSlots_.size());
    for (const std::uint32_t slot : featureSlots_) features.push_back(features_[slot]);
    return features;
}

void CFPFHDataSource::forgetScan()
{
    simple_.clear();
    quality_.clear();
    states_.clear();
    slotOf_.clear();
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
    featureSlots_.clear();
    forgetScan();
}

} // namespace prereg
