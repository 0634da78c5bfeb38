#pragma once

#include "exchange/report/outcome.h"

#include <string>

namespace CLI {
class App;
}

namespace voalgo {

/// Where the results of a registration go; the options that the commands with results share.
struct ResultOptions {
    std::string directory; ///< empty: none
    std::string report;    ///< file for the page; empty: none
    bool json = false;

    void AddTo(CLI::App& command);
    /// Throws InputError when the results could not be written: before the search, not after it, is the time to fail.
    void RequireWritable() const;
    /// Writes and prints the results; the exit code.
    [[nodiscard]] int Write(const Outcome& outcome) const;
};

} // namespace voalgo
