// Any bytes as a stream: the decoders write what the plain reader of the format does, never exceed their room, and
// report when it is too small. Any bytes as data: the coders write the plain writer's tokens, which decode to the same
// bytes. The address sanitizer watches blocks of exact size.
#include "tests/fuzz/detail_require.h"
#include "tests/runtime/rle_oracle.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t n)
{
    using namespace rle_test;
    const Bytes bytes(data, data + n);
    const unsigned char choice = n == 0 ? 0 : bytes.back();
    const std::size_t limit = choice % 16 == 0 ? 65536 : 2048; // most inputs stay cheap
    Require(DecodesAsOracle(bytes, false, limit) && DecodesAsOracle(bytes, true, limit));
    Require(CodesAsOracle(bytes, choice));
    Require(PlainRead(Compressed(bytes, -1, 1 + 2 * n), false, SIZE_MAX).bytes == bytes);
    return 0;
}
