#pragma once

#include <locale.h> // <clocale> lacks what threads need

#if defined(_WIN32)
#include <string>
#elif defined(__APPLE__)
#include <xlocale.h>
#endif

namespace VoAlgo {

/// While it lives, printf and its kin write numbers on this thread as the locale "C" does, whatever the host has set:
/// with a decimal point and without separators of thousands. The rest of the host's locale stays in force.
class CNumbers {
public:
    CNumbers(const CNumbers&) = delete;
    CNumbers& operator=(const CNumbers&) = delete;

#if defined(_WIN32)
    CNumbers() : mode_(_configthreadlocale(_ENABLE_PER_THREAD_LOCALE)), saved_(setlocale(LC_NUMERIC, nullptr))
    {
        setlocale(LC_NUMERIC, "C");
    }
    ~CNumbers()
    {
        setlocale(LC_NUMERIC, saved_.c_str());
        _configthreadlocale(mode_);
    }

private:
    int mode_;
    std::string saved_;
#else
    CNumbers()
    {
        const locale_t host = duplocale(uselocale(static_cast<locale_t>(nullptr)));
        numbers_ = host != nullptr ? newlocale(LC_NUMERIC_MASK, "C", host) : nullptr;
        if (numbers_ != nullptr) saved_ = uselocale(numbers_);
    }
    ~CNumbers()
    {
        if (numbers_ == nullptr) return; // out of memory
        uselocale(saved_);
        freelocale(numbers_);
    }

private:
    locale_t numbers_ = nullptr;
    locale_t saved_ = nullptr;
#endif
};

} // namespace VoAlgo
