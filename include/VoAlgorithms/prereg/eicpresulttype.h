#pragma once

#include "VoAlgorithms/export.h"

#include <cstdint>

namespace prereg {

/// Outcome of one refinement: the values of ICPResult::resultType.
enum class EICPResultType : std::int32_t {
    Undefined = -1,                 ///< nothing was refined
    Success = 0,                    ///< accepted
    InitialOverlapTooSmall = 1,     ///< too few pairs in the first pass
    TooFewInliersInitially = 2,     ///< the first pass's pairs do not agree
    TooManyMismatchesIterating = 3, ///< normals point away from each other during the iteration
    OverlapTooSmallIterating = 4,   ///< too few pairs during the iteration
    TooFewInliersIterating = 5,     ///< the pairs stop agreeing during the iteration
    TooFarAway = 6,                 ///< the final pose lies too far from the reference pose
    TooManyMismatches = 7,          ///< mismatched normals, or a small/big ratio, out of bounds at the final pose
    OverlapTooSmall = 8,            ///< overlap ratio or area at the final pose
    RmseTooLarge = 9,               ///< at the final pose
};

/// The text of a result type; "unknown result type" for 5 (deliberate) and for unknown ones.
[[nodiscard]] VOALGO_API const char* TextOf(EICPResultType type);
/// As TextOf, but 5 has words of its own.
[[nodiscard]] VOALGO_API const char* CauseOf(EICPResultType type);
/// The short label in statistics, such as "stop/RMSE"; "*unknown*" for what is no failure.
[[nodiscard]] VOALGO_API const char* LabelOf(EICPResultType type);
/// A stable identifier for programs, such as "rmse_too_large"; "unknown" for unknown types.
[[nodiscard]] VOALGO_API const char* CodeOf(EICPResultType type);

} // namespace prereg
