// One proposal of a pose from a random polygon of feature points:
// 1. Seed: one member of every feature cluster, or vertices within a ball of the largest diameter, or anywhere.
// 2. Look up the most similar features of 'fix' for every vertex: its candidates.
// 3. Choose one candidate per vertex so that the side lengths agree: the shortest closed path through the layers of
//    candidates (E. W. Dijkstra, Numerische Mathematik 1 (1959) 269-271).
// 4. Shrink: drop the vertices whose error is too large and choose again, until all that are left fit.
// 5. Fit the pose to the matched vertices, weighted by their errors (B. K. P. Horn, J. Opt. Soc. Am. A 4 (1987)
//    629-642).
#include "prereg/cfpfhpolygon.h"

#include "VoAlgorithms/clustering/cdigraph.h"
#include "VoAlgorithms/numerics/symsolvers.h"
#include "platform/channels.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;
using Candidates = std::vector<CFPFHPolygon::IdxAndDist>;

constexpr std::size_t FeaturesPerVertex = 5; // with fewer, seeding fails
constexpr std::size_t NumCentres = 5;
constexpr float MaxHistogramDistance = 0.5F;
constexpr std::size_t MinVertices = 3;
constexpr double NoError = 2.220446049250313e-13;

/// k distinct indices out of n, uniformly, in the order drawn; none when n < k.
std::vector<std::size_t> DrawDistinct(std::mt19937& engine, std::size_t k, std::size_t n)
{
    std::vector<std::size_t> drawn;
    if (n < k || n == 0) return drawn;
    std::uniform_int_distribution<std::size_t> uniform(0, n - 1);
    while (drawn.size() < k) {
        const std::size_t i = uniform(engine);
        if (std::find(drawn.begin(), drawn.end(), i) == drawn.end()) drawn.push_back(i);
    }
    return drawn;
}

/// A vertex while it is being matched.
struct Vertex {
    Vec3 fltPosition;
    Candidates candidates;
    std::int32_t match = -1; // feature of 'fix'
    float error = std::numeric_limits<float>::infinity();
};

/// Chooses one candidate per vertex so that the side lengths agree: the shortest closed path through the layers of
/// candidates, with the mismatch of a side as the weight of an edge. A vertex's error is the larger mismatch of its two
/// sides. False when there is no closed path.
class ConsistentAssignment {
public:
    explicit ConsistentAssignment(const CFPFHPointSet& fix) : fix_(fix) {}

    bool Run(std::vector<Vertex>& vertices)
    {
        buildGraph(vertices);
        float shortest = std::numeric_limits<float>::infinity();
        std::vector<unsigned> path;
        for (unsigned s = 0; s < vertices.front().candidates.size(); ++s) {
            const unsigned end = firstNode_.back() + s; // the same candidate in the closing layer
            graph_.ComputeShortestPaths(s, end, shortest);
            if (!(graph_.GetDistance(end) < shortest)) continue;
            shortest = graph_.GetDistance(end);
            path.clear();
            for (unsigned node = end; node != VoAlgo::CDiGraph::None; node = graph_.GetPredecessor(node))
                path.push_back(node);
            std::reverse(path.begin(), path.end());
        }
        if (path.empty()) return false;
        readBack(vertices, path);
        return true;
    }

private:
    [[nodiscard]] float sideMismatch(const Vertex& a, std::int32_t fixA, const Vertex& b, std::int32_t fixB) const
    {
        const float side = (b.fltPosition - a.fltPosition).Norm();
        const Vec3 matched = fix_.GetFeaturePoints()[static_cast<std::size_t>(fixB)] -
                             fix_.GetFeaturePoints()[static_cast<std::size_t>(fixA)];
        return std::fabs(matched.Norm() - side);
    }

