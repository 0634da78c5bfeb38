#pragma once

#include "VoAlgorithms/runtime/aprogressmeter.h"

#include <optional>
#include <string>

namespace voalgo {

constexpr double ShareOfReading = 0.2; // of the time that a registration takes from its files

/// Writes to standard error: messages, and a progress bar if it is a terminal.
class Console {
public:
    /// Quiet: warnings only. There is no progress bar beside JSON.
    explicit Console(bool isQuiet, bool isJson = false);
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console() = default;

    /// Reports something that was done.
    void Note(const std::string& text);
    /// Reports that something is probably wrong.
    void Warn(const std::string& text);
    /// Draws the bar; null when there is none.
    [[nodiscard]] VoAlgo::AProgressMeter* Progress() { return bar_ ? &*bar_ : nullptr; }
    void ClearProgress();

private:
    bool isQuiet_;
    std::optional<VoAlgo::CConsoleProgressMeter> bar_;
};

/// Sends the library's warnings and errors to a console, which must outlive it.
class LogToConsole {
public:
    explicit LogToConsole(Console& console);
    LogToConsole(const LogToConsole&) = delete;
    LogToConsole& operator=(const LogToConsole&) = delete;
    ~LogToConsole();
};

} // namespace voalgo
