#pragma once

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <random>
#include <span>
#include <utility>
#include <vector>

// The mode search that both mean-shift clusterers share.

namespace VoAlgo::meanshift {

inline constexpr unsigned None = 0xFFFFFFFFU;

/// How often a point was averaged on the way to one cluster's modes.
struct Vote {
    unsigned point;
    unsigned count;
};

/// Modes in the order in which they were found. Only points with votes are kept: a counter for every point and cluster
/// would need memory in proportion to their product.
struct Modes {
    std::vector<float> centres;           // `stride` floats each
    std::vector<std::vector<Vote>> votes; // ascending points
};

struct Clusters {
    std::vector<unsigned> clusterOf; // of every point, None for none
    std::vector<float> centres;      // `stride` floats each
    std::vector<unsigned> sizes;
};

struct Settings {
    float bandwidth;
    float stopThreshold;
    std::size_t maxSteps;     // of one start
    bool capUnvisitsOnePoint; // a start that reaches maxSteps makes one point unvisited again
};

/// Finds the modes. `Points` provides
///   Size()                           number of points
///   Stride()                         floats of a point or mean
///   Point(i)                         its floats
///   DistanceSq(a, b)                 squared distance of two means
///   Average(mean, radiusSq, result, visit)  stores the mean of the points within the radius (inclusive) of `mean` in
///                                    `result` and calls visit(i) for each; returns their number, and leaves `result`
///                                    alone when it is 0.
template <class Points>
class ModeSearch {
public:
    ModeSearch(const Points& points, const Settings& settings)
        : points_(points), settings_(settings), radiusSq_(settings.bandwidth * settings.bandwidth),
          stopSq_(settings.stopThreshold * settings.stopThreshold), stride_(points.Stride()), votes_(points.Size()),
          visited_(points.Size(), 0), mean_(stride_), previous_(stride_), checkpoint_(stride_)
    {
    }

    Modes Run(std::mt19937& engine, std::uniform_real_distribution<float>& uniform)
    {
        collectUnvisited();
        while (!unvisited_.empty()) {
            const std::size_t r = drawIndex(uniform(engine), unvisited_.size());
            const unsigned start = unvisited_[r];
            // Each start takes at least its own point off the list, whatever the bandwidth and the distance function.
            visited_[start] = 1;
            const Outcome outcome = climb(points_.Point(start));
            if (outcome == Outcome::Mode) mergeOrCreate();
            if (outcome == Outcome::Capped) unvisitOnePoint(r);
            collectUnvisited();
        }
        return std::move(modes_);
    }

private:
    enum class Outcome { Mode, Lost, Capped };

    static std::size_t drawIndex(float u, std::size_t count)
    {
        const auto r = static_cast<std::size_t>(u * static_cast<float>(count));
        return r < count ? r : count - 1; // the product may round up to the count
    }

    void collectUnvisited()
    {
        unvisited_.clear();
        for (std::size_t i = 0; i < visited_.size(); ++i)
            if (visited_[i] == 0) unvisited_.push_back(static_cast<unsigned>(i));
    }

    /// Follows the mean from `start`; leaves it in mean_ and the votes in votes_.
    Outcome climb(const float* start)
    {
        votes_.assign(votes_.size(), 0);
        mean_.assign(start, start + stride_);
        checkpoint_ = mean_;
        std::size_t nextCheckpoint = 1;
        for (std::size_t step = 1;; ++step) {
            mean_.swap(previous_);
            const std::size_t members =
                points_.Average(previous_.data(), radiusSq_, mean_.data(), [this](std::size_t i) {
                    ++votes_[i];
                    visited_[i] = 1;
                });
            if (members == 0) return Outcome::Lost;
            if (points_.DistanceSq(mean_.data(), previous_.data()) < stopSq_) return Outcome::Mode;
            // A mean that returns runs in a circle until the cap: further steps flag no other points, and the votes of
            // a start without a mode are dropped. Ending here changes no result (R. P. Brent's cycle detection).
            if (step >= settings_.maxSteps || sameBits(mean_, checkpoint_)) return Outcome::Capped;
            if (step == nextCheckpoint) {
                checkpoint_ = mean_;
                nextCheckpoint *= 2;
            }
        }
    }

    static bool sameBits(const std::vector<float>& a, const std::vector<float>& b)
    {
        return std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
    }

    /// Deliberate: the flag that is cleared is that of the point whose index is the drawn position in the unvisited
    /// list, not that of the start point. Bounded, so that hitting the cap over and over cannot keep the search going
    /// for ever.
    void unvisitOnePoint(std::size_t r)
    {
        if (!settings_.capUnvisitsOnePoint || unvisits_ == points_.Size()) return;
        ++unvisits_;
        visited_[r] = 0;
    }

    /// Merges the mean into the first cluster within half the bandwidth, else opens a new one.
    void mergeOrCreate()
    {
        for (std::size_t c = 0; c < modes_.votes.size(); ++c) {
            float* centre = modes_.centres.data() + c * stride_;
            if (!(points_.DistanceSq(mean_.data(), centre) < radiusSq_ / 4.0F)) continue;
            for (std::size_t k = 0; k < stride_; ++k) centre[k] = (centre[k] + mean_[k]) * 0.5F;
            for (const Vote& vote : modes_.votes[c]) votes_[vote.point] += vote.count;
            modes_.votes[c] = castVotes();
            return;
        }
        modes_.centres.insert(modes_.centres.end(), mean_.begin(), mean_.end());
        modes_.votes.push_back(castVotes());
    }

    [[nodiscard]] std::vector<Vote> castVotes() const
    {
        std::vector<Vote> cast;
        for (std::size_t i = 0; i < votes_.size(); ++i)
            if (votes_[i] != 0) cast.push_back({static_cast<unsigned>(i), votes_[i]});
        return cast;
    }

    const Points& points_;
    const Settings settings_;
    const float radiusSq_;
    const float stopSq_;
    const std::size_t stride_;

    Modes modes_;
    std::vector<unsigned> votes_; // of the current start
    std::vector<unsigned char> visited_;
    std::vector<unsigned> unvisited_; // ascending
    std::size_t unvisits_ = 0;
    std::vector<float> mean_;
    std::vector<float> previous_;
    std::vector<float> checkpoint_;
};

/// Gives every point to the cluster with the most votes for it, the first of equals, and counts the sizes.
Clusters AssignByVotes(Modes&& modes, std::size_t n);

/// Makes every point without a cluster one of its own, appended in point order. `data`: n points of `dimension` floats.
/// Returns whether there was any.
bool AppendSingletons(Clusters& clusters, const float* data, std::size_t dimension);

/// Removes empty clusters in one pass.
void RemoveEmptyClusters(Clusters& clusters, std::size_t stride);

/// The Dunn index from squared distances: sqrt(smallest between clusters ÷ largest within one). Points of cluster None
/// are left out. distanceSq(i, j), clusterOf(i): of points by index.
template <class DistanceSq, class ClusterOf>
float DunnIndex(std::size_t n, const DistanceSq& distanceSq, const ClusterOf& clusterOf)
{
    float largestIntra = 0.0F;
    float smallestInter = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < n; ++i) {
        if (clusterOf(i) == None) continue;
        for (std::size_t j = 0; j < i; ++j) {
            if (clusterOf(j) == None) continue;
            const float d = distanceSq(i, j);
            if (clusterOf(i) == clusterOf(j)) {
                if (d > largestIntra) largestIntra = d;
            } else if (d < smallestInter) {
                smallestInter = d;
            }
        }
    }
    return std::sqrt(smallestInter / largestIntra);
}

} // namespace VoAlgo::meanshift