    /// One layer of nodes per vertex, and a copy of the first layer to close the path.
    void buildGraph(const std::vector<Vertex>& vertices)
    {
        const std::size_t n = vertices.size();
        firstNode_.assign(1, 0);
        for (const Vertex& v : vertices)
            firstNode_.push_back(firstNode_.back() + static_cast<unsigned>(v.candidates.size()));
        graph_.Reset(firstNode_.back() + vertices.front().candidates.size());
        for (std::size_t i = 0; i < n; ++i) {
            const Vertex& a = vertices[i];
            const Vertex& b = vertices[(i + 1) % n];
            const float side = (b.fltPosition - a.fltPosition).Norm();
            for (unsigned from = 0; from < a.candidates.size(); ++from) {
                const Vec3 p = fix_.GetFeaturePoints()[static_cast<std::size_t>(a.candidates[from].index)];
                for (unsigned to = 0; to < b.candidates.size(); ++to) {
                    const Vec3& q = fix_.GetFeaturePoints()[static_cast<std::size_t>(b.candidates[to].index)];
                    const float mismatch = std::fabs((q - p).Norm() - side);
                    if (std::isfinite(mismatch)) // a feature without a finite position joins no polygon
                        graph_.AddEdge(firstNode_[i] + from, firstNode_[i + 1] + to, mismatch);
                }
            }
        }
    }

    void readBack(std::vector<Vertex>& vertices, const std::vector<unsigned>& path) const
    {
        const std::size_t n = vertices.size();
        for (std::size_t i = 0; i < n; ++i) vertices[i].match = vertices[i].candidates[path[i] - firstNode_[i]].index;
        std::vector<float> mismatch(n); // of the side that leaves a vertex
        for (std::size_t i = 0; i < n; ++i) {
            const Vertex& next = vertices[(i + 1) % n];
            mismatch[i] = sideMismatch(vertices[i], vertices[i].match, next, next.match);
        }
        for (std::size_t i = 0; i < n; ++i) vertices[i].error = std::max(mismatch[i], mismatch[(i + n - 1) % n]);
    }

    const CFPFHPointSet& fix_;
    VoAlgo::CDiGraph graph_;
    std::vector<unsigned> firstNode_; // of every layer
};

/// Candidates per vertex: as many as wanted, but the n·k² edges of the graph are never more than the histograms of
/// 'fix' have bins, so that no setting lets the matching outgrow the data.
unsigned LimitCandidates(unsigned wanted, std::size_t vertices, const CFPFHPointSet& fix)
{
    const auto bins = static_cast<double>(CPointFeatureHistogram::NumBins * fix.SizeFeatures());
    const double most = std::sqrt(bins / static_cast<double>(vertices));
    return static_cast<double>(wanted) <= most ? wanted : static_cast<unsigned>(most);
}

std::vector<Vertex> LookUpCandidates(const std::vector<CPointFeatureHistogram>& histograms,
                                     const std::vector<std::int32_t>& indices, const CFPFHPointSet& fix,
                                     const CFPFHPointSet& flt, unsigned numNeighbours)
{
    using IdxAndDist = CFPFHPolygon::IdxAndDist;
    const std::function<bool(const IdxAndDist&, const IdxAndDist&)> isBefore = [](const IdxAndDist& a,
                                                                                  const IdxAndDist& b) {
        return a.distance != b.distance ? a.distance < b.distance : a.index < b.index;
    };
    const unsigned numCandidates = LimitCandidates(numNeighbours, indices.size(), fix);
    std::vector<Vertex> vertices(indices.size());
    std::vector<std::pair<int, float>> similar;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        vertices[i].fltPosition = flt.GetFeaturePoint(static_cast<std::size_t>(indices[i]));
        fix.LookupSimilarFeatures(similar, histograms[i], numCandidates, MaxHistogramDistance);
        for (const auto& [index, distance] : similar) vertices[i].candidates.push_back({index, distance});
        std::sort(vertices[i].candidates.begin(), vertices[i].candidates.end(), isBefore);
    }
    return vertices;
}

