#pragma once

#include <chrono>

namespace VoAlgo {

/// Seconds since construction, from the high-resolution monotonic clock.
class CStopwatch {
public:
    [[nodiscard]] double Seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace VoAlgo
