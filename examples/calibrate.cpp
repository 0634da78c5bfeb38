// Calibrates a temperature probe from its step response: it approaches the end value with a fast and a slow time
// constant, whose shares add up to 1. Some readings are faulty, and a poor start may lead to a poor fit, so many starts
// are tried.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cmath>
#include <cstdio>
#include <random>

using Vector = VoAlgo::TVector<double>;

// [problem]
struct Probe : VoAlgo::CNLSObjectiveFunction {
    Vector t, reading; // seconds, kelvin above the start

    Probe(const Vector& s, const Vector& K) : CNLSObjectiveFunction(5, static_cast<int>(s.Size())), t(s), reading(K) {}
    Vector StdDev() override { return Vector(t.Size(), 0.05); } // kelvin
    Vector Error(const Vector& p) override                      // p: end value, shares and time constants
    {
        Vector r(t.Size());
        for (unsigned i = 0; i < r.Size(); ++i)
            r[i] = p[0] * (1 - p[1] * std::exp(-t[i] / p[3]) - p[2] * std::exp(-t[i] / p[4])) - reading[i];
        return r;
    }
};
// [problem]

int main()
{
    std::mt19937 engine(2);
    std::normal_distribution<double> noise(0, 0.05);
    Vector t(120), reading(120);
    for (unsigned i = 0; i < 120; ++i) {
        t[i] = 0.5 * (i + 1);
        reading[i] = 40 * (1 - 0.7 * std::exp(-t[i] / 2) - 0.3 * std::exp(-t[i] / 20)) + noise(engine);
        if (i % 11 == 3) reading[i] -= 15; // a loose contact
    }

    // [fit]
    Probe probe(t, reading);
    if (!probe.AddEquality({0, 1, 1, 0, 0}, 1)) return 1;
    const double lower[] = {0, 0, 0, 0.2, 5}, upper[] = {100, 1, 1, 5, 100};
    for (int i = 0; i < 5; ++i) probe.AddBounds(i, lower[i], upper[i]);
    VoAlgo::CNLSSolver solver(probe, false, 0);
    solver.SetLogging(false);
    solver.SetRefinement(true); // do not stop short of the minimum
    Vector p{20, 0.5, 0.5, 1, 50};
    double rmse = 0;
    solver.Run(p, rmse, 200, 1e-3, 10, VoAlgo::CNLSSolver::HitAndRun);
    solver.SetRobustness(true);
    const auto result = solver.Run(p, rmse, 200, 1e-3, 0, VoAlgo::CNLSSolver::HitAndRun);
    const auto covariance = probe.GetCovariance(p, 1); // the standard deviations are absolute
    std::puts(VoAlgo::CNLSSolver::ResultText(result));
    const char* names[] = {"end value, K", "fast share", "slow share", "fast time, s", "slow time, s"};
    for (int i = 0; i < 5; ++i) std::printf("%-13s %7.3f +- %.3f\n", names[i], p[i], std::sqrt(covariance(i, i)));
    // [fit]
    return result <= VoAlgo::CNLSSolver::SmallStep ? 0 : 2;
}
