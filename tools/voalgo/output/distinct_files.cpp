#include "output/distinct_files.h"

#include "terminal/usage_error.h"

#include <filesystem>

namespace voalgo {

namespace {

namespace fs = std::filesystem;

fs::path Resolved(const std::string& path)
{
    std::error_code ignored;
    const fs::path whole = fs::absolute(path).lexically_normal();
    return fs::weakly_canonical(whole.parent_path(), ignored) / whole.filename();
}

bool IsSame(const std::string& a, const std::string& b)
{
    if (a.empty() || b.empty()) return false;
    std::error_code error;
    if (const fs::file_status status = fs::status(a, error); fs::exists(status))
        return (fs::is_regular_file(status) || fs::is_directory(status)) && fs::equivalent(a, b, error);
    return Resolved(a) == Resolved(b);
}

} // namespace

void RequireDistinct(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs)
{
    for (auto output = outputs.begin(); output != outputs.end(); ++output) {
        for (const std::string& input : inputs)
            if (IsSame(*output, input)) throw UsageError("the output " + *output + " would replace the input " + input);
        for (auto other = outputs.begin(); other != output; ++other)
            if (IsSame(*output, *other))
                throw UsageError("the outputs " + *other + " and " + *output + " are one file");
    }
}

} // namespace voalgo
