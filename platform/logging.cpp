#include "VoAlgorithms/platform/logging.h"

#include "platform/c_numbers.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Logging {

namespace {

std::atomic<int> enabledLevel{static_cast<int>(ELogLevel::Warn)};

// Never destroyed: other objects with static storage may log while the process exits.
struct Registry {
    std::mutex mutex;
    std::shared_ptr<const Sink> sink; ///< null: the default sink
    std::map<std::string, std::unique_ptr<CLogger>> loggers;
};

Registry& TheRegistry()
{
    static auto* const registry = new Registry;
    return *registry;
}

const char* LevelName(ELogLevel level)
{
    switch (level) {
    case ELogLevel::Error:
        return "error";
    case ELogLevel::Warn:
        return "warning";
    case ELogLevel::Info:
        return "info";
    case ELogLevel::Trace:
        return "trace";
    case ELogLevel::Off:
        break;
    }
    return "";
}

/// The first word tells the user of a host where the line comes from. The host chooses the orientation of the stream
/// for the whole process, so the text is written as narrow characters, with '?' for everything but ASCII.
void WriteToStandardError(const Message& message)
{
    if (message.level > ELogLevel::Warn) return;
    std::string narrow;
    narrow.reserve(message.text.size());
    for (const wchar_t c : message.text) narrow += c >= 0 && c < 128 ? static_cast<char>(c) : '?';
    std::fprintf(stderr, "VoAlgorithms: %s: %s: %s: %s\n", message.channel, LevelName(message.level), message.function,
                 narrow.c_str());
}

/// vswprintf does not report the length it needs, so the buffer grows until the text fits.
std::wstring Format(const wchar_t* format, std::va_list arguments)
{
    const VoAlgo::CNumbers numbers;
    constexpr std::size_t FirstSize = 512;
    constexpr std::size_t LargestSize = std::size_t{1}
                                        << 20; // a conversion error looks like a buffer that is too small
    for (std::wstring text(FirstSize, L'\0'); text.size() <= LargestSize; text.resize(text.size() * 4)) {
        std::va_list copy;
        va_copy(copy, arguments);
        const int length = std::vswprintf(text.data(), text.size(), format, copy);
        va_end(copy);
        if (length >= 0) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
    }
    return format;
}

void Report(const CLogger& logger, ELogLevel level, const char* function, int line, const char* file,
            const wchar_t* format, std::va_list arguments)
{
    if (!logger.IsLogLevelEnabled(level)) return;
    const std::wstring text = Format(format, arguments);
    const Message message{logger.Channel().c_str(), level, function, line, file, text};

    // The sink runs without the lock, so that it may itself log or be replaced.
    std::shared_ptr<const Sink> sink;
    {
        Registry& registry = TheRegistry();
        const std::lock_guard lock(registry.mutex);
        sink = registry.sink;
    }
    if (sink)
        (*sink)(message);
    else
        WriteToStandardError(message);
}

} // namespace

void SetSink(Sink sink)
{
    std::shared_ptr<const Sink> shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    registry.sink.swap(shared); // the old sink is destroyed after the lock is released
}

void SetLevel(ELogLevel level)
{
    enabledLevel.store(static_cast<int>(level), std::memory_order_relaxed);
}

ELogLevel GetLevel()
{
    return static_cast<ELogLevel>(enabledLevel.load(std::memory_order_relaxed));
}

CLogger::CLogger(std::string channel) : channel_(std::move(channel)) {}

bool CLogger::IsLogLevelEnabled(ELogLevel level) const
{
    return static_cast<int>(level) <= enabledLevel.load(std::memory_order_relaxed);
}

void CLogger::Error(const char* function, int line, const char* file, const wchar_t* format, ...) const
{
    std::va_list arguments;
    va_start(arguments, format);
    Report(*this, ELogLevel::Error, function, line, file, format, arguments);
    va_end(arguments);
}

void CLogger::Warn(const char* function, int line, const char* file, const wchar_t* format, ...) const
{
    std::va_list arguments;
    va_start(arguments, format);
    Report(*this, ELogLevel::Warn, function, line, file, format, arguments);
    va_end(arguments);
}

void CLogger::Info(const char* function, int line, const char* file, const wchar_t* format, ...) const
{
    std::va_list arguments;
    va_start(arguments, format);
    Report(*this, ELogLevel::Info, function, line, file, format, arguments);
    va_end(arguments);
}

void CLogger::Trace(const char* function, int line, const char* file, const wchar_t* format, ...) const
{
    std::va_list arguments;
    va_start(arguments, format);
    Report(*this, ELogLevel::Trace, function, line, file, format, arguments);
    va_end(arguments);
}

const CLogger& GetLogger(const std::string& channel)
{
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    auto& logger = registry.loggers[channel];
    if (!logger) logger = std::make_unique<CLogger>(channel);
    return *logger;
}

} // namespace Logging
