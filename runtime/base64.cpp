#include "VoAlgorithms/runtime/base64.h"

#include <array>
#include <stdexcept>

namespace VoAlgo {
namespace {

constexpr std::string_view StandardDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view UrlDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr unsigned char NoDigit = 64;
constexpr char Padding = '=';

using DigitTable = std::array<unsigned char, 256>;

constexpr DigitTable TableOf(std::string_view digits, std::string_view also = "")
{
    DigitTable table{};
    table.fill(NoDigit);
    for (const std::string_view all : {digits, also})
        for (std::size_t i = 0; i < all.size(); ++i)
            table[static_cast<unsigned char>(all[i])] = static_cast<unsigned char>(i);
    return table;
}

constexpr DigitTable StandardTable = TableOf(StandardDigits);
constexpr DigitTable UrlTable = TableOf(UrlDigits);
constexpr DigitTable BothTable = TableOf(StandardDigits, UrlDigits);

bool IsSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

[[noreturn]] void Refuse(std::size_t at)
{
    throw std::invalid_argument("Base64: invalid character at " + std::to_string(at));
}

} // namespace

std::string Base64::Encode(std::span<const unsigned char> bytes, Alphabet alphabet)
{
    Encoder encoder(alphabet);
    std::string text = encoder.Update(bytes);
    return text += encoder.Finish();
}

std::string Base64::Encode(std::string_view bytes, Alphabet alphabet)
{
    return Encode(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()), alphabet);
}

std::vector<unsigned char> Base64::Decode(std::string_view text, Alphabet alphabet)
{
    Decoder decoder(alphabet);
    std::vector<unsigned char> bytes = decoder.Update(text);
    decoder.Finish();
    return bytes;
}

std::vector<unsigned char> Base64::DecodeLenient(std::string_view text)
{
    Decoder decoder(Alphabet::Standard, Rules::Lenient);
    std::vector<unsigned char> bytes = decoder.Update(text);
    decoder.Finish();
    return bytes;
}

Base64::Encoder::Encoder(Alphabet alphabet) noexcept
    : digits_((alphabet == Alphabet::Url ? UrlDigits : StandardDigits).data())
{
}

std::string Base64::Encoder::Update(std::span<const unsigned char> bytes)
{
    std::string text;
    text.reserve((bytes.size() + held_) / 3 * 4 + 4);
    for (const unsigned char byte : bytes) {
        group_ = group_ << 8U | byte;
        if (++held_ < 3) continue;
        put(text, 4);
        group_ = held_ = 0;
    }
    return text;
}

std::string Base64::Encoder::Finish()
{
    std::string text;
    if (held_ > 0) {
        group_ <<= 8U * (3 - held_);
        put(text, held_ + 1);
        text.append(3 - held_, Padding);
    }
    group_ = held_ = 0;
    return text;
}

/// Appends the first digits of a group of three bytes.
void Base64::Encoder::put(std::string& text, std::size_t digits) const
{
    for (std::size_t i = 0; i < digits; ++i) text += digits_[group_ >> (18U - 6U * i) & 0x3FU];
}

Base64::Decoder::Decoder(Alphabet alphabet, Rules rules) noexcept : alphabet_(alphabet), rules_(rules) {}

std::vector<unsigned char> Base64::Decoder::Update(std::string_view text)
{
    std::vector<unsigned char> bytes;
    bytes.reserve((text.size() + digits_) / 4 * 3 + 3);
    for (const char character : text) {
        const std::size_t at = at_++;
        if (rules_ == Rules::Lenient && IsSpace(character)) continue;
        if (character == Padding) {
            if (!pad()) Refuse(rules_ == Rules::Strict && digits_ >= 2 && padding_ == 0 ? at - 1 : at);
            continue;
        }
        const unsigned char digit = digitOf(character);
        if (digit == NoDigit || padding_ > 0) Refuse(at);
        group_ = group_ << 6U | digit;
        if (digits_ > 0) bytes.push_back(static_cast<unsigned char>(group_ >> (6U - 2U * digits_)));
        digits_ = (digits_ + 1) % 4;
    }
    return bytes;
}

/// Takes one character of padding: after two or three digits whose unused bits are 0, as often as digits are missing.
bool Base64::Decoder::pad()
{
    if (digits_ < 2 || digits_ + padding_ >= 4) return false;
    const unsigned unused = (1U << (2U * (4 - digits_))) - 1U;
    if (rules_ == Rules::Strict && padding_ == 0 && (group_ & unused) != 0) return false;
    ++padding_;
    return true;
}

void Base64::Decoder::Finish()
{
    const unsigned digits = digits_;
    const unsigned padding = padding_;
    *this = Decoder(alphabet_, rules_);
    if (digits == 0) return;
    if (rules_ == Rules::Strict && digits + padding != 4)
        throw std::invalid_argument("Base64: length is not a multiple of 4");
    if (digits == 1) throw std::invalid_argument("Base64: text ends within a byte");
}

unsigned char Base64::Decoder::digitOf(char character) const noexcept
{
    const DigitTable& table = rules_ == Rules::Lenient     ? BothTable
                              : alphabet_ == Alphabet::Url ? UrlTable
                                                           : StandardTable;
    return table[static_cast<unsigned char>(character)];
}

} // namespace VoAlgo
