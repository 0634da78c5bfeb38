#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/ellipsoid.h"

#include <cstdint>
#include <limits>
#include <string>

namespace prereg {

/// Outcome of one ICP registration. Lengths in millimetres.
struct VOALGO_API ICPResult {
    std::int32_t resultType = -1;                                                  ///< an EICPResultType
    float fStart_OverlapRatio = -1.0F;                                             ///< pairs ÷ samples, first pass
    std::int32_t iStart_NumberOfInliers = -1;                                      ///< first pass
    float fStart_RMSE = std::numeric_limits<float>::infinity();                    ///< of the inliers, first pass
    float fStart_MismatchesPerMatchRatio = std::numeric_limits<float>::infinity(); ///< first pass
    float fStop_OverlapRatio = -1.0F;                                              ///< final matches ÷ samples
    float fStop_OverlapArea = -1.0F;                                               ///< mm²; filled by the driver
    std::int32_t iStop_NumberOfInliers = -1;                                       ///< of the best pose
    float fStop_RMSE = std::numeric_limits<float>::infinity();                     ///< of the best pose
    float fStop_MismatchesPerMatchRatio = std::numeric_limits<float>::infinity();  ///< final evaluation
    std::int32_t iStop_Iterations =
        -1; ///< iteration whose pose was kept; with type 3 the last one, with 1, 2, 4 and 5 −1
    float fStop_SmallBigRatio = -1.0F; ///< final evaluation
    VoAlgo::CTrafo trafo;              ///< maps 'flt' coordinates into the reference frame
    Ellipsoid ellipsoid;               ///< of 'flt', moved by the final pose; set on success only

    /// The ellipsoid of 'flt' at the final pose.
    [[nodiscard]] const Ellipsoid& GetTransformedFltEllipsoid() const { return ellipsoid; }

    /// "Is better than": small/big ratio, overlap ratio, RMSE, inliers, each with a band within which results tie. Not
    /// transitive within the bands.
    bool operator<(const ICPResult& other) const;
    /// "Is worse than", the mirror image in every step but the last.
    bool operator>(const ICPResult& other) const;

    ///@{
    /// The outcome in words; the short form adds the RMSE of a success, the long one all figures.
    [[nodiscard]] std::string ToString(bool shortForm) const;
    [[nodiscard]] std::wstring ToWString(bool shortForm) const;
    ///@}
};

} // namespace prereg
