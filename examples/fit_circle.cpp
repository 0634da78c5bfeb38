// Fits a circle to points of an arc with outliers; the centre is known to lie on the line y = 2·x, the radius has
// bounds. Prints centre, radius and their standard deviations.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cmath>
#include <cstdio>
#include <random>

using Vector = VoAlgo::TVector<double>;

// [problem]
struct Circle : VoAlgo::CNLSObjectiveFunction {
    Vector x, y; // millimetres

    Circle(const Vector& px, const Vector& py) : CNLSObjectiveFunction(3, static_cast<int>(px.Size())), x(px), y(py) {}
    Vector Error(const Vector& p) override // p: centre x, y, radius; residuals: distances from the circle
    {
        Vector r(x.Size());
        for (unsigned i = 0; i < r.Size(); ++i) r[i] = std::hypot(x[i] - p[0], y[i] - p[1]) - p[2];
        return r;
    }
};
// [problem]

int main()
{
    std::mt19937 engine(1);
    std::normal_distribution<double> noise(0, 0.02);
    Vector x(60), y(60);
    for (unsigned i = 0; i < x.Size(); ++i) { // a third of the circle around (3, 6) with radius 10
        const double angle = 2.0 * i / x.Size(), radius = 10 + noise(engine) + (i % 5 == 0 ? 0.1 * i : 0);
        x[i] = 3 + radius * std::cos(angle);
        y[i] = 6 + radius * std::sin(angle);
    }

    // [fit]
    Circle circle(x, y);
    if (!circle.AddEquality({2, -1, 0}, 0)) return 1;
    circle.AddBounds(2, 5, 20);
    VoAlgo::CNLSSolver solver(circle, false, 0);
    solver.SetLogging(false);
    solver.SetRefinement(true); // do not stop short of the minimum
    Vector p{0, 0, 8};
    double rmse = 0;
    solver.Run(p, rmse, 100, 1e-3, 0, VoAlgo::CNLSSolver::Gibbs);
    solver.SetRobustness(true); // start near the solution: every fifth point is an outlier
    const auto result = solver.Run(p, rmse, 100, 1e-3, 0, VoAlgo::CNLSSolver::Gibbs);
    const auto covariance = circle.GetCovariance(p, 0.02); // standard deviation of a point, mm
    std::printf("%s\n", VoAlgo::CNLSSolver::ResultText(result));
    for (unsigned i = 0; i < 3; ++i)
        std::printf("%-8s %8.3f +- %.3f mm\n", i == 2 ? "radius" : "centre", p[i], std::sqrt(covariance(i, i)));
    // [fit]
    return result <= VoAlgo::CNLSSolver::SmallStep ? 0 : 2;
}
