#pragma once

#include <stdexcept>

namespace voalgo {

/// Something is wrong with the input; the text is for the user.
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace voalgo
