#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace VoAlgo {

/// Base64 with padding and without line breaks (RFC 4648). The functions work on whole texts, Encoder and Decoder on
/// pieces of any length.
class VOALGO_API Base64 {
public:
    /// Which characters stand for 62 and 63.
    enum class Alphabet {
        Standard, ///< "+" and "/" (section 4)
        Url,      ///< "-" and "_", for addresses and file names (section 5)
    };
    /// What a decoder accepts.
    enum class Rules {
        Strict,  ///< only what an encoder with the same alphabet would have written
        Lenient, ///< either alphabet, white space anywhere, padding or none, any unused bits
    };

    class Encoder;
    class Decoder;

    ///@{
    /// The text of the bytes, four characters for every three bytes begun.
    [[nodiscard]] static std::string Encode(std::span<const unsigned char> bytes, Alphabet = Alphabet::Standard);
    [[nodiscard]] static std::string Encode(std::string_view bytes, Alphabet = Alphabet::Standard);
    ///@}
    /// The bytes of a text that Encode could have written. Throws std::invalid_argument for any other: "Base64: length
    /// is not a multiple of 4", or "Base64: invalid character at N" with the index of the first character that cannot
    /// stand where it does (outside the alphabet, misplaced padding, anything after it, unused bits that are not 0).
    [[nodiscard]] static std::vector<unsigned char> Decode(std::string_view text, Alphabet = Alphabet::Standard);
    /// The bytes of a text as people have it. Throws as Decode for other characters, and "Base64: text ends within a
    /// byte" when a single digit is left over.
    [[nodiscard]] static std::vector<unsigned char> DecodeLenient(std::string_view text);
};

/// Encodes a stream of bytes.
class VOALGO_API Base64::Encoder {
public:
    /// For one of the alphabets.
    explicit Encoder(Alphabet = Alphabet::Standard) noexcept;
    /// The text that the bytes complete; up to two bytes wait for the next ones.
    [[nodiscard]] std::string Update(std::span<const unsigned char> bytes);
    /// The text of the bytes that wait, padded. The encoder is as new.
    [[nodiscard]] std::string Finish();

private:
    void put(std::string& text, std::size_t digits) const;

    const char* digits_; // 64 characters
    unsigned group_ = 0; // bytes that wait, the last one lowest
    unsigned held_ = 0;  // their number, up to 2
};

/// Decodes a stream of text.
class VOALGO_API Base64::Decoder {
public:
    /// For texts in one of the alphabets; lenient rules read both.
    explicit Decoder(Alphabet = Alphabet::Standard, Rules = Rules::Strict) noexcept;
    /// The bytes that the text completes. Throws as Base64::Decode, with places counted from the start of the stream.
    [[nodiscard]] std::vector<unsigned char> Update(std::string_view text);
    /// Checks that the stream ended where a text can end; throws as Base64::Decode and DecodeLenient. The decoder is as
    /// new.
    void Finish();

private:
    bool pad();
    [[nodiscard]] unsigned char digitOf(char character) const noexcept;

    Alphabet alphabet_;
    Rules rules_;
    unsigned group_ = 0;   // the digits of the current four characters, the last one lowest
    unsigned digits_ = 0;  // their number, up to 3
    unsigned padding_ = 0; // padding so far
    std::size_t at_ = 0;   // index of the next character
};

} // namespace VoAlgo
