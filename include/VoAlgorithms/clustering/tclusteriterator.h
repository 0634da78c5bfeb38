#pragma once

#include <cstddef>

namespace VoAlgo {

/// Iterates over the members of one cluster in ascending point order, up to a default-constructed (empty) iterator;
/// false when exhausted. The clusterer must outlive it.
template <class Clusterer>
class TClusterIterator {
public:
    /// Exhausted.
    TClusterIterator() = default;
    /// At the first member of the cluster; exhausted at once when there is no such cluster.
    TClusterIterator(const Clusterer& clusterer, unsigned cluster) : clusterer_(&clusterer), cluster_(cluster)
    {
        skipOthers();
    }

    /// To the next member; stays exhausted at the end.
    TClusterIterator& operator++()
    {
        if (datum() == nullptr) return *this;
        ++point_;
        skipOthers();
        return *this;
    }
    /// Whether there is a current point.
    explicit operator bool() const { return datum() != nullptr; }
    ///@{
    /// Compare the addresses of the current points; all exhausted iterators are equal.
    bool operator==(const TClusterIterator& other) const { return datum() == other.datum(); }
    bool operator!=(const TClusterIterator& other) const { return datum() != other.datum(); }
    ///@}
    /// Coordinate k of the current point; unchecked.
    float operator[](int k) const { return datum()[k]; }
    /// The coordinates of the current point, null when exhausted.
    const float* operator->() const { return datum(); }
    /// Index of the current point.
    [[nodiscard]] unsigned GetIndex() const { return point_; }
    /// Size of the cluster, 0 for an empty iterator.
    [[nodiscard]] unsigned GetClusterSize() const
    {
        return clusterer_ == nullptr ? 0U : clusterer_->GetClusterSize(cluster_);
    }

private:
    void skipOthers()
    {
        while (point_ < clusterer_->numPoints() && clusterer_->GetCluster(point_) != cluster_) ++point_;
    }
    [[nodiscard]] const float* datum() const
    {
        return clusterer_ != nullptr && point_ < clusterer_->numPoints() ? clusterer_->point(point_) : nullptr;
    }

    const Clusterer* clusterer_ = nullptr;
    unsigned cluster_ = Clusterer::None;
    unsigned point_ = 0;
};

} // namespace VoAlgo
