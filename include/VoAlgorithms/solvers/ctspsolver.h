#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/numerics/tmatrix.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace VoAlgo {

/// The travelling salesman's problem: a short tour that visits every city once, or a short path that does not return;
/// and a bound that says how much shorter another one could be. Distances are symmetric: those between points, or any.
///
/// Up to 12 cities the result is the shortest there is. More are put in order by greedily chosen edges, improved by
/// 2-opt, Or-opt and Lin-Kernighan moves, then by rounds of small random changes that are taken back when they do not
/// pay. The same input gives the same tour every time. Memory: about 500 bytes a city, and the matrix if there is one.
///
/// Sources: M. Held, R. M. Karp, J. SIAM 10 (1962) 196–210 (up to 12 cities) and Oper. Res. 18 (1970) 1138–1162 (the
/// bound); S. Lin, B. W. Kernighan, Oper. Res. 21 (1973) 498–516; O. Martin, S. W. Otto, E. W. Felten, Complex Systems
/// 5 (1991) 299–326 (the rounds).
class VOALGO_API CTSPSolver {
public:
    /// Called now and then during Solve with the rounds done (0 until the first improvement is through) and the length
    /// so far; false ends the search with the tour found so far. May throw.
    using Callback = std::function<bool(unsigned round, double length)>;

    ///@{
    /// Straight distances between points in space or in the plane; equal points are fine. Throws std::invalid_argument
    /// for a coordinate that is not finite.
    explicit CTSPSolver(const std::vector<kdtree::Vector<3>>& points);
    explicit CTSPSolver(const std::vector<kdtree::Vector<2>>& points);
    ///@}
    /// Distances in any unit; they need not obey the triangle inequality. Throws std::invalid_argument with the place
    /// unless the matrix is square, symmetric, finite and without negative elements. The diagonal counts for nothing.
    explicit CTSPSolver(const TMatrix<double>& distances);
    ///@{
    /// Can be moved, not copied; a moved-from object can only be assigned to or destroyed.
    CTSPSolver(CTSPSolver&& other) noexcept;
    CTSPSolver& operator=(CTSPSolver&& other) noexcept;
    CTSPSolver(const CTSPSolver&) = delete;
    CTSPSolver& operator=(const CTSPSolver&) = delete;
    ///@}
    ~CTSPSolver();

    /// Number of cities.
    [[nodiscard]] unsigned NumCities() const;

    /// Whether the tour returns to where it began. Default: true.
    void SetClosed(bool isClosed) { isClosed_ = isClosed; }
    /// Where an open path begins and ends; nothing: where it pays most, which is the default. Closed tours do not ask.
    /// Throws std::out_of_range, and std::invalid_argument when both are the same one of several cities.
    void SetEnds(std::optional<unsigned> first, std::optional<unsigned> last);
    /// Demands that two cities follow each other, in either order; may be called for many pairs. Throws
    /// std::out_of_range, and std::invalid_argument when both are the same.
    void RequireNeighbours(unsigned a, unsigned b);
    /// Number of rounds of small random changes; each costs 0.1 to 0.3 ms, whatever the number of cities. As many as
    /// there are cities are a good start. 0: none. Default: 1,000.
    void SetRounds(unsigned rounds) { rounds_ = rounds; }
    /// Reports, and can stop. Default: none.
    void SetCallback(Callback callback) { callback_ = std::move(callback); }

    /// The cities in the order of the tour. A closed one begins with city 0, and its second city has a smaller number
    /// than its last; an open one begins with the end asked for, or with the end of the smaller number. Throws
    /// std::invalid_argument when no tour has all the neighbours demanded.
    std::vector<unsigned> Solve();
    /// Length of the tour that Solve returned. Throws std::logic_error before that.
    [[nodiscard]] double GetLength() const;
    /// No tour is shorter than this (but for rounding): the length itself up to 12 cities, otherwise the Held-Karp
    /// bound, about 0.7 % below the shortest tour of random points. Computed by the first call after Solve, in time
    /// O(n log n) for points and O(n²) for a matrix. Throws std::logic_error before Solve.
    [[nodiscard]] double GetLowerBound();
    /// By which share of the bound the tour may be too long: 0.02 is 2 %. 0 for a length of 0, infinite for a bound of
    /// 0. Throws std::logic_error before Solve.
    [[nodiscard]] double GetGap();

private:
    struct Problem;

    std::unique_ptr<Problem> problem_;
    bool isClosed_ = true;
    std::optional<unsigned> first_, last_;
    std::vector<std::pair<unsigned, unsigned>> required_;
    unsigned rounds_ = 1'000;
    Callback callback_;
};

} // namespace VoAlgo
