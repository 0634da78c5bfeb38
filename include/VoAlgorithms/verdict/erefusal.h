#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/eicpresulttype.h"

#include <string>
#include <utility>

namespace prereg {

/// Why a pose, or a pair of scans, is refused.
enum class ERefusal : std::int32_t {
    None = 0,

    // A refinement failed: the values of EICPResultType.
    InitialOverlapTooSmall = 1,
    TooFewInliersInitially = 2,
    TooManyMismatchesIterating = 3,
    OverlapTooSmallIterating = 4,
    TooFewInliersIterating = 5,
    TooFarAway = 6,
    TooManyMismatches = 7,
    OverlapTooSmall = 8,
    RmseTooLarge = 9,

    // The verification of a pose.
    TooFewProposalsAgree = 20, ///< too few proposals led to the pose
    SharedSurfaceTooSmall,     ///< too little of either scan lies on the other
    SurfacesDisagree,          ///< where both scans have surface, too little of it coincides
    MisfitTooLarge,            ///< where both scans have surface, the surfaces lie too far apart
    SeenEmpty,                 ///< points lie where the other scan saw that there is nothing
    NotStable,                 ///< the shape of the overlap lets the scans slide or rotate against each other
    FewFlatFaces,              ///< the overlap is hardly more than three flat faces

    // The search.
    TooFewFeaturesInFix = 40,
    TooFewFeaturesInFlt,
    NoPoseAccepted, ///< no proposed pose passed the acceptance tests
    Ambiguous,      ///< different poses fit about equally well
    Cancelled,      ///< by the host's progress function

    // The scans are at fault: nothing was searched.
    NoFinitePoints = 60,
    TooFewPoints,
    PointsCoincide,
    ImplausibleExtent,
    PointsCollinear,
    PointsCoplanar,
    UnitsDiffer,
};

/// A refusal in words.
struct VOALGO_API Refusal {
    ERefusal code = ERefusal::None; ///< None: nothing is refused
    std::string text;               ///< in words, with figures where they help; empty for None

    Refusal() = default;
    /// With the text of the code.
    explicit Refusal(ERefusal code_);
    /// With another text.
    Refusal(ERefusal code_, std::string text_) : code(code_), text(std::move(text_)) {}

    /// Whether something is refused.
    explicit operator bool() const { return code != ERefusal::None; }
};

/// The refusal that corresponds to the failure of a refinement.
[[nodiscard]] inline ERefusal RefusalOf(std::int32_t icpResultType)
{
    return static_cast<ERefusal>(icpResultType);
}
/// Whether the scans themselves are at fault, not their registration.
[[nodiscard]] inline bool IsFaultOfScans(ERefusal code)
{
    return code >= ERefusal::NoFinitePoints;
}
/// A stable identifier for programs, such as "rmse_too_large"; empty for None.
[[nodiscard]] VOALGO_API const char* CodeOf(ERefusal code);
/// In words, without figures; empty for None.
[[nodiscard]] VOALGO_API const char* TextOf(ERefusal code);

} // namespace prereg
