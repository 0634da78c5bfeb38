#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include <array>
#include <cstddef>
#include <vector>

namespace voalgo {

/// Collects the points of a file that states them in double precision, in little memory: the first ones give the
/// origin, the others follow as floats. Lengths are multiplied by a factor.
class ScanBuilder {
public:
    explicit ScanBuilder(double mmPerUnit) : mmPerUnit_(mmPerUnit) {}

    void Reserve(std::size_t n);
    void AddPoint(const std::array<double, 3>& p);
    void AddNormal(const std::array<double, 3>& n);
    [[nodiscard]] std::size_t Size() const { return scan_.points.size() + first_.size() / 3; }
    [[nodiscard]] prereg::Scan Take() &&;

private:
    void placeOrigin();

    double mmPerUnit_;
    prereg::Scan scan_;
    std::vector<double> first_; // packed coordinates, mm; empty once the origin is known
    bool hasOrigin_ = false;
};

} // namespace voalgo
