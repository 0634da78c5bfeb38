#pragma once

#include "platform/namedobjects.h"

#include <cstdio>
#include <stdexcept>
#include <string>

namespace VoAlgo {

/// The exception for a system call that failed with `code`: the qualified name of our function and the system's text.
inline std::runtime_error SystemError(const std::string& function, int code = platform::LastErrorCode())
{
    std::string text = platform::ErrorText(code);
    if (text.empty()) {
        char unknown[64];
        std::snprintf(unknown, sizeof(unknown), "failed; Unknown error code %08x (%d)", static_cast<unsigned>(code),
                      code);
        text = unknown;
    }
    return std::runtime_error(function + " " + text);
}

} // namespace VoAlgo
