#include "VoAlgorithms/runtime/sha1.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace VoAlgo {
namespace {

std::uint32_t BigEndian(const unsigned char* bytes)
{
    return static_cast<std::uint32_t>(bytes[0]) << 24U | static_cast<std::uint32_t>(bytes[1]) << 16U |
           static_cast<std::uint32_t>(bytes[2]) << 8U | bytes[3];
}

template <class Word>
void PutBigEndian(Word word, unsigned char* bytes)
{
    for (std::size_t i = sizeof(Word); i-- > 0; word >>= 8U) bytes[i] = static_cast<unsigned char>(word);
}

std::span<const unsigned char> BytesOf(std::string_view text)
{
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

} // namespace

SHA1::Digest SHA1::Hash(std::span<const unsigned char> bytes)
{
    SHA1 stream;
    stream.Update(bytes);
    return stream.Finish();
}

SHA1::Digest SHA1::Hash(std::string_view bytes)
{
    return Hash(BytesOf(bytes));
}

std::string SHA1::ToHex(const Digest& digest)
{
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest) {
        text += Digits[byte >> 4U];
        text += Digits[byte & 0xFU];
    }
    return text;
}

void SHA1::Update(std::span<const unsigned char> bytes) noexcept
{
    if (bytes.empty()) return;
    const std::size_t held = length_ % BlockSize;
    length_ += bytes.size();
    if (held > 0) {
        const std::size_t fitting = std::min(bytes.size(), BlockSize - held);
        std::memcpy(pending_.data() + held, bytes.data(), fitting);
        bytes = bytes.subspan(fitting);
        if (held + fitting < BlockSize) return;
        compress(pending_.data());
    }
    for (; bytes.size() >= BlockSize; bytes = bytes.subspan(BlockSize)) compress(bytes.data());
    std::copy(bytes.begin(), bytes.end(), pending_.begin());
}

void SHA1::Update(std::string_view bytes) noexcept
{
    Update(BytesOf(bytes));
}

// Padding: one bit, zeros, and the length in bits at the end of a block (section 5.1.1).
SHA1::Digest SHA1::Finish() const noexcept
{
    constexpr std::size_t LengthSize = 8;
    SHA1 padded = *this;
    std::array<unsigned char, 2 * BlockSize> padding{0x80};
    const std::size_t held = length_ % BlockSize;
    const std::size_t end = (held < BlockSize - LengthSize ? BlockSize : 2 * BlockSize) - held;
    PutBigEndian(length_ * 8, padding.data() + end - LengthSize);
    padded.Update({padding.data(), end});

    Digest digest{};
    for (std::size_t i = 0; i < padded.state_.size(); ++i) PutBigEndian(padded.state_[i], digest.data() + 4 * i);
    return digest;
}

// Section 6.1.2, with the schedule of 80 words in a ring of 16 (section 6.1.3).
void SHA1::compress(const unsigned char* block) noexcept
{
    std::array<std::uint32_t, 16> w{};
    for (std::size_t t = 0; t < w.size(); ++t) w[t] = BigEndian(block + 4 * t);
    auto [a, b, c, d, e] = state_;
    for (std::size_t t = 0; t < 80; ++t) {
        std::uint32_t& word = w[t % 16];
        if (t >= 16) word = std::rotl(w[(t + 13) % 16] ^ w[(t + 8) % 16] ^ w[(t + 2) % 16] ^ word, 1);
        const auto [f, k] = t < 20   ? std::pair((b & c) ^ (~b & d), 0x5A827999U)
                            : t < 40 ? std::pair(b ^ c ^ d, 0x6ED9EBA1U)
                            : t < 60 ? std::pair((b & c) ^ (b & d) ^ (c & d), 0x8F1BBCDCU)
                                     : std::pair(b ^ c ^ d, 0xCA62C1D6U);
        const std::uint32_t next = std::rotl(a, 5) + f + e + k + word;
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    state_ = {state_[0] + a, state_[1] + b, state_[2] + c, state_[3] + d, state_[4] + e};
}

} // namespace VoAlgo
