#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace voalgo {

struct Staged;

/// A set of files that take their places in a directory together: it holds the old set or the new one at any moment,
/// and other files that are in it stay. Where the system cannot replace a directory that is in use, or one with
/// directories inside, the files are renamed one by one in the order in which they were added. All functions throw
/// OutputError.
class StagedDirectory {
public:
    /// `names`: of every file that may be in a set; those that a set lacks are removed when it is kept. Finds out
    /// whether the files can be written.
    StagedDirectory(const std::string& directory, std::vector<std::string> names);
    StagedDirectory(const StagedDirectory&) = delete;
    StagedDirectory& operator=(const StagedDirectory&) = delete;
    /// Leaves no trace of a set that was not kept.
    ~StagedDirectory();

    /// Lets `write` fill a file of the set at the path that it is called with; the most important first.
    void Add(const std::string& name, const std::function<void(const std::string&)>& write);
    /// Puts the set in its place, when it is on the disk.
    void Keep();
    /// The paths of the files that were added.
    [[nodiscard]] std::vector<std::string> Paths() const;

private:
    void requireWritable() const;
    [[nodiscard]] bool replaceDirectory();
    void replaceFiles();

    std::string directory_;
    std::vector<std::string> names_;
    std::vector<std::string> added_;
    std::filesystem::path target_;            // behind all links
    std::vector<std::filesystem::path> made_; // folders that did not exist, the outermost first
    std::unique_ptr<Staged> staged_;          // null once it is kept
};

/// Whether a file is in this directory itself, which need not exist.
[[nodiscard]] bool IsInFolder(const std::string& path, const std::string& directory);

} // namespace voalgo
