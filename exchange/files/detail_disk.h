#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

/// What writing files without losing any needs from the operating system. Failures throw std::system_error.
namespace voalgo::disk {

/// A file or directory that this process has opened. A new one is locked, so that other processes can tell it from what
/// a killed one left behind.
class Entry {
public:
    Entry(Entry&&) noexcept;
    Entry& operator=(Entry&&) noexcept;
    ~Entry();

    /// Makes a file; the path must be free.
    static Entry MakeFile(const std::filesystem::path& path);
    /// Makes a directory; the path must be free.
    static Entry MakeDirectory(const std::filesystem::path& path);
    /// Opens something that exists but is not a regular file: a device, a pipe.
    static Entry OpenDevice(const std::filesystem::path& path);

    void Write(std::string_view bytes);
    /// Returns when everything that was written is on the disk.
    void Sync();
    /// Ends the use by this object where the system renames only what nobody has opened.
    void PrepareRename();

private:
    struct Handle;
    explicit Entry(std::unique_ptr<Handle> handle);
    std::unique_ptr<Handle> handle_;
};

/// Whether a process made this entry and ended without removing it.
bool IsAbandoned(const std::filesystem::path& path);
/// Whether something that is not a directory has a second name (hard link).
bool HasOtherName(const std::filesystem::path& path);
/// Throws unless this process may write to an existing file.
void RequireWritable(const std::filesystem::path& path);
/// Gives `to` the owner and the permissions of `from`. Returns whether they are now the same.
bool CopyRights(const std::filesystem::path& from, const std::filesystem::path& to);
/// Lets two names change places in one step. Returns false, with nothing done, where the system cannot.
bool Exchange(const std::filesystem::path& a, const std::filesystem::path& b);
/// Renames without replacing anything. Returns whether it did.
bool MoveUnlessTaken(const std::filesystem::path& from, const std::filesystem::path& to);
/// Returns when the names in a directory are on the disk; does nothing where the system cannot say.
void SyncNames(const std::filesystem::path& directory);
/// Tells processes apart.
unsigned long ProcessNumber();

/// While one exists, an interrupt waits.
class InterruptsHeld {
public:
    InterruptsHeld();
    InterruptsHeld(const InterruptsHeld&) = delete;
    InterruptsHeld& operator=(const InterruptsHeld&) = delete;
    ~InterruptsHeld();

private:
    struct Saved;
    std::unique_ptr<Saved> saved_;
};

} // namespace voalgo::disk
