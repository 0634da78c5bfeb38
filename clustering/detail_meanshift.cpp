#include "clustering/detail_meanshift.h"

#include <algorithm>

namespace VoAlgo::meanshift {

Clusters AssignByVotes(Modes&& modes, std::size_t n)
{
    Clusters clusters;
    clusters.clusterOf.assign(n, None);
    clusters.centres = std::move(modes.centres);
    clusters.sizes.assign(modes.votes.size(), 0);

    std::vector<unsigned> mostVotes(n, 0);
    for (std::size_t c = 0; c < modes.votes.size(); ++c)
        for (const Vote& vote : modes.votes[c])
            if (vote.count > mostVotes[vote.point]) {
                mostVotes[vote.point] = vote.count;
                clusters.clusterOf[vote.point] = static_cast<unsigned>(c);
            }
    for (const unsigned c : clusters.clusterOf)
        if (c != None) ++clusters.sizes[c];
    return clusters;
}

bool AppendSingletons(Clusters& clusters, const float* data, std::size_t dimension)
{
    const std::size_t modes = clusters.sizes.size();
    for (std::size_t i = 0; i < clusters.clusterOf.size(); ++i) {
        if (clusters.clusterOf[i] != None) continue;
        clusters.clusterOf[i] = static_cast<unsigned>(clusters.sizes.size());
        clusters.centres.insert(clusters.centres.end(), data + i * dimension, data + (i + 1) * dimension);
        clusters.sizes.push_back(1);
    }
    return clusters.sizes.size() > modes;
}

void RemoveEmptyClusters(Clusters& clusters, std::size_t stride)
{
    std::vector<unsigned> newIndex(clusters.sizes.size());
    unsigned kept = 0;
    bool justRemoved = false;
    for (std::size_t c = 0; c < clusters.sizes.size(); ++c) {
        newIndex[c] = kept;
        // Deliberate: the cluster that takes the place of a removed one is not examined, so of several empty clusters
        // in a row every second one stays.
        justRemoved = clusters.sizes[c] == 0 && !justRemoved;
        if (justRemoved) continue;
        clusters.sizes[kept] = clusters.sizes[c];
        const float* centre = clusters.centres.data() + c * stride;
        std::copy(centre, centre + stride, clusters.centres.data() + kept * stride);
        ++kept;
    }
    clusters.sizes.resize(kept);
    clusters.centres.resize(kept * stride);
    for (unsigned& c : clusters.clusterOf)
        if (c != None) c = newIndex[c];
}

} // namespace VoAlgo::meanshift
