#pragma once

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// Nonlinear regression problems with certified results (tests/data/nist).

namespace nist {

/// A number with its derivatives by the parameters; exact ones, without a formula for each model.
struct Dual {
    static constexpr std::size_t MaxParams = 9;
    double value = 0;
    std::array<double, MaxParams> d{};

    Dual() = default;
    Dual(double v) : value(v) {} // NOLINT: numbers are constants among them

    /// f(a, b) from the value and both partial derivatives.
    static Dual Chain(double f, const Dual& a, double fa, const Dual& b, double fb)
    {
        Dual result(f);
        for (std::size_t i = 0; i < MaxParams; ++i) result.d[i] = fa * a.d[i] + fb * b.d[i];
        return result;
    }
    friend Dual operator+(const Dual& a, const Dual& b) { return Chain(a.value + b.value, a, 1, b, 1); }
    friend Dual operator-(const Dual& a, const Dual& b) { return Chain(a.value - b.value, a, 1, b, -1); }
    friend Dual operator*(const Dual& a, const Dual& b) { return Chain(a.value * b.value, a, b.value, b, a.value); }
    friend Dual operator/(const Dual& a, const Dual& b)
    {
        const double q = a.value / b.value;
        return Chain(q, a, 1 / b.value, b, -q / b.value);
    }
};
inline Dual Exp(const Dual& a)
{
    const double e = std::exp(a.value);
    return Dual::Chain(e, a, e, a, 0);
}
/// exp(−u²)
inline Dual Bell(const Dual& u)
{
    return Exp(Dual(0) - u * u);
}
/// a^b for a > 0
inline Dual Pow(const Dual& a, const Dual& b)
{
    const double p = std::pow(a.value, b.value);
    return Dual::Chain(p, a, p * b.value / a.value, b, p * std::log(a.value));
}

inline Dual Quadratic(const Dual& a, const Dual& b, const Dual& c, double x)
{
    return a + x * (b + x * c);
}

using Model = Dual (*)(const Dual* b, const double* x);

struct Problem {
    std::string name;
    Model model{};
    std::vector<double> y;              // responses, as fitted
    std::vector<std::vector<double>> x; // predictors of each
    std::vector<double> start[2], certified, deviation;
};

/// The lines that the head of a file names, as numbers; what is not a number is skipped.
inline std::vector<std::vector<double>> Numbers(const std::vector<std::string>& lines, const std::string& section)
{
    std::size_t first = 0;
    std::size_t last = 0;
    for (const std::string& line : lines)
        if (const auto at = line.find(section); at != std::string::npos && line.find("(lines") != std::string::npos)
            std::sscanf(line.c_str() + line.find("(lines"), "(lines %zu to %zu)", &first, &last);
    std::vector<std::vector<double>> rows;
    for (std::size_t i = first; i >= 1 && i <= last && i <= lines.size(); ++i) {
        std::istringstream words(lines[i - 1]);
        std::vector<double> row;
        for (std::string word; words >> word;) {
            char* end = nullptr;
            const double number = std::strtod(word.c_str(), &end);
            if (*end == '\0') row.push_back(number);
        }
        rows.push_back(row);
    }
    return rows;
}

inline Problem Read(const std::string& folder, const std::string& name, Model model)
{
    std::ifstream file(folder + "/" + name + ".dat");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    Problem problem;
    problem.name = name;
    problem.model = model;
    for (const auto& row : Numbers(lines, "Starting Values")) {
        if (row.size() != 4) throw std::runtime_error("cannot read " + name);
        problem.start[0].push_back(row[0]);
        problem.start[1].push_back(row[1]);
        problem.certified.push_back(row[2]);
        problem.deviation.push_back(row[3]);
    }
    for (const auto& row : Numbers(lines, "Data  ")) {
        problem.y.push_back(row.at(0));
        problem.x.emplace_back(row.begin() + 1, row.end());
    }
    if (problem.y.empty() || problem.certified.empty()) throw std::runtime_error("cannot read " + name);
    return problem;
}

/// All problems of a folder.
inline std::vector<Problem> ReadAll(const std::string& folder)
{
    std::vector<Problem> problems = {
        Read(folder, "Misra1a", [](const Dual* b, const double* x) { return b[0] * (1 - Exp(0 - b[1] * x[0])); }),
        Read(folder, "Chwirut2",
             [](const Dual* b, const double* x) { return Exp(0 - b[0] * x[0]) / (b[1] + b[2] * x[0]); }),
        Read(folder, "Gauss1",
             [](const Dual* b, const double* x) {
                 return b[0] * Exp(0 - b[1] * x[0]) + b[2] * Bell((x[0] - b[3]) / b[4]) +
                        b[5] * Bell((x[0] - b[6]) / b[7]);
             }),
        Read(folder, "Kirby2",
             [](const Dual* b, const double* x) {
                 return Quadratic(b[0], b[1], b[2], x[0]) / Quadratic(1, b[3], b[4], x[0]);
             }),
        Read(folder, "MGH17",
             [](const Dual* b, const double* x) {
                 return b[0] + b[1] * Exp(0 - x[0] * b[3]) + b[2] * Exp(0 - x[0] * b[4]);
             }),
        Read(folder, "Nelson",
             [](const Dual* b, const double* x) { return b[0] - b[1] * x[0] * Exp(0 - b[2] * x[1]); }),
        Read(folder, "Rat43",
             [](const Dual* b, const double* x) { return b[0] / Pow(1 + Exp(b[1] - b[2] * x[0]), 1 / b[3]); }),
        Read(folder, "Thurber",
             [](const Dual* b, const double* x) {
                 return (b[0] + x[0] * Quadratic(b[1], b[2], b[3], x[0])) /
                        (1 + x[0] * Quadratic(b[4], b[5], b[6], x[0]));
             }),
        Read(folder, "BoxBOD", [](const Dual* b, const double* x) { return b[0] * (1 - Exp(0 - b[1] * x[0])); }),
    };
    for (double& y : problems[5].y) y = std::log(y); // Nelson's model is of the logarithm
    return problems;
}

class Objective : public VoAlgo::CNLSObjectiveFunction {
public:
    explicit Objective(const Problem& problem)
        : CNLSObjectiveFunction(static_cast<int>(problem.certified.size()), static_cast<int>(problem.y.size())),
          problem_(problem)
    {
    }

