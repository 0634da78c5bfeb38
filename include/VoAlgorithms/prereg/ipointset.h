#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <utility>

namespace prereg {

/// Interface of all point sets.
class VOALGO_API IPointSet {
public:
    virtual ~IPointSet() = default;

    /// Bytes held, the object itself included.
    [[nodiscard]] virtual std::size_t GetMemUsage() const = 0;
    /// Gives every element the same 32-bit mask.
    virtual void InitializeBitMasks(unsigned mask) = 0;
    /// Removes the masks.
    virtual void ClearBitMasks() = 0;
    /// Number of points.
    [[nodiscard]] virtual std::size_t Size() const = 0;
    /// Whether there are no points.
    [[nodiscard]] virtual bool Empty() const = 0;
    /// Minimum and maximum corner of the axis-aligned bounding box, mm; both zero for an empty set.
    [[nodiscard]] virtual std::pair<kdtree::Vector<3>, kdtree::Vector<3>> GetAABB() const = 0;

protected:
    IPointSet() = default;
    IPointSet(const IPointSet&) = default;
    IPointSet(IPointSet&&) = default;
    IPointSet& operator=(const IPointSet&) = default;
    IPointSet& operator=(IPointSet&&) = default;
};

} // namespace prereg
