#include "VoAlgorithms/prereg/icpresult.h"

#include "VoAlgorithms/prereg/eicpresulttype.h"
#include "platform/format.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace prereg {
namespace {

// Differences within these bands are ties.
constexpr double SmallBigBand = 0.005;
constexpr double OverlapBand = 0.015;
constexpr double RmseBand = 0.0015;
constexpr int InlierBand = 10;

/// The first of the ordered criteria whose difference leaves its band: > 0 when a is better, < 0 when b is; 0 for a
/// tie.
int CompareOutsideBands(const ICPResult& a, const ICPResult& b)
{
    const auto decide = [](float difference, double band) {
        if (!(std::fabs(static_cast<double>(difference)) >= band)) return 0; // NaN, of two infinities, is a tie
        return difference > 0.0F ? 1 : -1;
    };
    if (const int c = decide(a.fStop_SmallBigRatio - b.fStop_SmallBigRatio, SmallBigBand); c != 0) return c;
    if (const int c = decide(a.fStop_OverlapRatio - b.fStop_OverlapRatio, OverlapBand); c != 0) return c;
    if (const int c = decide(b.fStop_RMSE - a.fStop_RMSE, RmseBand); c != 0) return c;
    const std::int64_t inliers = std::int64_t{a.iStop_NumberOfInliers} - b.iStop_NumberOfInliers;
    if (std::abs(inliers) < InlierBand) return 0;
    return inliers > 0 ? 1 : -1;
}

} // namespace

bool ICPResult::operator<(const ICPResult& other) const
{
    const int better = CompareOutsideBands(*this, other);
    // Deliberate: within all bands the smaller overlap comes first, against the overlap criterion.
    return better != 0 ? better > 0 : other.fStop_OverlapRatio > fStop_OverlapRatio;
}

bool ICPResult::operator>(const ICPResult& other) const
{
    const int better = CompareOutsideBands(*this, other);
    return better != 0 ? better < 0 : fStop_OverlapRatio > other.fStop_OverlapRatio;
}

std::string ICPResult::ToString(bool shortForm) const
{
    std::string figures;
    if (shortForm) {
        if (resultType == 0) figures = VoAlgo::Format(" (RMSE: %.3fmm)", static_cast<double>(fStop_RMSE));
    } else {
        figures =
            VoAlgo::Format(" / start (Overlap Ratio: %.1fp, RMSE: %.3fmm, Errors/Pair: %.1f, #inliers=%i)"
                           " stop (Overlap Ratio: %.1fp, RMSE: %.3fmm, Errors/Pair: %.1f, Small/Big: %.2f, #inliers=%i,"
                           " #iters: %i) ",
                           static_cast<double>(fStart_OverlapRatio) * 100.0, static_cast<double>(fStart_RMSE),
                           static_cast<double>(fStart_MismatchesPerMatchRatio), iStart_NumberOfInliers,
                           static_cast<double>(fStop_OverlapRatio) * 100.0, static_cast<double>(fStop_RMSE),
                           static_cast<double>(fStop_MismatchesPerMatchRatio), static_cast<double>(fStop_SmallBigRatio),
                           iStop_NumberOfInliers, iStop_Iterations);
    }
    return std::string(TextOf(static_cast<EICPResultType>(resultType))) + figures;
}

std::wstring ICPResult::ToWString(bool shortForm) const
{
    const std::string text = ToString(shortForm);
    return {text.begin(), text.end()};
}

} // namespace prereg
