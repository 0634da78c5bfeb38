#pragma once

#include "VoAlgorithms/export.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace VoAlgo {

/// Shows how far long work has come, and carries the wish to stop it. The work begins with a number of steps and
/// advances by them, or hands stretches of itself to parts (CProgressPart). Functions of the library take a pointer to
/// a meter, null when nobody looks; it is borrowed for the call.
class VOALGO_API AProgressMeter {
public:
    AProgressMeter() = default;
    AProgressMeter(const AProgressMeter&) = delete;
    AProgressMeter& operator=(const AProgressMeter&) = delete;
    virtual ~AProgressMeter() = default;

    /// Begins work of so many steps and shows its text at the start. No other thread may advance meanwhile. Shows every
    /// `stepsPerShow`, or 0: about each half percent. Returns whether to go on.
    bool Begin(std::string text, std::uint64_t steps, std::uint64_t stepsPerShow = 0);
    /// Counts steps that are done, on any thread, and shows them when it is time. Returns whether to go on. Costs an
    /// atomic addition when nothing is shown.
    bool Advance(std::uint64_t steps = 1);
    /// Shows the work as done, also when it took fewer steps. Returns whether to go on.
    bool Finish();
    /// Asks the work to stop, from any thread.
    void Cancel() noexcept { isCancelled_.store(true, std::memory_order_relaxed); }
    /// Whether the work, or the whole that it is a part of, was asked to stop.
    [[nodiscard]] bool IsCancelled() const noexcept;

protected:
    /// Shows the text and the share of the work that is done, 0 to 1 and never falling. Runs on the thread that
    /// advanced, one call at a time; what it throws passes through the work. Returns whether to go on: false cancels.
    virtual bool show(const std::string& text, double share) = 0;

private:
    friend class CProgressPart;

    bool showDone(std::uint64_t done);
    bool showShare(const std::string& text, double share);

    std::string text_;
    std::uint64_t steps_ = 1;
    std::uint64_t stepsPerShow_ = 1;
    std::atomic<std::uint64_t> done_{0};
    std::atomic<std::uint64_t> showAt_{0}; // steps done at which to show again
    std::atomic<bool> isCancelled_{false};
    std::mutex mutex_;      // guards what follows
    double shown_ = 0.0;    // largest share shown since the work began
    double assigned_ = 0.0; // share handed to parts
    AProgressMeter* whole_ = nullptr;
};

/// A stretch of another meter's work. Parts of one meter may advance in parallel, and have parts of their own.
class VOALGO_API CProgressPart final : public AProgressMeter {
public:
    /// Takes the next share of the whole, at most all that is left of it. Without a whole, nothing is shown.
    explicit CProgressPart(AProgressMeter* whole, double weight = 1.0);

private:
    bool show(const std::string& text, double share) override;

    double from_ = 0.0;
    double weight_ = 0.0;
};

/// Shows nothing: for work that is only to be cancelled.
class VOALGO_API CSilentProgressMeter final : public AProgressMeter {
    bool show(const std::string&, double) override { return true; }
};

/// Calls a function, which returns whether to go on.
class VOALGO_API CFunctionProgressMeter final : public AProgressMeter {
public:
    /// The function gets the text of the work and the share of it that is done, as show.
    explicit CFunctionProgressMeter(std::function<bool(const std::string& text, double share)> show);

private:
    bool show(const std::string& text, double share) override { return show_(text, share); }

    std::function<bool(const std::string&, double)> show_;
};

/// Draws a bar with the share, the seconds since the meter was made, and the text, if the stream is a terminal.
class VOALGO_API CConsoleProgressMeter final : public AProgressMeter {
public:
    /// The stream is borrowed.
    explicit CConsoleProgressMeter(std::FILE* stream = stderr);
    /// Takes the bar away.
    ~CConsoleProgressMeter() override;
    /// Takes the bar away until the next step, to print something else.
    void Clear();

private:
    bool show(const std::string& text, double share) override;

    struct Bar;
    std::unique_ptr<Bar> bar_;
};

} // namespace VoAlgo