/// Weighted fit of the matched vertices: weight 100 for a perfect vertex down to 0.01 for the worst.
VoAlgo::CTrafo FitPose(const std::vector<Vertex>& vertices, const CFPFHPointSet& fix)
{
    const std::size_t m = vertices.size();
    double largest = 0.0;
    for (const Vertex& v : vertices) largest = std::max(largest, static_cast<double>(v.error));
    if (largest <= NoError) largest = 1.0;
    std::vector<double> moving(3 * m);
    std::vector<double> target(3 * m);
    std::vector<double> weights(m);
    for (std::size_t i = 0; i < m; ++i) {
        const Vec3 p = fix.GetFeaturePoint(static_cast<std::size_t>(vertices[i].match));
        for (std::size_t c = 0; c < 3; ++c) {
            moving[3 * i + c] = static_cast<double>(vertices[i].fltPosition[c]);
            target[3 * i + c] = static_cast<double>(p[c]);
        }
        const double weight = 10.0 - 9.9 * static_cast<double>(vertices[i].error) / largest;
        weights[i] = weight * weight;
    }
    double quaternion[4];
    double rotation[3][3];
    double translation[3];
    if (!VoAlgo::symsolvers::Procrustes(moving.data(), target.data(), weights.data(), quaternion, rotation, translation,
                                        static_cast<unsigned>(m))) {
        VOALGO_LOG(channels::Features(), Trace, "prereg::CFPFHPolygon::ComputePreRegistration",
                   L"unreliable Procrustes result (%u points)", static_cast<unsigned>(m));
        return VoAlgo::CTrafo::Invalid();
    }
    const auto toVector = [](const double* v) {
        return Vec3(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
    };
    return {toVector(rotation[0]), toVector(rotation[1]), toVector(rotation[2]), toVector(translation)};
}

} // namespace

CFPFHPolygon::CFPFHPolygon(std::mt19937& engine, const CFPFHPointSet& flt, const CFPFHClusterAnalysis& clusters,
                           const ConfigurationFPFH& config, double samplingDistance)
{
    const std::size_t n = config.uiNumPolygonVertices;
    if (flt.SizeFeatures() < FeaturesPerVertex * n) {
        VOALGO_LOG(channels::Features(), Warn, "prereg::CFPFHPolygon::CFPFHPolygon", L"too few points for seeding");
        fail();
        return;
    }
    if (clusters.GetNumClusters() != 0)
        seedFromClusters(engine, clusters);
    else if (config.dMaxPolygonDiameter < 0.0 || !seedWithinDiameter(engine, flt, n, config.dMaxPolygonDiameter))
        seedAnywhere(engine, flt, n, samplingDistance);
    if (indices_.empty()) {
        fail();
        return;
    }
    for (const std::int32_t index : indices_) vertices_.push_back(flt.GetFeature(static_cast<std::size_t>(index)));
}

void CFPFHPolygon::fail()
{
    indices_.assign(1, -1);
}

void CFPFHPolygon::seedFromClusters(std::mt19937& engine, const CFPFHClusterAnalysis& clusters)
{
    for (std::size_t k = 0; k < clusters.GetNumClusters(); ++k) {
        std::uniform_int_distribution<std::size_t> uniform(0, clusters.GetClusterSize(k) - 1);
        indices_.push_back(static_cast<std::int32_t>(clusters.GetCluster(k).begin()[uniform(engine)]));
    }
}

