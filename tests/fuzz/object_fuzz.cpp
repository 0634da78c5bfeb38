#include "tests/bson/bson_invariants.h"
#include "tests/fuzz/detail_require.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Require(bson_test::HoldsAsObject(bson_test::Bytes(data, data + size)));
    return 0;
}
