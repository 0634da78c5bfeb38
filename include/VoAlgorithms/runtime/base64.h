#pragma once

#include "VoAlgorithms/export.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace VoAlgo {

/// Base64 with the standard alphabet and padding, without line breaks (RFC 4648, section 4).
class VOALGO_API Base64 {
public:
    /// The text of the bytes, four characters for every three bytes begun.
    [[nodiscard]] static std::string Encode(std::span<const unsigned char> bytes);
    /// The bytes of a text that Encode could have written. Throws std::invalid_argument for any other: "Base64: length
    /// is not a multiple of 4", or "Base64: invalid character at N" with the index of the first character that cannot
    /// stand where it does (outside the alphabet, padding before the end, unused bits that are not 0).
    [[nodiscard]] static std::vector<unsigned char> Decode(std::string_view text);
};

} // namespace VoAlgo
