#pragma once

#include "VoAlgorithms/export.h"

#include <atomic>
#include <functional>
#include <string>

/// The library's connection to the host's log. The library finds a logger by its channel name; the host installs a sink
/// and a level. Without a sink, warnings and errors go to standard error, in lines that begin with
/// "VoAlgorithms: ", and everything else is dropped.
namespace Logging {

/// From most severe to most verbose; each level includes those before it.
enum class ELogLevel : int { Off = 0, Error = 1, Warn = 2, Info = 3, Trace = 4 };

/// One formatted message. The strings are valid only during the call.
struct Message {
    const char* channel;      ///< name of the logger
    ELogLevel level;          ///< Error to Trace, never Off
    const char* function;     ///< qualified name of the reporting function
    int line;                 ///< line in `file`
    const char* file;         ///< its source file, relative to the source folder: "prereg/cpointset.cpp"
    const std::wstring& text; ///< formatted, without a line end
};

/// Receives every message whose level is enabled; called on the reporting thread, possibly on several at once.
using Sink = std::function<void(const Message&)>;

/// Installs the host's sink; an empty one restores the default. Safe while other threads log.
VOALGO_API void SetSink(Sink sink);
///@{
/// The most verbose level that reaches the sink, initially Warn. Safe while other threads log.
VOALGO_API void SetLevel(ELogLevel level);
VOALGO_API ELogLevel GetLevel();
///@}

/// A named channel. The format is printf's for wide strings ("%ls" takes a wide string, "%hs" a narrow one).
class VOALGO_API CLogger {
public:
    /// A logger that reports under this channel name. GetLogger gives one that all callers share.
    explicit CLogger(std::string channel);
    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    /// Costs a load and a compare.
    [[nodiscard]] bool IsLogLevelEnabled(ELogLevel level) const;

    ///@{
    /// Formats and reports a message unless its level is disabled. `function` is the qualified name of the reporting
    /// function, `line` and `file` say where; all three are passed on unchanged.
    void Error(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    void Warn(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    void Info(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    void Trace(const char* function, int line, const char* file, const wchar_t* format, ...) const;
    ///@}

    /// The channel name.
    [[nodiscard]] const std::string& Channel() const { return channel_; }

private:
    std::string channel_;
};

/// The logger of a channel, created on first use; the reference stays valid until the process ends.
VOALGO_API const CLogger& GetLogger(const std::string& channel);

} // namespace Logging
