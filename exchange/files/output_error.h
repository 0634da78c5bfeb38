#pragma once

#include <string>
#include <system_error>

namespace voalgo {

/// A file could not be written; the text names it and says why the system refused.
struct OutputError : std::system_error {
    OutputError(const std::string& path_, std::error_code reason)
        : std::system_error(reason, "cannot write " + path_), path(path_)
    {
    }

    std::string path;
};

} // namespace voalgo
