#include "VoAlgorithms/runtime/aprogressmeter.h"

#include "platform/clock.h"
#include "platform/terminal.h"

#include <algorithm>
#include <utility>

namespace VoAlgo {

bool AProgressMeter::Begin(std::string text, std::uint64_t steps, std::uint64_t stepsPerShow)
{
    constexpr std::uint64_t Shows = 200;
    text_ = std::move(text);
    steps_ = std::max<std::uint64_t>(steps, 1);
    stepsPerShow_ = stepsPerShow > 0 ? stepsPerShow : std::max<std::uint64_t>(steps_ / Shows, 1);
    done_ = 0;
    showAt_ = 0;
    {
        const std::lock_guard lock(mutex_);
        shown_ = 0.0;
        assigned_ = 0.0;
    }
    return showDone(0);
}

bool AProgressMeter::Advance(std::uint64_t steps)
{
    const std::uint64_t done = done_.fetch_add(steps, std::memory_order_relaxed) + steps;
    return done >= showAt_.load(std::memory_order_relaxed) ? showDone(done) : !IsCancelled();
}

bool AProgressMeter::Finish()
{
    done_ = steps_;
    {
        const std::lock_guard lock(mutex_);
        if (shown_ >= 1.0) return !IsCancelled();
    }
    return showShare(text_, 1.0);
}

bool AProgressMeter::IsCancelled() const noexcept
{
    return isCancelled_.load(std::memory_order_relaxed) || (whole_ != nullptr && whole_->IsCancelled());
}

bool AProgressMeter::showDone(std::uint64_t done)
{
    std::uint64_t due = showAt_.load(std::memory_order_relaxed);
    const std::uint64_t next = done + stepsPerShow_;
    do {
        if (done < due) return !IsCancelled(); // another thread has just shown as much
    } while (!showAt_.compare_exchange_weak(due, next, std::memory_order_relaxed));
    return showShare(text_, static_cast<double>(std::min(done, steps_)) / static_cast<double>(steps_));
}

bool AProgressMeter::showShare(const std::string& text, double share)
{
    const std::lock_guard lock(mutex_);
    shown_ = std::max(shown_, share);
    if (!IsCancelled() && !show(text, shown_)) Cancel();
    return !IsCancelled();
}

CProgressPart::CProgressPart(AProgressMeter* whole, double weight)
{
    if (whole == nullptr) return;
    whole_ = whole;
    const std::lock_guard lock(whole->mutex_);
    from_ = whole->assigned_;
    weight_ = std::clamp(weight, 0.0, 1.0 - from_);
    whole->assigned_ += weight_;
}

bool CProgressPart::show(const std::string& text, double share)
{
    return whole_ == nullptr || whole_->showShare(text, from_ + weight_ * share);
}

CFunctionProgressMeter::CFunctionProgressMeter(std::function<bool(const std::string& text, double share)> show)
    : show_(std::move(show))
{
}

struct CConsoleProgressMeter::Bar {
    std::FILE* stream;
    CStopwatch watch{};
    double drawnAt = 0.0; // seconds
    bool isDrawn = false;
};

CConsoleProgressMeter::CConsoleProgressMeter(std::FILE* stream)
{
    if (IsTerminal(stream)) bar_ = std::make_unique<Bar>(Bar{stream});
}

CConsoleProgressMeter::~CConsoleProgressMeter()
{
    Clear();
}

void CConsoleProgressMeter::Clear()
{
    if (!bar_ || !bar_->isDrawn) return;
    std::fputs("\r\033[K", bar_->stream);
    std::fflush(bar_->stream);
    bar_->isDrawn = false;
}

bool CConsoleProgressMeter::show(const std::string& text, double share)
{
    constexpr int Width = 30;
    constexpr double Pause = 0.05; // seconds
    if (!bar_) return true;
    const double now = bar_->watch.Seconds();
    if (bar_->isDrawn && now - bar_->drawnAt < Pause) return true;
    const auto filled = static_cast<std::size_t>(std::clamp(share, 0.0, 1.0) * Width);
    const std::string drawn = std::string(filled, '#') + std::string(Width - filled, '-');
    std::fprintf(bar_->stream, "\r\033[K[%s] %3.0f %%  %5.1f s  %s", drawn.c_str(), 100.0 * share, now, text.c_str());
    std::fflush(bar_->stream);
    bar_->isDrawn = true;
    bar_->drawnAt = now;
    return true;
}

} // namespace VoAlgo
