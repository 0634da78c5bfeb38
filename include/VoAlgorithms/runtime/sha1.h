#pragma once

#include "VoAlgorithms/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace VoAlgo {

/// The checksum SHA-1 of a stream of bytes. It tells whether two files hold the same bytes by accident; it is no
/// protection against somebody who wants them to look the same. Source: FIPS 180-4, sections 5 and 6.1.
class VOALGO_API SHA1 {
public:
    /// 160 bits, most significant byte first.
    using Digest = std::array<unsigned char, 20>;

    ///@{
    /// The digest of all bytes at once.
    [[nodiscard]] static Digest Hash(std::span<const unsigned char> bytes);
    [[nodiscard]] static Digest Hash(std::string_view bytes);
    ///@}
    /// The 40 lower-case hexadecimal digits in which a digest is written.
    [[nodiscard]] static std::string ToHex(const Digest& digest);

    ///@{
    /// Appends bytes to the stream, in pieces of any length.
    void Update(std::span<const unsigned char> bytes) noexcept;
    void Update(std::string_view bytes) noexcept;
    ///@}
    /// The digest of the bytes so far; the stream may go on.
    [[nodiscard]] Digest Finish() const noexcept;

private:
    static constexpr std::size_t BlockSize = 64;

    void compress(const unsigned char* block) noexcept;

    std::array<std::uint32_t, 5> state_ = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    std::array<unsigned char, BlockSize> pending_{}; // the last length_ % BlockSize bytes
    std::uint64_t length_ = 0;
};

} // namespace VoAlgo
