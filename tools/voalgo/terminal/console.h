#pragma once

#include "platform/clock.h"

#include <functional>
#include <string>

namespace voalgo {

/// Writes to standard error: messages, and a progress bar if it is a terminal.
class Console {
public:
    /// Quiet: warnings only. There is no progress bar beside JSON.
    explicit Console(bool isQuiet, bool isJson = false);
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console() { ClearProgress(); }

    /// Reports something that was done.
    void Note(const std::string& text);
    /// Reports that something is probably wrong.
    void Warn(const std::string& text);
    /// Draws the bar: the stage, the share done (0 to 1), the time since the start.
    void Progress(const char* stage, double share);
    /// Progress, in the form that a registration calls.
    [[nodiscard]] std::function<bool(const char*, double)> ProgressFunction();
    void ClearProgress();

private:
    bool isQuiet_;
    bool hasProgress_;
    bool isBarDrawn_ = false;
    VoAlgo::CStopwatch watch_;
    double drawnAt_ = 0.0; // seconds
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
