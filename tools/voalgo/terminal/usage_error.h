#pragma once

#include <stdexcept>

namespace voalgo {

/// The command line asks for something that makes no sense; the text is for the user.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace voalgo
