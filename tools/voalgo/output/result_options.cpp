#include "output/result_options.h"

#include "exchange/files/files.h"
#include "exchange/files/output_error.h"
#include "exchange/files/staged_directory.h"
#include "exchange/files/staged_file.h"
#include "exchange/report/page.h"
#include "output/distinct_files.h"
#include "output/output_directory.h"
#include "output/print.h"
#include "terminal/exit_code.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <optional>

namespace voalgo {

void ResultOptions::AddTo(CLI::App& command)
{
    command.add_option("--out", directory, "Directory for result files. Default: only print the results");
    command.add_option("--report", report,
                       "File for an HTML page that shows the outcome: both scans in 3D, distances, tests and settings");
    command.add_flag("--json", json, "Print the results as JSON");
}

namespace {

/// All results of a run, until they take their places.
class StagedResults {
public:
    StagedResults(const std::string& directory, const std::string& report) : reportPath_(report)
    {
        const bool isInside = !directory.empty() && !report.empty() && IsInFolder(report, directory);
        std::vector<std::string> names = OutputNames();
        if (isInside) names.push_back(reportName_ = std::filesystem::path(report).filename().string());
        if (!directory.empty()) directory_.emplace(directory, names);
        if (!report.empty() && !isInside) report_.emplace(report);
    }

    void Write(const Outcome& outcome)
    {
        if (directory_) WriteOutput(*directory_, outcome);
        if (report_) report_->Write(ReportPage(outcome));
        if (!reportName_.empty())
            directory_->Add(reportName_, [&](const std::string& path) { WriteText(path, ReportPage(outcome)); });
    }

    /// Returns the paths of the files.
    std::vector<std::string> Keep()
    {
        std::vector<std::string> files;
        if (directory_) {
            directory_->Keep();
            files = directory_->Paths();
        }
        if (report_) {
            report_->Keep();
            files.push_back(reportPath_);
        }
        return files;
    }

private:
    std::string reportPath_;
    std::optional<StagedDirectory> directory_;
    std::string reportName_;           // in the directory; empty: none or elsewhere
    std::optional<StagedFile> report_; // elsewhere
};

} // namespace

void ResultOptions::RequireWritable(const std::vector<std::string>& inputs) const
{
    std::vector<std::string> outputs = {directory, report};
    if (!directory.empty())
        for (const std::string& name : OutputNames()) outputs.push_back(InDirectory(directory, name));
    RequireDistinct(inputs, outputs);
    (void)StagedResults(directory, report);
}

int ResultOptions::Write(const Outcome& outcome) const
{
    std::vector<std::string> files;
    try {
        StagedResults results(directory, report);
        results.Write(outcome);
        files = results.Keep();
    } catch (const OutputError&) {
        Print(outcome, json, {});
        throw;
    }
    Print(outcome, json, files);
    return outcome.registration ? Done : NothingFound;
}

} // namespace voalgo
