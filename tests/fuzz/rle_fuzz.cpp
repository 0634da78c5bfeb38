// Any bytes as a stream: the decoders write what the plain reader of the format does, never exceed their room, and
// report when it is too small. Any bytes as data: the coders write the plain writer's tokens, which decode to the same
// bytes. The address sanitizer watches blocks of exact size.
#include "tests/fuzz/detail_require.h"
#include "tests/runtime/rle_oracle.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t n)
{
    using namespace rle_test;
    constexpr std::size_t MaxDecoded = 2048; // keeps inputs cheap; the unit tests decode the longest runs
    const Bytes bytes(data, data + n);
    Require(DecodesAsOracle(bytes, false, MaxDecoded) && DecodesAsOracle(bytes, true, MaxDecoded));
    Require(CodesAsOracle(bytes, n == 0 ? 0 : bytes.back()));
    Require(PlainRead(Compressed(bytes, -1, 1 + 2 * n), false, SIZE_MAX).bytes == bytes);
    return 0;
}
