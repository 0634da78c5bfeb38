#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace voalgo {

/// What the user sees on standard error: messages, and a progress bar when that is a terminal.
class Console {
public:
    enum class Mode { Talkative, WithoutProgress, Quiet };

    /// Quiet: warnings only.
    explicit Console(Mode mode);
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console() { ClearProgress(); }

    /// Something was done that the user may want to know.
    void Note(const std::string& text);
    /// Something is probably wrong.
    void Warn(const std::string& text);
    /// Draws the bar: what is going on, the share done (0 to 1), the time since the first call.
    void Progress(const char* stage, double share);
    /// The same as a registration takes it.
    [[nodiscard]] std::function<bool(const char*, double)> ProgressFunction();
    void ClearProgress();

private:
    using Clock = std::chrono::steady_clock;

    Mode mode_;
    bool terminal_;
    bool barIsDrawn_ = false;
    Clock::time_point start_;
    Clock::time_point drawn_;
};

/// Sends the library's warnings and errors to the console, which outlives it, instead of to standard error.
class LogToConsole {
public:
    explicit LogToConsole(Console& console);
    LogToConsole(const LogToConsole&) = delete;
    LogToConsole& operator=(const LogToConsole&) = delete;
    ~LogToConsole();
};

} // namespace voalgo
