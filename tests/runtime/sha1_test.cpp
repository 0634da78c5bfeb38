#include "VoAlgorithms/runtime/sha1.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

namespace {

using VoAlgo::SHA1;

// The examples that accompany FIPS 180-4, and lengths on both sides of a block's end (from sha1sum).
TEST(SHA1, VectorsOfTheStandardWholeAndInPieces)
{
    const std::pair<std::string, const char*> rows[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1'000'000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        {std::string(55, 'x'), "cef734ba81a024479e09eb5a75b6ddae62e6abf1"},
        {std::string(64, 'x'), "bb2fa3ee7afb9f54c6dfb5d021f14b1ffe40c163"},
    };
    for (const auto& [text, digest] : rows) {
        EXPECT_EQ(SHA1::ToHex(SHA1::Hash(text)), digest);
        SHA1 stream;
        std::size_t size = 1;
        for (std::size_t at = 0; at < text.size(); at += size, size = size * 7 % 131) {
            stream.Update(std::string_view(text).substr(at, size));
            (void)stream.Finish(); // may be asked for at any time
        }
        EXPECT_EQ(SHA1::ToHex(stream.Finish()), digest);
    }
}

} // namespace
