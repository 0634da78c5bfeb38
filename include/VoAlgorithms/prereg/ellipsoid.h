#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <string>

namespace VoAlgo {
class CTrafo;
}

namespace prereg {

/// The 95 % covariance ellipsoid of a point cloud: its centre and, per principal axis, the end of one semi-axis, mm.
class VOALGO_API Ellipsoid {
public:
    /// All zero.
    Ellipsoid() = default;
    /// From n points (borrowed), of which those that are not finite do not count; none gives the zero ellipsoid. The
    /// covariance divides by their number.
    Ellipsoid(const kdtree::Vector<3>* points, std::size_t n);
    /// From its four points, mm, largest semi-axis first; unchecked.
    Ellipsoid(const kdtree::Vector<3>& center, const kdtree::Vector<3>& end0, const kdtree::Vector<3>& end1,
              const kdtree::Vector<3>& end2);

    ///@{
    /// Point k: 0 the centre, 1 to 3 the semi-axis end points, largest axis first; unchecked.
    const kdtree::Vector<3>& operator[](int k) const { return points_[k]; }
    kdtree::Vector<3>& operator[](int k) { return points_[k]; }
    ///@}

    /// Mean squared distance of corresponding poles centre ± semi-axis, mm².
    [[nodiscard]] float DistanceSq(const Ellipsoid& other) const;
    /// The ellipsoid moved by a pose.
    [[nodiscard]] Ellipsoid Transformed(const VoAlgo::CTrafo& trafo) const;

    /// Writes the centre and the six poles as text: one "x y z nx ny nz c" line each, the normal pointing outwards
    /// (0 0 0 for the centre), c the axis number 0 to 3 (0 the centre). Numbers are written as by CPointSet::SaveXYZN.
    /// Throws std::invalid_argument "empty file name" for an empty name and the stream's failure when the file cannot
    /// be written.
    void SaveXYZNC(const std::string& fileName) const;

private:
    kdtree::Vector<3> points_[4];
};

} // namespace prereg
