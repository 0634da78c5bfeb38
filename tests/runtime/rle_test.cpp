#include "runtime/rle_oracle.h"

#include "fuzz/keep_seed.h"
#include "runtime/detail_movetofront.h"

#include <gmock/gmock.h>

#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>

namespace {

using namespace rle_test;

class Source {
public:
    explicit Source(unsigned seed) : engine_(seed) {}

    std::size_t Below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(engine_); }

    // Runs of typical lengths and of lengths around the limits of the format, of few or many values; equal neighbours
    // form longer runs.
    Bytes Runs(std::size_t size)
    {
        static constexpr std::size_t Lengths[] = {1, 1, 1, 2, 3, 4, 5, 8, 31, 33, 127, 128, 129, 130, 200, 4096};
        const std::size_t kinds = Below(std::size(Lengths)) + 1;
        const std::size_t values = std::size_t{1} << Below(9);
        const std::size_t first = Below(256);
        Bytes bytes;
        while (bytes.size() < size)
            bytes.insert(bytes.end(), Lengths[Below(kinds)], static_cast<unsigned char>(first + Below(values)));
        bytes.resize(size);
        return bytes;
    }

private:
    std::mt19937 engine_;
};

// Catches wide loads and stores beyond an end, runs cut or joined at the borders of words and pieces, and lengths off
// by one; every size up to 80, then random ones, every escape.
TEST(RLE, CodesAsTheOracles)
{
    Source source(1);
    for (std::size_t round = 0; round < 600; ++round) {
        const Bytes bytes = source.Runs(round < 80 ? round : source.Below(5001));
        const std::size_t escape = bytes.empty() || round % 2 == 0 ? round / 2 % 256 : bytes[0];
        ASSERT_TRUE(CodesAsOracle(bytes, static_cast<int>(escape))) << round;
    }
    for (const std::size_t length : {4095U, 4096U, 4097U, 32767U, 32768U, 32769U, 65535U, 65536U, 65537U, 98304U})
        for (const unsigned value : {0U, 7U, 255U}) { // a run within others, its place in words and pieces varied
            Bytes bytes(source.Below(20), 1);
            bytes.insert(bytes.end(), length, static_cast<unsigned char>(value));
            bytes.insert(bytes.end(), source.Below(5), 9);
            EXPECT_TRUE(CodesAsOracle(bytes, 7)) << length << " times " << value;
        }
    Bytes turns(100000); // runs of positions other than 0, longer than a token and than a piece
    for (const std::size_t period : {2U, 3U, 32U, 33U, 256U}) {
        for (std::size_t i = 0; i < turns.size(); ++i) turns[i] = static_cast<unsigned char>(i % period);
        EXPECT_TRUE(CodesAsOracle(turns, 5)) << period;
    }
}

// Streams that no coder writes: truncated anywhere, random bytes, lengths with a shorter code.
TEST(RLE, DecodesAnyBytesAsTheOracle)
{
    Source source(2);
    std::vector<Bytes> streams(300);
    for (Bytes& stream : streams) {
        stream.resize(source.Below(&stream - streams.data() < 200 ? 12 : 200));
        const unsigned char frequent = source.Below(2) == 0 ? 255 : static_cast<unsigned char>(source.Below(4));
        for (std::size_t i = 0; i < stream.size(); ++i) { // few long runs: they take the twin long
            const bool begins = source.Below(3) == 0 && (i == 0 || stream[i - 1] != frequent);
            stream[i] = begins ? frequent : static_cast<unsigned char>(source.Below(source.Below(12) == 0 ? 256 : 131));
        }
    }
    for (Bytes whole = Compressed(Source(3).Runs(250), -1, 501); !whole.empty(); whole.pop_back())
        streams.push_back(whole);
    for (const Bytes& stream : streams)
        EXPECT_TRUE(DecodesAsOracle(stream, false) && DecodesAsOracle(stream, true)) << testing::PrintToString(stream);
}

// The portable table gives the same positions and bytes as the one that this machine uses, in place too; 33 to 256
// symbols reach beyond the registers.
TEST(RLE, BothMoveToFrontTablesAgree)
{
    Source source(4);
    for (const std::size_t symbols : {1U, 16U, 17U, 32U, 33U, 64U, 256U}) {
        Bytes bytes(3000);
        for (unsigned char& b : bytes) b = static_cast<unsigned char>(255 - source.Below(symbols));
        const Bytes positions = PlainMoveToFront(bytes, false);
        const auto expectBothWays = [&](auto encoder, auto decoder) {
            Bytes out = bytes;
            encoder.Encode(out.data(), 1234, out.data());
            encoder.Encode(out.data() + 1234, out.size() - 1234, out.data() + 1234);
            EXPECT_EQ(out, positions);
            EXPECT_EQ(encoder.Front(), bytes.back());
            decoder.Decode(out.data(), out.size(), out.data());
            EXPECT_EQ(out, bytes);
        };
        expectBothWays(detail::WordTable(), detail::WordTable());
        expectBothWays(detail::MoveToFrontTable(), detail::MoveToFrontTable());
    }
}

