#pragma once

#include <stdexcept>

namespace voalgo {

/// What is wrong with the input, in words for the user.
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace voalgo
