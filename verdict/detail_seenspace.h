#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace prereg::detail {

/// From where a scan was taken: from a point, or from so far away that all rays are parallel.
struct View {
    kdtree::Vector<3> direction;                     ///< unit vector from the object to the viewer
    std::optional<kdtree::Vector<3>> viewpoint = {}; ///< mm
};

/// The space that a single view has seen to be empty: all that lies between the viewer and the surface. A depth image
/// holds, for each pixel, the surface nearest to the viewer.
class SeenSpace {
public:
    /// Draws the depth image of a scan. `pixel`: its resolution at the object, mm; a few points must fall into a pixel.
    SeenSpace(const std::vector<kdtree::Vector<3>>& points, const View& view, double pixel);

    /// How far p lies in front of the surface seen in its pixel and the eight around it, mm; negative behind it. NaN
    /// where nothing was seen.
    [[nodiscard]] float InFront(const kdtree::Vector<3>& p) const;

private:
    struct Projection {
        float column;
        float row;
        float height; // towards the viewer, mm
    };
    [[nodiscard]] Projection project(const kdtree::Vector<3>& p) const;
    [[nodiscard]] std::optional<std::size_t> pixelOf(const Projection& projection) const;

    View view_;
    kdtree::Vector<3> right_;
    kdtree::Vector<3> up_;
    float viewDistance_ = 0.0F; // of the centre of the points, when there is a view point
    float pixel_ = 0.0F;
    float lowColumn_ = 0.0F;
    float lowRow_ = 0.0F;
    std::size_t columns_ = 0;
    std::size_t rows_ = 0;
    std::vector<float> front_; // the largest height around each pixel; NaN where nothing was seen
};

} // namespace prereg::detail
