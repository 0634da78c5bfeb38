#include "solvers/detail_pendinglines.h"

#include <iostream>
#include <mutex>

namespace VoAlgo::detail {
namespace {

class PendingLines {
public:
    void Append(const std::string& text)
    {
        const std::lock_guard lock(mutex_);
        pending_ += text;
        if (pending_.find('\n') == std::string::npos) return;
        std::cerr << pending_ << std::flush;
        pending_.clear();
    }

private:
    std::mutex mutex_;
    std::string pending_;
};

} // namespace

void WriteLines(const std::string& text)
{
    static PendingLines lines;
    lines.Append(text);
}

void WriteVectorLines(const std::string& text)
{
    static PendingLines lines;
    lines.Append(text);
}

} // namespace VoAlgo::detail
