#include "VoAlgorithms/solvers/ctspsolver.h"

#include "solvers/detail_tourbound.h"
#include "solvers/detail_tourexact.h"
#include "solvers/detail_toursearch.h"
#include "solvers/detail_tourstart.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace VoAlgo {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr unsigned NumNeighbours = 8; // edges to try at each city

const std::vector<Vec3>& Checked(const std::vector<Vec3>& points)
{
    if (points.size() >= std::numeric_limits<std::int32_t>::max())
        throw std::length_error("CTSPSolver: " + std::to_string(points.size()) + " points are too many");
    for (std::size_t i = 0; i < points.size(); ++i)
        if (!points[i].IsValid())
            throw std::invalid_argument("CTSPSolver: point " + std::to_string(i) + " is not finite");
    return points;
}

std::vector<Vec3> InSpace(const std::vector<kdtree::Vector<2>>& points)
{
    std::vector<Vec3> inSpace;
    inSpace.reserve(points.size());
    for (const kdtree::Vector<2>& p : points) inSpace.emplace_back(p[0], p[1], 0.0F);
    return inSpace;
}

const TMatrix<double>& Checked(const TMatrix<double>& distances)
{
    const std::uint32_t n = distances.Rows();
    if (distances.Cols() != n)
        throw std::invalid_argument("CTSPSolver: the matrix has " + std::to_string(n) + " rows and " +
                                    std::to_string(distances.Cols()) + " columns");
    const auto refuse = [](std::uint32_t row, std::uint32_t column, const char* what) {
        throw std::invalid_argument("CTSPSolver: distance (" + std::to_string(row) + ", " + std::to_string(column) +
                                    ") " + what);
    };
    for (std::uint32_t c = 0; c < n; ++c)
        for (std::uint32_t r = 0; r < n; ++r) {
            const double d = distances(r, c);
            if (!(d <= std::numeric_limits<double>::max() / 4 / n)) refuse(r, c, "is not finite, or too large to add");
            if (d < 0) refuse(r, c, "is negative");
            if (r < c && d != distances(c, r)) refuse(r, c, "differs from the way back");
        }
    return distances;
}

/// The gap is in front, and left out; the end that belongs first is first.
std::vector<unsigned> AsPath(const TourMap& map, std::vector<unsigned> tour, std::optional<unsigned> first,
                             std::optional<unsigned> last)
{
    std::rotate(tour.begin(), std::find(tour.begin(), tour.end(), map.Gap()), tour.end());
    tour.erase(tour.begin());
    for (unsigned& node : tour) node = map.CityOf(node);
    if (tour.empty()) return tour;
    const bool isTurned = first ? tour.front() != *first : last ? tour.back() != *last : tour.front() > tour.back();
    if (isTurned) std::reverse(tour.begin(), tour.end());
    return tour;
}

/// From city 0 on, towards its neighbour with the smaller number.
std::vector<unsigned> AsRing(const TourMap& map, std::vector<unsigned> tour)
{
    for (unsigned& node : tour) node = map.CityOf(node);
    if (tour.size() < 3) {
        std::sort(tour.begin(), tour.end());
        return tour;
    }
    std::rotate(tour.begin(), std::find(tour.begin(), tour.end(), 0U), tour.end());
    if (tour[1] > tour.back()) std::reverse(tour.begin() + 1, tour.end());
    return tour;
}

} // namespace

struct CTSPSolver::Problem {
    template <class Distances>
    explicit Problem(const Distances& distances) : map(distances)
    {
    }

    [[nodiscard]] bool IsExact() const { return map.NumCities() <= MaxExactCities; }
    void RequireSolution(const char* what) const
    {
        if (!isSolved) throw std::logic_error(std::string("CTSPSolver: ") + what + " before Solve");
    }

    TourMap map;
    NeighbourLists lists; // of the last search, as the tour
    std::vector<unsigned> tour;
    bool isSolved = false;
    double length = 0;
    std::optional<double> bound;
};

CTSPSolver::CTSPSolver(const std::vector<Vec3>& points) : problem_(std::make_unique<Problem>(Checked(points))) {}
CTSPSolver::CTSPSolver(const std::vector<kdtree::Vector<2>>& points) : CTSPSolver(InSpace(points)) {}
CTSPSolver::CTSPSolver(const TMatrix<double>& distances) : problem_(std::make_unique<Problem>(Checked(distances))) {}
CTSPSolver::CTSPSolver(CTSPSolver&& other) noexcept = default;
CTSPSolver& CTSPSolver::operator=(CTSPSolver&& other) noexcept = default;
CTSPSolver::~CTSPSolver() = default;

unsigned CTSPSolver::NumCities() const
{
    return problem_->map.NumCities();
}

void CTSPSolver::SetEnds(std::optional<unsigned> first, std::optional<unsigned> last)
{
    for (const auto& [end, name] : {std::pair(first, "first"), std::pair(last, "last")})
        if (end && *end >= NumCities())
            throw std::out_of_range("CTSPSolver::SetEnds: " + std::string(name) + " is " + std::to_string(*end) +
                                    " of " + std::to_string(NumCities()) + " cities");
    if (first && first == last && NumCities() > 1)
        throw std::invalid_argument("CTSPSolver::SetEnds: first and last are both " + std::to_string(*first));
    first_ = first;
    last_ = last;
}

void CTSPSolver::RequireNeighbours(unsigned a, unsigned b)
{
    if (std::max(a, b) >= NumCities())
        throw std::out_of_range("CTSPSolver::RequireNeighbours: city " + std::to_string(std::max(a, b)) + " of " +
                                std::to_string(NumCities()));
    if (a == b) throw std::invalid_argument("CTSPSolver::RequireNeighbours: both cities are " + std::to_string(a));
    required_.emplace_back(a, b);
}

std::vector<unsigned> CTSPSolver::Solve()
{
    Problem& p = *problem_;
    p.isSolved = false;
    p.bound.reset();
    p.map.Reset(!isClosed_);
    for (const auto& [a, b] : required_) p.map.Require(p.map.NodeOf(a), p.map.NodeOf(b));
    for (const auto& end : {first_, last_})
        if (end && !isClosed_) p.map.Require(p.map.NodeOf(*end), p.map.Gap());
    p.map.CheckRequired();

    if (p.map.NumNodes() < 2) {
        p.tour.assign(p.map.NumNodes(), 0);
    } else if (p.IsExact()) {
        p.tour = ShortestTour(p.map);
    } else {
        p.lists = p.map.Nearest(NumNeighbours);
        const Callback report = callback_ ? callback_ : [](unsigned, double) { return true; };
        TourSearch search(p.map, p.lists, GreedyTour(p.map, p.lists), report);
        if (search.Descend()) search.Perturb(rounds_);
        p.tour = search.Tour();
    }
    p.length = p.map.LengthOf(p.tour);
    p.isSolved = true;
    return isClosed_ ? AsRing(p.map, p.tour) : AsPath(p.map, p.tour, first_, last_);
}

double CTSPSolver::GetLength() const
{
    problem_->RequireSolution("GetLength");
    return problem_->length;
}

double CTSPSolver::GetLowerBound()
{
    Problem& p = *problem_;
    p.RequireSolution("GetLowerBound");
    if (!p.bound) // a bound of the shortest tour is one of this tour, too: rounding must not say otherwise
        p.bound = p.IsExact() ? p.length : std::min(LowerBound(p.map, p.lists, p.tour), p.length);
    return *p.bound;
}

double CTSPSolver::GetGap()
{
    const double bound = GetLowerBound(), length = GetLength();
    return length == bound ? 0 : length / bound - 1;
}

} // namespace VoAlgo
