#pragma once

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "VoAlgorithms/solvers/cnlssolver.h"

#include "support/cerr_capture.h"

#include <concepts>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

// What the tests of the solvers share: random input, a problem, and a fit with its outcome.

using Vector = VoAlgo::TVector<double>;
using Matrix = VoAlgo::TMatrix<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();

inline Vector RandomVector(std::mt19937& engine, std::integral auto size)
{
    std::normal_distribution<double> normal;
    Vector v(size);
    for (double& e : v) e = normal(engine);
    return v;
}

inline Matrix RandomMatrix(std::mt19937& engine, std::integral auto rows, std::integral auto cols)
{
    std::normal_distribution<double> normal;
    Matrix m(rows, cols);
    for (unsigned j = 0; j < m.Cols(); ++j)
        for (double& e : m.Column(j)) e = normal(engine);
    return m;
}

/// Residuals from a function; numerical derivatives and deviations of 1 unless there are functions for them. Remembers
/// the places it was asked.
struct Problem : VoAlgo::CNLSObjectiveFunction {
    Problem(std::integral auto n, std::integral auto m, std::function<Vector(const Vector&)> f)
        : CNLSObjectiveFunction(static_cast<int>(n), static_cast<int>(m)), residuals(std::move(f))
    {
    }
    Vector Error(const Vector& params) override
    {
        places.push_back(params);
        return residuals(params);
    }
    Matrix Jacobian(const Vector& z) override
    {
        return derivatives ? derivatives(z) : CNLSObjectiveFunction::Jacobian(z);
    }
    Vector StdDev() override { return deviations ? deviations() : CNLSObjectiveFunction::StdDev(); }
    using CNLSObjectiveFunction::errorFDDerivatives;
    using CNLSObjectiveFunction::getCovariance;

    std::function<Vector(const Vector&)> residuals;
    std::function<Matrix(const Vector&)> derivatives;
    std::function<Vector()> deviations;
    std::vector<Vector> places;
};

struct Outcome {
    VoAlgo::CNLSSolver::EResult result{};
    double rmse = -1;
    Vector params;
    std::string log;
};

struct Settings {
    int maxIter = 1000;
    double tau = 1e-3;
    int multistarts = 0;
    VoAlgo::CNLSSolver::ESampler sampler = VoAlgo::CNLSSolver::Gibbs;
    bool robust = false;
    bool refine = false;
};

inline Outcome Fit(VoAlgo::CNLSObjectiveFunction& problem, Vector start, const Settings& settings = {})
{
    const CerrCapture capture;
    VoAlgo::CNLSSolver solver(problem, settings.robust, 0);
    solver.SetRefinement(settings.refine);
    Outcome outcome;
    outcome.params = std::move(start);
    outcome.result = solver.Run(outcome.params, outcome.rmse, settings.maxIter, settings.tau, settings.multistarts,
                                settings.sampler);
    outcome.log = capture.Text();
    return outcome;
}
