#pragma once

#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/cpointset.h"
#include "verdict/detail_seenspace.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

namespace prereg::detail {

/// What two scans say about a pose. Shares are 0 to 1.
struct Evidence {
    double overlap = 0.0;     ///< share of a scan's points that lie on the other's surface, of the side with more
    double agreement = 0.0;   ///< where both scans have surface: the share of it that coincides, of the side with less
    double misfit = INFINITY; ///< median distance of the surfaces there, mm
    double seenEmpty = std::numeric_limits<double>::quiet_NaN(); ///< share of points in front of what the other scan
                                                                 ///< saw, of the side with more; NaN: not known
    double beyondFaces = 0.0; ///< share of the closest pairs that face none of their three main directions, of the side
                              ///< with less
    double stability = 0.0;   ///< smallest eigenvalue of the point-to-plane problem of the closest pairs, 0 to 1/3
};

/// Two scans that poses are refined on and tested against. Both are referred to and must live as long. Const operations
/// only read and may run on several threads at once.
class ScanPair {
public:
    /// `resolution`: the spacing that the scans are worked on at, mm. Without a view, nothing is known to be empty.
    /// `samples`: about so many points of each scan are looked at.
    ScanPair(const CPointSet& fix, const CPointSet& flt, const std::optional<View>& fixView,
             const std::optional<View>& fltView, double resolution, std::size_t samples = 2500);

    /// Refines a pose (maps flt into fix): robust point-to-plane ICP between samples of both scans, flt onto fix and
    /// fix onto flt in one system. `startRadius`: the first pairing radius in resolutions, which shrinks to 1
    /// resolution; one of `stride` samples is used.
    [[nodiscard]] VoAlgo::CTrafo Refine(const VoAlgo::CTrafo& start, double startRadius, unsigned iterations,
                                        unsigned stride) const;
    /// The evidence for a pose, from one of `stride` samples.
    [[nodiscard]] Evidence Measure(const VoAlgo::CTrafo& pose, unsigned stride) const;
    /// Whether either view tells what is empty.
    [[nodiscard]] bool KnowsEmptySpace() const { return fix_.seen || flt_.seen; }

private:
    struct Side {
        const CPointSet* set = nullptr;
        std::vector<std::size_t> samples; // points that are not isolated
        std::optional<SeenSpace> seen;
    };
    struct Matches;

    [[nodiscard]] Side makeSide(const CPointSet& set, const std::optional<View>& view, std::size_t samples) const;
    [[nodiscard]] Matches match(const Side& fix, const Side& flt, const VoAlgo::CTrafo& pose, unsigned stride) const;

    double resolution_;
    Side fix_;
    Side flt_;
};

} // namespace prereg::detail
