#include "output/print.h"

#include "VoAlgorithms/prereg/eicpresulttype.h"
#include "input/pose_file.h"
#include "platform/format.h"

#include <cstdio>

namespace voalgo {

namespace {

using VoAlgo::Format;

std::string Table(const std::vector<prereg::JudgedTrafo>& results)
{
    std::string text = "rank  overlap   area mm2   RMSE mm  small/big  mismatches  cluster  iterations\n";
    unsigned rank = 0;
    for (const prereg::JudgedTrafo& r : results)
        text += Format("%4u  %7.3f  %9.4g  %8.4f  %9.3f  %10.4f  %7u  %10d\n", ++rank,
                       static_cast<double>(r.fStop_OverlapRatio), static_cast<double>(r.fStop_OverlapArea),
                       static_cast<double>(r.fStop_RMSE), static_cast<double>(r.fStop_SmallBigRatio),
                       static_cast<double>(r.fStop_MismatchesPerMatchRatio), r.clusterSize, r.iStop_Iterations);
    return text;
}

std::string Pose(const Outcome& outcome)
{
    return "pose that maps FLT into FIX, in " + outcome.unit.name + ":\n" +
           PoseText(InUnit(outcome.registration.Pose(), outcome.unit));
}

std::string Refusal(const prereg::Registration& registration)
{
    const auto& s = registration.statistics;
    std::string text = "no registration found: " + registration.Reason() + "\n";
    if (registration.isRefinement) return text;
    text += Format("%u polygons, %u proposed poses, %u accepted, %u refused\n", s.uiNumPolygons, s.uiNumProposals,
                   s.uiNumSuccessful, s.uiNumFailed);
    for (const auto& [type, count] : s.failures)
        text += Format("%6u  %s\n", count, CauseOf(static_cast<prereg::EICPResultType>(type)));
    return text;
}

std::string Text(const Outcome& outcome)
{
    const prereg::Registration& registration = outcome.registration;
    const std::string table = registration.results.empty() ? "" : Table(registration.results);
    return table + (registration ? Pose(outcome) : Refusal(registration));
}

} // namespace

void Print(const Outcome& outcome, bool json, const std::vector<std::string>& files)
{
    if (json) {
        auto object = ToJson(outcome);
        const prereg::Registration::Seconds& seconds = outcome.registration.seconds;
        object["seconds"] = {{"features", seconds.features}, {"search", seconds.search}};
        std::printf("%s\n", JsonText(object).c_str());
        return;
    }
    std::fputs(Text(outcome).c_str(), stdout);
    for (const std::string& file : files) std::printf("wrote %s\n", file.c_str());
}

} // namespace voalgo
