#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>

/// Run-length coding of bytes with an escape byte, and the move-to-front transform, which turns texts of few, clustered
/// symbols into runs. For data with long runs of equal bytes: masks, label images.
///
/// A coded stream is an escape byte E, then tokens up to its end (docs/run-length-format.md has worked examples):
///
///     b         b ≠ E          the byte b
///     E c       c ≤ 2          c + 1 times E
///     E c v     3 ≤ c ≤ 127    c + 1 times v
///     E c d v   c ≥ 128        (c & 0x7F)·256 + d + 1 times v
///
/// With move-to-front, tokens hold positions in the table instead of bytes; E is 255 and is not written.
///
/// The caller owns all buffers; input and output must not overlap. No function allocates, keeps state between calls or
/// writes a byte beyond those it reports. A null input or output or n = 0 gives 0 (null for the two transforms) and
/// touches nothing. Linear in the longer of input and output.
namespace VoAlgo::RLE {

/// Codes n bytes. out: up to 1 + 2·n bytes (every byte equal to the escape). Returns the bytes written.
/// escape: 0 to 255; −1 takes the rarest byte value of the input (the smallest of equally rare ones), counted in a
/// sample of 2048 bytes when the input has that many. Throws std::invalid_argument, "invalid escape symbol", for other
/// values.
VOALGO_API std::size_t Compress(const void* in, unsigned char* out, std::size_t n, int escape);

/// Decodes a stream of n bytes and returns the number of bytes written. out must have room for the decoded length,
/// which is not checked: use UncompressChecked for streams of unknown origin. A token that is cut short ends the output
/// after the last whole token.
VOALGO_API std::size_t Uncompress(const unsigned char* in, void* out, std::size_t n) noexcept;

/// Codes the move-to-front positions of the input. out: up to 2·n bytes. Returns the bytes written.
VOALGO_API std::size_t CompressWithMTF(const void* in, unsigned char* out, std::size_t n) noexcept;

/// As Uncompress, for a stream of CompressWithMTF.
VOALGO_API std::size_t UncompressWithMTF(const unsigned char* in, void* out, std::size_t n) noexcept;

/// Why a checked decoder stopped.
enum class EDecoded {
    Whole,    ///< every token was decoded
    CutShort, ///< the last token lacks bytes; all before it were decoded
    TooLarge  ///< a token would not fit; all before it were decoded
};

/// Result of a checked decoder.
struct DecodeResult {
    std::size_t size; ///< bytes written, never more than the capacity
    EDecoded end;     ///< why it stopped
};

///@{
/// Uncompress and UncompressWithMTF for streams of unknown origin: they never write more than `capacity` bytes and say
/// why they stopped. A null input counts as n = 0, a null output as capacity 0.
[[nodiscard]] VOALGO_API DecodeResult UncompressChecked(const unsigned char* in, void* out, std::size_t n,
                                                        std::size_t capacity) noexcept;
[[nodiscard]] VOALGO_API DecodeResult UncompressWithMTFChecked(const unsigned char* in, void* out, std::size_t n,
                                                               std::size_t capacity) noexcept;
///@}

/// Writes for each of n bytes its position in a table of all byte values, which starts in ascending order, and moves
/// the byte to the front of the table. Returns out.
VOALGO_API void* MoveToFront(const void* in, void* out, std::size_t n) noexcept;

/// Undoes MoveToFront. Returns out.
VOALGO_API void* InverseMoveToFront(const void* in, void* out, std::size_t n) noexcept;

} // namespace VoAlgo::RLE
