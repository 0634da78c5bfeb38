#include "VoAlgorithms/prereg/eicpresulttype.h"

namespace prereg {
namespace {

struct Entry {
    EICPResultType type;
    const char* text;
    const char* label;
    const char* code;
};

using enum EICPResultType;

constexpr Entry Entries[] = {
    {Undefined, "undefined ICP result", nullptr, "undefined"},
    {Success, "success", nullptr, "success"},
    {InitialOverlapTooSmall, "initial overlap of point sets is too small", "strt/overlap", "initial_overlap_too_small"},
    {TooFewInliersInitially, "too few inliers, initially", "strt/inliers", "too_few_inliers_initially"},
    {TooManyMismatchesIterating, "too many mismatches during iteration", "iter/mismatches",
     "too_many_mismatches_iterating"},
    {OverlapTooSmallIterating, "overlap too small during iteration", "iter/overlap", "overlap_too_small_iterating"},
    {TooFewInliersIterating, nullptr, "iter/inliers", "too_few_inliers_iterating"}, // deliberate: no text of its own
    {TooFarAway, "final pose too far away from original pose", "stop/change", "too_far_away"},
    {TooManyMismatches, "too many mismatches at final pose", "stop/conflicts", "too_many_mismatches"},
    {OverlapTooSmall, "overlap too small", "stop/overlap", "overlap_too_small"},
    {RmseTooLarge, "RMSE too large", "stop/RMSE", "rmse_too_large"},
};

/// The entry's string, or `otherwise` where it has none.
const char* Find(EICPResultType type, const char* Entry::*field, const char* otherwise)
{
    for (const Entry& entry : Entries)
        if (entry.type == type && entry.*field != nullptr) return entry.*field;
    return otherwise;
}

} // namespace

const char* TextOf(EICPResultType type)
{
    return Find(type, &Entry::text, "unknown result type");
}

const char* CauseOf(EICPResultType type)
{
    return type == TooFewInliersIterating ? "too few inliers during iteration" : TextOf(type);
}

const char* LabelOf(EICPResultType type)
{
    return Find(type, &Entry::label, "*unknown*");
}

const char* CodeOf(EICPResultType type)
{
    return Find(type, &Entry::code, "unknown");
}

} // namespace prereg
