#pragma once

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "VoAlgorithms/solvers/cnlssolver.h"

#include "support/cerr_capture.h"

#include <limits>
#include <random>
#include <string>
#include <utility>

// What the tests of the solvers share: random input, and a fit with its outcome.

using Vector = VoAlgo::TVector<double>;
using Matrix = VoAlgo::TMatrix<double>;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();

inline Vector RandomVector(std::mt19937& engine, std::size_t size)
{
    std::normal_distribution<double> normal;
    Vector v(size);
    for (double& e : v) e = normal(engine);
    return v;
}

inline Matrix RandomMatrix(std::mt19937& engine, std::size_t rows, std::size_t cols)
{
    std::normal_distribution<double> normal;
    Matrix m(rows, cols);
    for (std::size_t j = 0; j < cols; ++j)
        for (double& e : m.Column(j)) e = normal(engine);
    return m;
}

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
