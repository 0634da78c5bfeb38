#pragma once

#include "exchange/files/detail_disk.h"

#include <filesystem>
#include <string>
#include <vector>

namespace voalgo {

/// A file or directory under a hidden name, until it takes its place.
struct Staged {
    std::filesystem::path path;
    disk::Entry entry;
};

///@{
/// Makes something that is to become `target`: a file beside it, or a directory for files of these names, inside the
/// target if it exists. First removes what killed runs left behind. Throws std::system_error.
Staged StageFile(const std::filesystem::path& target);
Staged StageDirectory(const std::filesystem::path& target, const std::vector<std::string>& names);
///@}

/// Removes a staged directory. Files of other names stay, hidden as they are, unless they have another name elsewhere.
void RemoveStaged(const std::filesystem::path& directory, const std::vector<std::string>& names);

} // namespace voalgo