    VoAlgo::TVector<double> Error(const VoAlgo::TVector<double>& params) override
    {
        VoAlgo::TVector<double> r(problem_.y.size());
        for (std::size_t i = 0; i < r.Size(); ++i) r[i] = Evaluate(params, i).value - problem_.y[i];
        return r;
    }
    VoAlgo::TMatrix<double> Jacobian(const VoAlgo::TVector<double>& params) override
    {
        VoAlgo::TMatrix<double> J(problem_.y.size(), params.Size());
        for (std::size_t i = 0; i < J.Rows(); ++i) {
            const Dual model = Evaluate(params, i);
            for (std::size_t j = 0; j < J.Cols(); ++j) J(i, j) = model.d[j];
        }
        return J;
    }

private:
    [[nodiscard]] Dual Evaluate(const VoAlgo::TVector<double>& params, std::size_t i) const
    {
        std::array<Dual, Dual::MaxParams> b;
        for (std::size_t j = 0; j < params.Size(); ++j) {
            b[j] = params[j];
            b[j].d[j] = 1;
        }
        return problem_.model(b.data(), problem_.x[i].data());
    }
    const Problem& problem_;
};

/// Certified digits of the worst parameter, 11 at most.
inline double Digits(const Problem& problem, const VoAlgo::TVector<double>& params)
{
    double digits = 11;
    for (std::size_t j = 0; j < params.Size(); ++j) {
        const double error = std::abs(params[j] - problem.certified[j]) / std::abs(problem.certified[j]);
        digits = std::min(digits, error == 0 ? 11 : std::isfinite(error) ? -std::log10(error) : 0);
    }
    return std::max(digits, 0.0);
}

} // namespace nist
