#pragma once

#include "platform/c_numbers.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace VoAlgo {

/// printf into a string; numbers are written as in the locale "C".
#if defined(__GNUC__)
[[gnu::format(printf, 1, 2)]]
#endif
inline std::string
Format(const char* format, ...)
{
    const CNumbers numbers;
    std::va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    va_end(arguments);
    text.pop_back();
    return text;
}

} // namespace VoAlgo
