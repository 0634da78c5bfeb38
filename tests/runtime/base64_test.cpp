#include "VoAlgorithms/runtime/base64.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using VoAlgo::Base64;
using Bytes = std::vector<unsigned char>;

// RFC 4648, section 10, and every digit at every place.
TEST(Base64, VectorsOfTheRfcAndEveryDigit)
{
    const auto expectPair = [](const Bytes& bytes, const std::string& text) {
        EXPECT_EQ(Base64::Encode(bytes), text);
        EXPECT_EQ(Base64::Decode(text), bytes);
    };
    const Bytes word = {'f', 'o', 'o', 'b', 'a', 'r'};
    const char* const texts[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (int n = 0; n <= 6; ++n) expectPair(Bytes(word.begin(), word.begin() + n), texts[n]);
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (unsigned digit = 0; digit < 64; ++digit) // the same digit four times
        expectPair({static_cast<unsigned char>(digit << 2U | digit >> 4U),
                    static_cast<unsigned char>(digit << 4U | digit >> 2U),
                    static_cast<unsigned char>(digit << 6U | digit)},
                   std::string(4, digits[digit]));
}

// Each sequence of bytes has exactly one text; any other text is refused, and the error names the place.
TEST(Base64, DecoderIsStrict)
{
    const std::pair<std::string, std::string> rows[] = {
        {"Zg=", "length is not a multiple of 4"}, {"Zm9vY", "length is not a multiple of 4"},
        {"Zm9v Zg=", "invalid character at 4"},   {"Zm\nv", "invalid character at 2"},
        {"Zm-_", "invalid character at 2"},       {"Zg==Zg==", "invalid character at 4"},
        {"Z===", "invalid character at 1"},       {"====", "invalid character at 0"},
        {"Zh==", "invalid character at 1"},       {"Zm9=", "invalid character at 2"},
        {"Z=9v", "invalid character at 1"},       {"Zm9\xE4", "invalid character at 3"}};
    for (const auto& [text, error] : rows)
        EXPECT_THAT([&t = text] { (void)Base64::Decode(t); },
                    testing::ThrowsMessage<std::invalid_argument>("Base64: " + error))
            << text;
}

// Whatever the pieces, a stream gives what the whole gives; "+/" and "-_" take each other's place.
TEST(Base64, StreamsAndAlphabets)
{
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        Bytes bytes(random() % 100);
        for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() | (round % 2 == 0 ? 0xF8U : 0U));
        const auto alphabet = round % 4 < 2 ? Base64::Alphabet::Standard : Base64::Alphabet::Url;
        const std::string whole = Base64::Encode(bytes, alphabet);
        EXPECT_EQ(whole.find_first_of(alphabet == Base64::Alphabet::Url ? "+/" : "-_"), std::string::npos);
        EXPECT_EQ(Base64::Decode(whole, alphabet), bytes);

        Base64::Encoder encoder(alphabet);
        std::string text;
        for (std::size_t at = 0, size = 0; at < bytes.size(); at += size) {
            size = std::min<std::size_t>(random() % 8, bytes.size() - at);
            text += encoder.Update(std::span(bytes).subspan(at, size));
        }
        EXPECT_EQ(text + encoder.Finish(), whole);

        Base64::Decoder decoder(alphabet);
        Bytes back;
        for (std::size_t at = 0, size = 0; at < whole.size(); at += size) {
            size = random() % 8;
            const Bytes piece = decoder.Update(std::string_view(whole).substr(at, size));
            back.insert(back.end(), piece.begin(), piece.end());
        }
        decoder.Finish();
        EXPECT_EQ(back, bytes);
    }
}

TEST(Base64, LenientRulesReadWhatPeopleSend)
{
    const Bytes word = {0xFB, 0xFF, 0xBF, 'f'};
    for (const char* text : {"+/+/Zg==", "-_-_Zg==", "+_-/\r\n Z g", "\t-_-/Zg=", "+/+/Zh"})
        EXPECT_EQ(Base64::DecodeLenient(text), word) << text;
    for (const auto& [text, error] :
         {std::pair("Zg=a", "invalid character at 3"), std::pair("Zg===", "invalid character at 4"),
          std::pair("Zm9vZ", "text ends within a byte"), std::pair("Z%", "invalid character at 1")})
        EXPECT_THAT([t = text] { (void)Base64::DecodeLenient(t); },
                    testing::ThrowsMessage<std::invalid_argument>(std::string("Base64: ") + error))
            << text;
}

} // namespace
