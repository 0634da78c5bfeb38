#pragma once

#include "exchange/report/outcome.h"

#include <string>

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
    /// Throws InputError if the results cannot be written: better before a search than after it. Leaves no trace.
    void RequireWritable() const;
    /// Writes and prints the results; returns the exit code.
    [[nodiscard]] int Write(const Outcome& outcome) const;
};

} // namespace voalgo
