#include "terminal/console.h"

#include "VoAlgorithms/platform/logging.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace voalgo {

Console::Console(bool isQuiet, bool isJson) : isQuiet_(isQuiet)
{
    if (!isQuiet && !isJson) bar_.emplace();
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

void Console::ClearProgress()
{
    if (bar_) bar_->Clear();
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
