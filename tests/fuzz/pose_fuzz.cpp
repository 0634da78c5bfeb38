// Any bytes as a pose file: a rigid pose whose text reads back to the same bits, or a refusal with the file's name.
#include "exchange/files/input_error.h"
#include "input/pose_file.h"
#include "tests/fuzz/detail_memoryfile.h"
#include "tests/fuzz/detail_require.h"

#include <cmath>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static MemoryFile file;
    file.Hold(data, size);
    try {
        const VoAlgo::CbMatrix4Rd pose = voalgo::ReadPose(file.Path(), {});
        voalgo::PoseMatrix rows;
        for (unsigned r = 0; r < 4; ++r)
            for (unsigned c = 0; c < 4; ++c) {
                Require(std::isfinite(pose(r, c)));
                rows[r][c] = pose(r, c);
            }
        const std::string text = voalgo::PoseText(rows);
        file.Hold(reinterpret_cast<const unsigned char*>(text.data()), text.size());
        const VoAlgo::CbMatrix4Rd again = voalgo::ReadPose(file.Path(), {});
        for (unsigned i = 0; i < 16; ++i) Require(again(i / 4, i % 4) == pose(i / 4, i % 4));
    } catch (const voalgo::InputError& error) {
        Require(std::string_view(error.what()).substr(0, file.Path().size()) == file.Path());
    }
    return 0;
}
