#include "terminal/console.h"

#include "VoAlgorithms/platform/logging.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace voalgo {

namespace {

bool StandardErrorIsTerminal()
{
#if defined(_WIN32)
    return _isatty(2) != 0;
#else
    return isatty(2) != 0;
#endif
}

} // namespace

Console::Console(bool isQuiet, bool isJson)
    : isQuiet_(isQuiet), hasProgress_(!isQuiet && !isJson && StandardErrorIsTerminal())
{
}

void Console::Note(const std::string& text)
{
    if (isQuiet_) return;
    ClearProgress();
    std::fprintf(stderr, "voalgo: %s\n", text.c_str());
}

void Console::Warn(const std::string& text)
{
    ClearProgress();
    std::fprintf(stderr, "voalgo: warning: %s\n", text.c_str());
}

void Console::Progress(const char* stage, double share)
{
    constexpr int Width = 30;
    constexpr double Pause = 0.05; // seconds
    const double now = watch_.Seconds();
    if (!hasProgress_ || (isBarDrawn_ && now - drawnAt_ < Pause)) return;
    const double done = std::clamp(share, 0.0, 1.0);
    const int filled = static_cast<int>(done * Width);
    const std::string bar =
        std::string(static_cast<std::size_t>(filled), '#') + std::string(static_cast<std::size_t>(Width - filled), '-');
    std::fprintf(stderr, "\r\033[K[%s] %3.0f %%  %5.1f s  %s", bar.c_str(), 100.0 * done, now, stage);
    std::fflush(stderr);
    isBarDrawn_ = true;
    drawnAt_ = now;
}

std::function<bool(const char*, double)> Console::ProgressFunction()
{
    return [this](const char* stage, double share) {
        Progress(stage, share);
        return true;
    };
}

void Console::ClearProgress()
{
    if (!isBarDrawn_) return;
    std::fputs("\r\033[K", stderr);
    isBarDrawn_ = false;
}

LogToConsole::LogToConsole(Console& console)
{
    struct State {
        std::mutex mutex;
        std::set<std::string> said; // a search would repeat them
    };
    Logging::SetSink([&console, state = std::make_shared<State>()](const Logging::Message& message) {
        const std::lock_guard lock(state->mutex);
        std::string text;
        for (const wchar_t c : message.text) text.push_back(c < 128 ? static_cast<char>(c) : '?');
        if (state->said.insert(text).second) console.Warn(text);
    });
}

LogToConsole::~LogToConsole()
{
    Logging::SetSink({});
}

} // namespace voalgo
