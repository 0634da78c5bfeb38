#include "VoAlgorithms/runtime/base64.h"

#include <gmock/gmock.h>

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
        {"Zm-_", "invalid character at 2"},       {"Zg==Zg==", "invalid character at 2"},
        {"Z===", "invalid character at 1"},       {"====", "invalid character at 0"},
        {"Zh==", "invalid character at 1"},       {"Zm9=", "invalid character at 2"},
        {"Z=9v", "invalid character at 1"},       {"Zm9\xE4", "invalid character at 3"}};
    for (const auto& [text, error] : rows)
        EXPECT_THAT([&t = text] { (void)Base64::Decode(t); },
                    testing::ThrowsMessage<std::invalid_argument>("Base64: " + error))
            << text;
}

} // namespace
