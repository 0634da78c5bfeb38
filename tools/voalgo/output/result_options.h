#pragma once

#include "exchange/report/outcome.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace voalgo {

/// Where the results of a registration go; options that several commands share.
struct ResultOptions {
    std::string directory; ///< empty: none
    std::string report;    ///< file for the page; empty: none
    bool json = false;

    void AddTo(CLI::App& command);
    /// Better before a search than after it: throws UsageError if a result would replace another one or an input, and
    /// OutputError if it cannot be written. Leaves no trace.
    void RequireWritable(const std::vector<std::string>& inputs) const;
    /// Writes and prints the results; returns the exit code. Results that cannot be written are printed before that is
    /// an OutputError.
    [[nodiscard]] int Write(const Outcome& outcome) const;
};

} // namespace voalgo
