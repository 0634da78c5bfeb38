#pragma once

#include "VoAlgorithms/kdtree/vector.h"

namespace kdtree {

/// An axis-aligned box given by two corners; its border belongs to it.
template <unsigned D>
struct Range {
    Vector<D> min; ///< lowest coordinates
    Vector<D> max; ///< highest coordinates, none below that of `min`
};

/// Whether p lies in the box, border included.
inline bool Contains(const Range<3>& box, const Vector<3>& p)
{
    return p.x >= box.min.x && p.x <= box.max.x && p.y >= box.min.y && p.y <= box.max.y && p.z >= box.min.z &&
           p.z <= box.max.z;
}

} // namespace kdtree
