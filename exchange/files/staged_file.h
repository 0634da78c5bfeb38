#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace voalgo {

struct Staged;

/// A file that takes its place once it is whole. Until then it is under a hidden name in the same folder, and an
/// earlier file stays; what a killed process leaves behind, the next one that writes the same file removes. Devices and
/// pipes are written as they are. All functions throw OutputError.
class StagedFile {
public:
    /// Finds out whether the file can be written.
    explicit StagedFile(const std::string& path);
    StagedFile(StagedFile&&) noexcept;
    StagedFile& operator=(StagedFile&&) noexcept;
    ~StagedFile();

    /// Appends bytes.
    void Write(std::string_view bytes);
    /// Lets `write` fill the file of the path that it is called with.
    void WriteBy(const std::function<void(const std::string&)>& write);
    /// Puts the file in its place, when it is on the disk.
    void Keep();

private:
    [[nodiscard]] bool isInPlace() const;

    std::string path_;
    std::filesystem::path target_;   // behind all links
    std::unique_ptr<Staged> staged_; // null once it is kept
};

} // namespace voalgo
