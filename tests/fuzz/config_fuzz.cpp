// Any bytes as a file of settings: settings that write to JSON and read back to the same, or a refusal with the file's
// name.
#include "exchange/files/input_error.h"
#include "exchange/report/config_json.h"
#include "tests/fuzz/detail_memoryfile.h"
#include "tests/fuzz/detail_require.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static MemoryFile file;
    file.Hold(data, size);
    try {
        prereg::ConfigurationFPFH config, again;
        voalgo::ReadConfigFile(file.Path())(config);
        const std::string text = voalgo::ToJson(config).dump();
        file.Hold(reinterpret_cast<const unsigned char*>(text.data()), text.size());
        voalgo::ReadConfigFile(file.Path())(again);
        Require(voalgo::ToJson(again).dump() == text);
    } catch (const voalgo::InputError& error) {
        Require(std::string_view(error.what()).substr(0, file.Path().size()) == file.Path());
    }
    return 0;
}