// Escapes computed by a separate program with integers of unlimited size, for the high bytes of the generator below,
// seeded with n. All bytes are counted up to 2047, a sample from 2048 on.
TEST(RLE, TakesTheRarestByteOfTheSampleAsEscape)
{
    const std::tuple<std::size_t, int> table[] = {{1, 0},     {255, 0},  {256, 1},     {2047, 220},  {2048, 0},
                                                  {2049, 18}, {5000, 4}, {100000, 26}, {1000003, 13}};
    for (const auto& [n, escape] : table) {
        Bytes bytes(n);
        auto x = static_cast<std::uint32_t>(n);
        for (unsigned char& b : bytes) b = static_cast<unsigned char>((x = x * 1664525U + 1013904223U) >> 24);
        const Bytes stream = Compressed(bytes, -1, 1 + 2 * n);
        EXPECT_EQ(stream[0], escape) << n;
        EXPECT_EQ(Output(stream, n, Uncompress), bytes);
    }
    Bytes all = AllValues(); // none is missing; 88 stands once, the others at least twice
    all.insert(all.end(), all.begin(), all.end());
    all[88] = 1;
    EXPECT_EQ(Compressed(all, -1, 1025)[0], 88);
}

TEST(RLE, RefusesNoInputAndForeignEscapes)
{
    const unsigned char in[2] = {1, 2};
    unsigned char out[8] = {};
    for (const int escape : {256, -2, 1000, INT32_MIN}) {
        EXPECT_THAT([&] { (void)Compress(in, out, 2, escape); },
                    testing::ThrowsMessage<std::invalid_argument>("invalid escape symbol"));
        EXPECT_EQ(Compress(in, out, 0, escape), 0U); // nothing to do comes first
    }
    for (const auto& [from, to, n] : {std::tuple<const unsigned char*, unsigned char*, std::size_t>(nullptr, out, 2),
                                      {in, nullptr, 2},
                                      {in, out, 0}}) {
        EXPECT_EQ(Compress(from, to, n, -1) + CompressWithMTF(from, to, n), 0U);
        EXPECT_EQ(Uncompress(from, to, n) + UncompressWithMTF(from, to, n), 0U);
        EXPECT_TRUE(MoveToFront(from, to, n) == nullptr && InverseMoveToFront(from, to, n) == nullptr);
        const EDecoded end = from != nullptr && n != 0 ? EDecoded::TooLarge : EDecoded::Whole;
        EXPECT_EQ(UncompressWithMTFChecked(from, to, n, 8).end, end);
        EXPECT_EQ(UncompressChecked(from, to, n, 8).end, end);
    }
    EXPECT_EQ(Bytes(out, out + 8), Bytes(8, 0));
}

// "61 07*3" in hexadecimal.
Bytes FromHex(const std::string& text)
{
    Bytes bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const std::size_t star = word.find('*');
        bytes.insert(bytes.end(), star == std::string::npos ? 1 : std::stoul(word.substr(star + 1)),
                     static_cast<unsigned char>(std::stoul(word.substr(0, star), nullptr, 16)));
    }
    return bytes;
}

// The examples of the format's page, worked out by hand.
TEST(RLE, WorkedExamplesOfTheFormatHold)
{
    std::ifstream page(VOALGO_SOURCE_DIR "/docs/run-length-format.md");
    const std::regex row(R"(\| ([0-9a-f* ]+) \| (move to front|[0-9a-f]+) \| ([0-9a-f* ]+) \|)");
    int examples = 0;
    for (std::string line; std::getline(page, line);) {
        std::smatch cells;
        if (!std::regex_match(line, cells, row)) continue;
        SCOPED_TRACE(line);
        const Bytes bytes = FromHex(cells[1]), stream = FromHex(cells[3]);
        const bool front = cells[2] == "move to front";
        EXPECT_EQ(front ? Output(bytes, 2 * bytes.size(), CompressWithMTF)
                        : Compressed(bytes, std::stoi(cells[2], nullptr, 16), 1 + 2 * bytes.size()),
                  stream);
        EXPECT_EQ(Output(stream, bytes.size(), front ? UncompressWithMTF : Uncompress), bytes);
        KeepSeed("rle", std::to_string(++examples), stream);
    }
    EXPECT_EQ(examples, 15);
}

} // namespace