/// True when there is nothing left to try: vertices were found, or there are too few features to draw centres from.
bool CFPFHPolygon::seedWithinDiameter(std::mt19937& engine, const CFPFHPointSet& flt, std::size_t n, double diameter)
{
    constexpr const char* Function = "prereg::CFPFHPolygon::seedWithinDiameter";
    const std::vector<std::size_t> centres = DrawDistinct(engine, NumCentres, flt.SizeFeatures());
    if (centres.empty()) {
        VOALGO_LOG(channels::Features(), Warn, Function,
                   L"failed to create a random permutation (too few points for seeding?)");
        return true;
    }
    const auto radius = static_cast<float>(diameter / 2.0);
    std::vector<int> within;
    for (std::size_t tried = 1; tried <= centres.size(); ++tried) {
        const Vec3 centre = flt.GetFeaturePoint(centres[tried - 1]);
        flt.GetFeaturePointsKdTree().AllWithin(&centre.x, radius * radius, within);
        if (within.size() >= FeaturesPerVertex * n) {
            for (const std::size_t k : DrawDistinct(engine, n, within.size())) indices_.push_back(within[k]);
            return true;
        }
        VOALGO_LOG(channels::Features(), Trace, Function, L"failed to create a polygon; %i tries left ...",
                   static_cast<int>(centres.size() - tried));
    }
    VOALGO_LOG(channels::Features(), Warn, Function, L"failed to create a polygon; removing diameter restriction");
    return false;
}

void CFPFHPolygon::seedAnywhere(std::mt19937& engine, const CFPFHPointSet& flt, std::size_t n, double samplingDistance)
{
    constexpr const char* Function = "prereg::CFPFHPolygon::seedAnywhere";
    const std::vector<std::size_t> drawn = DrawDistinct(engine, n, flt.SizeFeatures());
    if (drawn.empty()) {
        VOALGO_LOG(channels::Features(), Warn, Function,
                   L"failed to create a random permutation (too few points for seeding?)");
        return;
    }
    for (const std::size_t first : drawn) {
        const std::int32_t index =
            samplingDistance > 0.0 ? drawApart(engine, flt, samplingDistance) : static_cast<std::int32_t>(first);
        if (index < 0) {
            VOALGO_LOG(channels::Features(), Warn, Function, L"seeding failed");
            indices_.clear();
            return;
        }
        indices_.push_back(index);
    }
}

/// A feature point at least `distance` from the vertices chosen so far; −1 when no draw finds one.
std::int32_t CFPFHPolygon::drawApart(std::mt19937& engine, const CFPFHPointSet& flt, double distance) const
{
    constexpr int MaxDraws = 100;
    std::uniform_int_distribution<std::size_t> uniform(0, flt.SizeFeatures() - 1);
    for (int draw = 0; draw < MaxDraws; ++draw) {
        const std::size_t candidate = uniform(engine);
        const bool isApart = std::all_of(indices_.begin(), indices_.end(), [&](std::int32_t index) {
            const Vec3 d = flt.GetFeaturePoint(candidate) - flt.GetFeaturePoint(static_cast<std::size_t>(index));
            return static_cast<double>(d.Norm()) >= distance;
        });
        if (isApart) return static_cast<std::int32_t>(candidate);
    }
    return -1;
}

VoAlgo::CTrafo CFPFHPolygon::ComputePreRegistration(const CFPFHPolygon& polygon, const CFPFHPointSet& fix,
                                                    const CFPFHPointSet& flt, const ConfigurationFPFH& config)
{
    if (!polygon.IsSeeded()) return VoAlgo::CTrafo::Invalid();
    std::vector<Vertex> vertices =
        LookUpCandidates(polygon.vertices_, polygon.indices_, fix, flt, config.uiNumNeighbors);
    ConsistentAssignment assignment(fix);
    while (true) {
        if (!assignment.Run(vertices)) return VoAlgo::CTrafo::Invalid();
        const auto kept = std::stable_partition(vertices.begin(), vertices.end(), [&config](const Vertex& v) {
            return static_cast<double>(v.error) <= config.dMaxPolygonVertexError;
        });
        const auto numKept = static_cast<std::size_t>(kept - vertices.begin());
        if (numKept < MinVertices) return VoAlgo::CTrafo::Invalid();
        if (numKept == vertices.size()) return FitPose(vertices, fix);
        VOALGO_LOG(channels::Features(), Trace, "prereg::CFPFHPolygon::ComputePreRegistration",
                   L"shrinking polygon: %u -> %u vertices ...", static_cast<unsigned>(vertices.size()),
                   static_cast<unsigned>(numKept));
        vertices.resize(numKept);
    }
}

} // namespace prereg
