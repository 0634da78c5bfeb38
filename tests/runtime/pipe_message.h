#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// The message of a given length that both processes know: 64-bit words that name their place and the length.
inline std::vector<unsigned char> PipeMessage(std::size_t size)
{
    std::vector<unsigned char> message(size);
    const auto word = [size](std::size_t i) { return (std::uint64_t{i} + 1) * 0x9e3779b97f4a7c15U + size; };
    std::size_t i = 0;
    for (; (i + 1) * 8 <= size; ++i) {
        const std::uint64_t value = word(i);
        std::memcpy(message.data() + i * 8, &value, 8);
    }
    for (std::size_t rest = i * 8; rest < size; ++rest)
        message[rest] = static_cast<unsigned char>(word(i) >> (rest - i * 8) * 8);
    return message;
}
