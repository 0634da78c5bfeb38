#include "solvers/detail_toursearch.h"

#include "platform/randomseed.h"

#include <algorithm>
#include <cstdint>

namespace VoAlgo {
namespace {

// How many alternatives are tried at each depth of a Lin-Kernighan move; one below that.
constexpr unsigned Breadth[] = {5, 3};
constexpr unsigned MaxBreadth = 5;
constexpr unsigned MaxDepth = 6;
constexpr unsigned LongestSegment = 3;      // of an Or-opt move
constexpr unsigned LongestStretch = 30;     // of a double bridge
constexpr unsigned LongestFlip = 50'000;    // until the first descent is through
constexpr unsigned LongestLocalFlip = 1000; // afterwards
constexpr unsigned ReportEvery = 1'000;

} // namespace

TourSearch::TourSearch(const TourMap& map, const NeighbourLists& lists, std::vector<unsigned> tour,
                       const Report& report)
    : map_(map), lists_(lists), report_(report), tour_(std::move(tour)), position_(tour_.size()),
      size_(static_cast<unsigned>(tour_.size())), longestFlip_(LongestFlip), length_(map.LengthOf(tour_)),
      leastGain_(1e-10 * length_ / size_), awake_(tour_.size()), isAwake_(tour_.size()), engine_(RandomSeed)
{
    for (unsigned i = 0; i < size_; ++i) position_[tour_[i]] = i;
}

bool TourSearch::Descend()
{
    for (const unsigned depth : {1U, MaxDepth}) {
        for (const Node node : std::vector<Node>(tour_)) wake(node);
        if (!descend(depth)) return false;
    }
    return true;
}

void TourSearch::Perturb(unsigned rounds)
{
    longestFlip_ = LongestLocalFlip;
    while (round_ < rounds) {
        if (round_ % ReportEvery == 0 && !report_(round_, length_)) return;
        ++round_;
        flips_.clear();
        const double before = length_;
        if (!doubleBridge()) continue;
        (void)descend(MaxDepth);
        if (length_ > before) {
            undoTo(0);
            length_ = before;
        }
    }
}

/// Of the path from a on to b, ends included.
unsigned TourSearch::numBetween(Node a, Node b) const
{
    const unsigned from = position_[isBackwards_ ? b : a], to = position_[isBackwards_ ? a : b];
    return to >= from ? to - from + 1 : to + size_ - from + 1;
}

bool TourSearch::canFlip(Node a, Node b) const
{
    const unsigned count = numBetween(a, b);
    return std::min(count, size_ - count) <= longestFlip_;
}

/// Reverses the path from a on to b; where it stood after x, b now does.
void TourSearch::flip(Node a, Node b)
{
    flips_.emplace_back(a, b);
    const unsigned count = numBetween(a, b);
    const unsigned from = position_[isBackwards_ ? b : a], to = position_[isBackwards_ ? a : b];
    if (2 * count <= size_) {
        reversePositions(from, count);
    } else {
        reversePositions(to + 1 == size_ ? 0 : to + 1, size_ - count);
        isBackwards_ = !isBackwards_;
    }
}

void TourSearch::reversePositions(unsigned from, unsigned count)
{
    unsigned to = from + count - 1;
    if (to >= size_) to -= size_;
    if (count == 0) return;
    for (unsigned swaps = count / 2; swaps > 0; --swaps) {
        const Node a = tour_[from], b = tour_[to];
        tour_[from] = b;
        position_[b] = from;
        tour_[to] = a;
        position_[a] = to;
        from = from + 1 == size_ ? 0 : from + 1;
        to = to == 0 ? size_ - 1 : to - 1;
    }
}

void TourSearch::undoTo(std::size_t numFlips)
{
    while (flips_.size() > numFlips) {
        const auto [a, b] = flips_.back();
        flip(b, a);
        flips_.resize(flips_.size() - 2);
    }
}

void TourSearch::wake(Node a)
{
    if (isAwake_[a]) return;
    isAwake_[a] = true;
    awake_[(firstAwake_ + numAwake_++) % size_] = a;
}

/// Improves around all nodes that are awake; false when the report stopped it.
bool TourSearch::descend(unsigned depth)
{
    maxDepth_ = depth;
    for (std::uint32_t count = 1; numAwake_ > 0; ++count) {
        const Node node = awake_[firstAwake_];
        firstAwake_ = (firstAwake_ + 1) % size_;
        --numAwake_;
        isAwake_[node] = false;
        if (count % ReportEvery == 0 && !report_(round_, length_)) return false;
        while (improve(node)) {
        }
    }
    return true;
}

/// Tries to replace one of the edges of t1 and others by shorter ones.
bool TourSearch::improve(Node t1)
{
    const std::size_t numFlips = flips_.size();
    const auto tryNext = [&] {
        const Node t2 = next(t1);
        return !map_.IsRequired(t1, t2) && (tryOrOpt(t1, t2) || trySteps(0, t1, t2, map_.Distance(t1, t2)));
    };
    bool isBetter = tryNext();
    if (!isBetter) { // the other side, in the same words
        isBackwards_ = !isBackwards_;
        isBetter = tryNext();
        isBackwards_ = !isBackwards_;
        for (std::size_t i = numFlips; i < flips_.size(); ++i) std::swap(flips_[i].first, flips_[i].second);
    }
    return isBetter;
}

/// Moves t2 and up to two nodes behind it to a place beside a neighbour c of t2: t1 [t2 … e] f … → t1 f … with the
/// segment between c and a node beside it, t2 next to c.
bool TourSearch::tryOrOpt(Node t1, Node t2)
{
    Node e = t2;
    for (unsigned count = 1; count <= LongestSegment; ++count, e = next(e)) {
        const Node f = next(e);
        if (f == t1) return false;
        if (map_.IsRequired(e, f)) continue;
        const double removed = map_.Distance(t1, t2) + map_.Distance(e, f) - map_.Distance(t1, f);
        for (const Node c : lists_[t2]) {
            const double gain = removed - map_.Distance(t2, c);
            if (gain <= leastGain_) break;
            if (numBetween(t2, c) <= count || c == t1) continue;
            for (const bool isForward : {true, false}) {
                const Node d = isForward ? next(c) : previous(c); // e goes next to it
                if ((!isForward && c == f) || map_.IsRequired(c, d)) continue;
                const double total = gain + map_.Distance(c, d) - map_.Distance(e, d);
                if (total <= leastGain_) continue;
                const Node last = isForward ? c : d; // of what comes before the segment then
                if (!canFlip(f, last)) continue;
                flip(t2, last); // t1 [last … f][e … t2]
                flip(last, f);
                if (isForward) flip(e, t2);
                length_ -= total;
                for (const Node node : {t1, t2, e, f, c, d}) wake(node);
                return true;
            }
        }
    }
    return false;
}

/// A step of Lin and Kernighan. Without the edge t1 t2 the tour is a path from t2 = next(t1) to t1; it gets the edge
/// t2 t3 and loses t4 t3, t4 before t3, which makes it a path from t4 to t1. `gain`: lengths lost minus lengths added
/// so far. True when closing the path somewhere below made the tour shorter; otherwise nothing has changed.
bool TourSearch::trySteps(unsigned depth, Node t1, Node t2, double gain)
{
    struct Step {
        Node t3, t4;
        double gain;
    };
    const unsigned breadth = depth < std::size(Breadth) ? Breadth[depth] : 1;
    Step steps[MaxBreadth];
    unsigned numSteps = 0;
    for (const Node t3 : lists_[t2]) {
        const double added = gain - map_.Distance(t2, t3);
        if (added <= leastGain_) break;
        if (t3 == t1 || t3 == next(t2)) continue;
        const Node t4 = previous(t3);
        if (map_.IsRequired(t3, t4) || !canFlip(t2, t4)) continue;
        const Step step{t3, t4, added + map_.Distance(t3, t4)};
        if (const double total = step.gain - map_.Distance(t4, t1); total > leastGain_) {
            flip(t2, t4);
            length_ -= total;
            for (const Node node : {t1, t2, t3, t4}) wake(node);
            return true;
        }
        unsigned at = numSteps < breadth ? numSteps++ : breadth;
        for (; at > 0 && steps[at - 1].gain < step.gain; --at)
            if (at < breadth) steps[at] = steps[at - 1];
        if (at < breadth) steps[at] = step;
    }
    if (depth + 1 == maxDepth_) return false;
    const std::size_t numFlips = flips_.size();
    for (unsigned i = 0; i < numSteps; ++i) {
        flip(t2, steps[i].t4);
        if (trySteps(depth + 1, t1, steps[i].t4, steps[i].gain)) {
            wake(t2);
            wake(steps[i].t3);
            return true;
        }
        undoTo(numFlips);
    }
    return false;
}

/// A B C → C B A with three stretches that follow each other; wakes their ends. False where a required edge would go.
bool TourSearch::doubleBridge()
{
    const unsigned longest = std::min(LongestStretch, (size_ - 2) / 3);
    std::uniform_int_distribution<unsigned> anyPosition(0, size_ - 1), anyLength(1, longest);
    unsigned position = anyPosition(engine_);
    Node first[4], last[4]; // of A, B, C and the rest
    for (unsigned i = 0; i < 4; ++i) {
        Node& before = last[(i + 3) % 4];
        before = tour_[position];
        first[i] = next(before);
        if (map_.IsRequired(before, first[i])) return false;
        const unsigned step = anyLength(engine_);
        position = (position + (isBackwards_ ? size_ - step : step)) % size_;
    }
    for (unsigned i = 0; i < 4; ++i) {
        wake(first[i]);
        wake(last[i]);
    }
    const auto edge = [&](Node a, Node b) { return map_.Distance(a, b); };
    length_ += edge(last[3], first[2]) + edge(last[2], first[1]) + edge(last[1], first[0]) + edge(last[0], first[3]) -
               edge(last[3], first[0]) - edge(last[0], first[1]) - edge(last[1], first[2]) - edge(last[2], first[3]);
    flip(first[0], last[2]);
    for (const unsigned i : {2U, 1U, 0U}) flip(last[i], first[i]);
    return true;
}

} // namespace VoAlgo
