#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// The message of a given length that both processes know: 64-bit words that depend on their place and on the length.
inline std::vector<unsigned char> PipeMessage(std::size_t size)
{
    std::vector<unsigned char> message((size + 7) / 8 * 8);
    for (std::size_t i = 0; i < message.size(); i += 8) {
        const std::uint64_t word = (std::uint64_t{i} + size + 1) * 0x9e3779b97f4a7c15U;
        std::memcpy(message.data() + i, &word, 8);
    }
    message.resize(size);
    return message;
}
