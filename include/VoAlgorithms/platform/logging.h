#pragma once

#include "VoAlgorithms/export.h"

#include <atomic>
#include <functional>
#include <string>

/// The library's way to the host's log. The library finds a logger by the channel name; the host installs a sink and a
/// level. Without a host sink warnings and errors go to standard error and the rest nowhere.
namespace Logging {

/// From the gravest to the most talkative; a level includes those before it.
enum class ELogLevel : int { Off = 0, Error = 1, Warn = 2, Info = 3, Trace = 4 };

/// One formatted message. The strings live for the duration of the call only.
struct Message {
    const char* channel;      ///< name of the logger
    ELogLevel level;          ///< Error to Trace, never Off
    const char* function;     ///< qualified name of the reporting function
    int line;                 ///< where in `file` it was reported
    const char* file;         ///< source file of the reporting function
    const std::wstring& text; ///< formatted, without a line end
};

/// Receives every message whose level is enabled; called on the thread that reports, possibly on several at once.
using Sink = std::function<void(const Message&)>;

/// Installs the host's sink, an empty one restores the default. Safe while other threads log.
VOALGO_API void SetSink(Sink sink);
///@{
/// The most talkative level that reaches the sink, initially Warn. Safe while other threads log.
VOALGO_API void SetLevel(ELogLevel level);
VOALGO_API ELogLevel GetLevel();
///@}

/// A named channel. The format is printf's for wide strings ("%ls" takes a wide string, "%hs" a narrow one).
class VOALGO_API CLogger {
public:
    /// A logger that reports under this channel name. Loggers that many share come from GetLogger.
    explicit CLogger(std::string channel);
    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    /// Costs a load and a compare.
    [[nodiscard]] bool IsLogLevelEnabled(ELogLevel level) const;

    ///@{
    /// Formats and reports a message unless its level is disabled. `function` is the qualified name of the reporter,
    /// `file` and `line` its place; they are handed on as they are.
    void Error(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    void Warn(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    void Info(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    void Trace(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    ///@}

    /// The name it reports under.
    [[nodiscard]] const std::string& Channel() const { return channel_; }

private:
    std::string channel_;
};

/// The logger of a channel, created on first use; the reference stays valid until the process ends.
VOALGO_API const CLogger& GetLogger(const std::string& channel);

} // namespace Logging
