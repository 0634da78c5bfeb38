#include "output/result_options.h"

#include "exchange/files/files.h"
#include "exchange/report/page.h"
#include "output/output_directory.h"
#include "output/print.h"
#include "terminal/exit_code.h"

#include <CLI/CLI.hpp>

namespace voalgo {

void ResultOptions::AddTo(CLI::App& command)
{
    command.add_option("--out", directory, "Directory for result files. Default: only print the results");
    command.add_option("--report", report,
                       "File for an HTML page that shows the outcome: both scans in 3D, distances, tests and settings");
    command.add_flag("--json", json, "Print the results as JSON");
}

void ResultOptions::RequireWritable() const
{
    if (!directory.empty()) RequireWritableDirectory(directory);
    if (!report.empty()) voalgo::RequireWritable(report);
}

int ResultOptions::Write(const Outcome& outcome) const
{
    std::vector<std::string> files;
    if (!directory.empty()) files = WriteOutput(directory, outcome);
    if (!report.empty()) WriteText(files.emplace_back(report), ReportPage(outcome));
    Print(outcome, json, files);
    return outcome.registration ? Done : NothingFound;
}

} // namespace voalgo
