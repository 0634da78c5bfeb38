#include "solvers/detail_linebuffer.h"

#include <iostream>
#include <mutex>

namespace VoAlgo::detail {
namespace {

class LineBuffer {
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

void WriteLog(const std::string& text)
{
    static LineBuffer buffer;
    buffer.Append(text);
}

void WriteVector(const std::string& text)
{
    static LineBuffer buffer;
    buffer.Append(text);
}

} // namespace VoAlgo::detail
