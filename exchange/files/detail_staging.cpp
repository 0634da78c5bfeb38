#include "exchange/files/detail_staging.h"

#include "platform/format.h"

#include <algorithm>
#include <optional>
#include <system_error>

namespace voalgo {

namespace {

namespace fs = std::filesystem;

/// How all names begin under which something is staged for a target.
std::string PrefixOf(const fs::path& target)
{
    constexpr std::size_t Longest = 150; // bytes; the rest of a name must fit, too
    return "." + target.filename().string().substr(0, Longest) + ".voalgo-";
}

void RemoveLeftovers(const fs::path& target, const fs::path& folder, const std::vector<std::string>& names)
{
    std::error_code ignored;
    std::vector<fs::path> found;
    const std::string prefix = PrefixOf(target);
    for (fs::directory_iterator entry(folder, ignored), end; !ignored && entry != end; entry.increment(ignored))
        if (entry->path().filename().string().starts_with(prefix)) found.push_back(entry->path());
    for (const fs::path& path : found) {
        if (!disk::IsAbandoned(path)) continue;
        if (fs::is_directory(fs::symlink_status(path, ignored)))
            RemoveStaged(path, names);
        else
            fs::remove(path, ignored);
    }
}

template <class Make>
Staged Stage(const fs::path& target, const fs::path& folder, const Make& make)
{
    constexpr unsigned Attempts = 100;
    for (unsigned i = 0;; ++i) {
        const fs::path path = folder / (PrefixOf(target) + VoAlgo::Format("%lu-%u", disk::ProcessNumber(), i));
        try {
            return {path, make(path)};
        } catch (const std::system_error& error) {
            const bool isTaken =
                error.code() == std::errc::file_exists || error.code() == std::errc::resource_unavailable_try_again;
            if (!isTaken || i == Attempts) throw;
        }
    }
}

} // namespace

Staged StageFile(const fs::path& target)
{
    const fs::path folder = target.parent_path();
    RemoveLeftovers(target, folder, {});
    return Stage(target, folder, &disk::Entry::MakeFile);
}

Staged StageDirectory(const fs::path& target, const std::vector<std::string>& names)
{
    for (const fs::path& folder : {target.parent_path(), target}) RemoveLeftovers(target, folder, names);
    return Stage(target, fs::exists(target) ? target : target.parent_path(), &disk::Entry::MakeDirectory);
}

void RemoveStaged(const fs::path& directory, const std::vector<std::string>& names)
{
    std::error_code ignored;
    std::vector<fs::path> removable;
    for (fs::directory_iterator entry(directory, ignored), end; !ignored && entry != end; entry.increment(ignored)) {
        const std::string name = entry->path().filename().string();
        const bool isOurs = std::find(names.begin(), names.end(), name) != names.end() ||
                            (name[0] == '.' && name.find(".voalgo-") != std::string::npos);
        if (isOurs || disk::HasOtherName(entry->path())) removable.push_back(entry->path());
    }
    for (const fs::path& path : removable) fs::remove(path, ignored);
    fs::remove(directory, ignored); // fails unless it is empty
}

} // namespace voalgo
