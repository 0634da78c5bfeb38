#include "platform/utf8.h"

namespace VoAlgo {
namespace {

constexpr char32_t FirstSurrogate = 0xD800, FirstLowSurrogate = 0xDC00, LastSurrogate = 0xDFFF;
constexpr char32_t FirstSupplementary = 0x10000, LastCodePoint = 0x10FFFF;

/// What a first byte says about the bytes after it (Unicode Standard, table 3-7): how many there are, none when the
/// byte begins no character, and the bounds of the second one, which exclude overlong forms, surrogates and code points
/// beyond Unicode.
struct Lead {
    unsigned numFollowing;
    unsigned char low, high;
};

Lead LeadOf(unsigned char byte)
{
    if (byte >= 0xC2 && byte <= 0xDF) return {1, 0x80, 0xBF};
    if (byte == 0xE0) return {2, 0xA0, 0xBF};
    if (byte == 0xED) return {2, 0x80, 0x9F};
    if (byte >= 0xE1 && byte <= 0xEF) return {2, 0x80, 0xBF};
    if (byte == 0xF0) return {3, 0x90, 0xBF};
    if (byte >= 0xF1 && byte <= 0xF3) return {3, 0x80, 0xBF};
    if (byte == 0xF4) return {3, 0x80, 0x8F};
    return {0, 0, 0};
}

} // namespace

char32_t TakeCodePoint(std::string_view& text)
{
    const auto take = [&text] {
        const auto byte = static_cast<unsigned char>(text.front());
        text.remove_prefix(1);
        return byte;
    };
    const unsigned char first = take();
    if (first < 0x80) return first;
    Lead lead = LeadOf(first);
    if (lead.numFollowing == 0) return ReplacementCharacter;
    char32_t codePoint = first & (0x3FU >> lead.numFollowing);
    for (unsigned i = 0; i < lead.numFollowing; ++i) {
        const unsigned char next = text.empty() ? 0 : static_cast<unsigned char>(text.front());
        if (next < lead.low || next > lead.high) return ReplacementCharacter;
        codePoint = codePoint << 6U | (take() & 0x3FU);
        lead.low = 0x80;
        lead.high = 0xBF;
    }
    return codePoint;
}

void AppendUtf8(std::string& text, char32_t codePoint)
{
    const auto follow = [&](unsigned shift) { text += static_cast<char>(0x80 | (codePoint >> shift & 0x3F)); };
    if (codePoint < 0x80) {
        text += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        text += static_cast<char>(0xC0 | codePoint >> 6);
        follow(0);
    } else if (codePoint < FirstSupplementary) {
        text += static_cast<char>(0xE0 | codePoint >> 12);
        follow(6);
        follow(0);
    } else {
        text += static_cast<char>(0xF0 | codePoint >> 18);
        follow(12);
        follow(6);
        follow(0);
    }
}

std::wstring WideFromUtf8(std::string_view text)
{
    std::wstring wide;
    wide.reserve(text.size());
    while (!text.empty()) {
        char32_t codePoint = TakeCodePoint(text);
        if (sizeof(wchar_t) == 2 && codePoint >= FirstSupplementary) {
            codePoint -= FirstSupplementary;
            wide += static_cast<wchar_t>(FirstSurrogate + (codePoint >> 10));
            codePoint = FirstLowSurrogate + (codePoint & 0x3FF);
        }
        wide += static_cast<wchar_t>(codePoint);
    }
    return wide;
}

std::string Utf8FromWide(std::wstring_view text)
{
    const auto isLow = [](char32_t c) { return c >= FirstLowSurrogate && c <= LastSurrogate; };
    std::string utf8;
    utf8.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto codePoint = static_cast<char32_t>(text[i]);
        if (codePoint >= FirstSurrogate && codePoint < FirstLowSurrogate && i + 1 < text.size() &&
            isLow(static_cast<char32_t>(text[i + 1]))) {
            const auto low = static_cast<char32_t>(text[++i]);
            codePoint = FirstSupplementary + ((codePoint - FirstSurrogate) << 10) + (low - FirstLowSurrogate);
        } else if ((codePoint >= FirstSurrogate && codePoint <= LastSurrogate) || codePoint > LastCodePoint) {
            codePoint = ReplacementCharacter;
        }
        AppendUtf8(utf8, codePoint);
    }
    return utf8;
}

} // namespace VoAlgo
