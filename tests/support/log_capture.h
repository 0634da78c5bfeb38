#pragma once

#include "VoAlgorithms/platform/logging.h"

#include <algorithm>
#include <string>
#include <vector>

namespace test_support {

/// Collects every message of its lifetime as "channel|E|text", the level by its first letter.
class LogCapture {
public:
    LogCapture()
    {
        Logging::SetLevel(Logging::ELogLevel::Trace);
        Logging::SetSink([this](const Logging::Message& m) {
            std::string entry = std::string(m.channel) + '|' + "OEWIT"[static_cast<int>(m.level)] + '|';
            std::transform(m.text.begin(), m.text.end(), std::back_inserter(entry),
                           [](wchar_t c) { return static_cast<char>(c); });
            entries_.push_back(entry);
        });
    }
    ~LogCapture()
    {
        Logging::SetSink(nullptr);
        Logging::SetLevel(Logging::ELogLevel::Warn);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The entries since the last call.
    std::vector<std::string> Take() { return std::exchange(entries_, {}); }
    /// The same without info and trace entries.
    std::vector<std::string> TakeComplaints()
    {
        std::vector<std::string> entries = Take();
        std::erase_if(entries, [](const std::string& e) {
            return e.find("|I|") != std::string::npos || e.find("|T|") != std::string::npos;
        });
        return entries;
    }

private:
    std::vector<std::string> entries_;
};

} // namespace test_support
