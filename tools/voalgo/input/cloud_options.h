#pragma once

#include "VoAlgorithms/verdict/preparedscan.h"
#include "exchange/files/length_unit.h"
#include "terminal/console.h"

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace voalgo {

/// How clouds are read; options that all commands share.
struct CloudOptions {
    std::string unit = "mm";
    std::vector<double> viewpoint; ///< x y z in the file's unit; empty: none

    void AddTo(CLI::App& command);
    [[nodiscard]] LengthUnit Unit() const;
    /// Reads and prepares a cloud. Throws InputError.
    [[nodiscard]] prereg::PreparedScan Load(const std::string& path) const;
    /// The same; reports on the console what was found and done.
    [[nodiscard]] prereg::PreparedScan Load(const std::string& path, Console& console) const;
    /// Both clouds of a registration, read at the same time.
    [[nodiscard]] std::pair<prereg::PreparedScan, prereg::PreparedScan>
    LoadPair(const std::string& fix, const std::string& flt, Console& console) const;
};

} // namespace voalgo
