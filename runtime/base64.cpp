#include "VoAlgorithms/runtime/base64.h"

#include <array>
#include <cstddef>
#include <stdexcept>

namespace VoAlgo {
namespace {

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char NoDigit = 64;

constexpr auto DigitOf = [] {
    std::array<unsigned char, 256> digits{};
    digits.fill(NoDigit);
    for (unsigned char i = 0; i < NoDigit; ++i) digits[static_cast<unsigned char>(Alphabet[i])] = i;
    return digits;
}();

} // namespace

std::string Base64::Encode(std::span<const unsigned char> bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4, '=');
    const auto put = [&text](std::size_t at, unsigned group, unsigned digits) {
        for (unsigned i = 0; i < digits; ++i) text[at + i] = Alphabet[group >> (18U - 6U * i) & 0x3FU];
    };
    const std::size_t rest = bytes.size() % 3, whole = bytes.size() - rest;
    std::size_t at = 0;
    for (std::size_t i = 0; i < whole; i += 3, at += 4)
        put(at, static_cast<unsigned>(bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2]), 4);
    if (rest == 1) put(at, static_cast<unsigned>(bytes[whole] << 16), 2);
    if (rest == 2) put(at, static_cast<unsigned>(bytes[whole] << 16 | bytes[whole + 1] << 8), 3);
    return text;
}

std::vector<unsigned char> Base64::Decode(std::string_view text)
{
    if (text.size() % 4 != 0) throw std::invalid_argument("Base64: length is not a multiple of 4");
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::size_t digits = text.size() - padding;
    const auto refuse = [](std::size_t at) {
        throw std::invalid_argument("Base64: invalid character at " + std::to_string(at));
    };
    std::vector<unsigned char> bytes;
    bytes.reserve(digits / 4 * 3 + 2);
    unsigned group = 0; // the digits read since the last whole byte are its lowest bits
    for (std::size_t i = 0; i < digits; ++i) {
        const unsigned char digit = DigitOf[static_cast<unsigned char>(text[i])];
        if (digit == NoDigit) refuse(i);
        group = group << 6U | digit;
        if (const std::size_t place = i % 4; place != 0)
            bytes.push_back(static_cast<unsigned char>(group >> (6U - 2U * place)));
    }
    if (const unsigned unused = (1U << (2U * padding)) - 1U; (group & unused) != 0) refuse(digits - 1);
    return bytes;
}

} // namespace VoAlgo
