#include "VoAlgorithms/runtime/base64.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using VoAlgo::Base64;
using Bytes = std::vector<unsigned char>;

TEST(Base64, VectorsOfTheRfcAndEveryDigit)
{
    const std::pair<std::string, std::string> rows[] = {// RFC 4648, section 10; the last one by hand
                                                        {"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"},
                                                        {"\xFB\xEF\xBE\xFF\xFF\xFF", "++++////"}};
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(Base64::Encode(Bytes(bytes.begin(), bytes.end())), text);
        EXPECT_EQ(Base64::Decode(text), Bytes(bytes.begin(), bytes.end()));
    }
    Bytes all; // the digits 0 to 63 in order are these 48 bytes
    for (unsigned digit = 0; digit < 64; digit += 4)
        for (const unsigned shift : {16U, 8U, 0U})
            all.push_back(static_cast<unsigned char>(
                (digit << 18U | (digit + 1) << 12U | (digit + 2) << 6U | (digit + 3)) >> shift));
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    EXPECT_EQ(Base64::Encode(all), alphabet);
    EXPECT_EQ(Base64::Decode(alphabet), all);
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
