#include "console.h"

#include <cstdarg>
#include <cstdio>

namespace voalgo {

void Console::Note(const std::string& text) const
{
    if (!quiet_) std::fprintf(stderr, "voalgo: %s\n", text.c_str());
}

void Console::Warn(const std::string& text) const
{
    std::fprintf(stderr, "voalgo: warning: %s\n", text.c_str());
}

std::string Format(const char* format, ...)
{
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

} // namespace voalgo
