#pragma once

#include "solvers/detail_tourmap.h"

#include <functional>
#include <random>

namespace VoAlgo {

/// Improves a closed tour by exchanging edges. The tour is an array with a position for each node; a stretch is
/// reversed by reversing it or, if that is shorter, the rest, whereupon the array is read backwards.
class TourSearch {
public:
    /// Called now and then; false stops.
    using Report = std::function<bool(unsigned round, double length)>;

    TourSearch(const TourMap& map, const NeighbourLists& lists, std::vector<unsigned> tour, const Report& report);

    /// 2-opt and Or-opt, then Lin-Kernighan moves, until none pays. False when it was stopped.
    bool Descend();
    /// Rounds of: a random double bridge of three short stretches, then Descend around it; taken back unless the tour
    /// is no longer than before.
    void Perturb(unsigned rounds);

    [[nodiscard]] const std::vector<unsigned>& Tour() const { return tour_; }

private:
    using Node = unsigned;

    [[nodiscard]] Node next(Node a) const { return isBackwards_ ? before(a) : behind(a); }
    [[nodiscard]] Node previous(Node a) const { return isBackwards_ ? behind(a) : before(a); }
    [[nodiscard]] Node behind(Node a) const { return position_[a] + 1 == size_ ? tour_[0] : tour_[position_[a] + 1]; }
    [[nodiscard]] Node before(Node a) const { return tour_[position_[a] == 0 ? size_ - 1 : position_[a] - 1]; }
    [[nodiscard]] unsigned numBetween(Node a, Node b) const;
    [[nodiscard]] bool canFlip(Node a, Node b) const;
    void flip(Node a, Node b);
    void reversePositions(unsigned from, unsigned count);
    void undoTo(std::size_t numFlips);

    bool descend(unsigned depth);
    bool improve(Node t1);
    bool tryOrOpt(Node t1, Node t2);
    bool trySteps(unsigned depth, Node t1, Node t2, double gain);
    void wake(Node a);
    bool doubleBridge();

    const TourMap& map_;
    const NeighbourLists& lists_;
    const Report& report_;
    std::vector<Node> tour_;
    std::vector<unsigned> position_;
    unsigned size_;
    bool isBackwards_ = false;
    unsigned longestFlip_;
    unsigned maxDepth_ = 1;
    double length_;
    double leastGain_; // smaller ones may be rounding
    unsigned round_ = 0;
    std::vector<std::pair<Node, Node>> flips_; // since the last point of return
    std::vector<Node> awake_;                  // a ring buffer of the nodes to look at
    std::size_t firstAwake_ = 0, numAwake_ = 0;
    std::vector<bool> isAwake_;
    std::mt19937 engine_;
};

} // namespace VoAlgo
