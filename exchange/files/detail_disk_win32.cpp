#include "exchange/files/detail_disk.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

namespace voalgo::disk {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail()
{
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
}

constexpr DWORD SharedByAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE Open(const fs::path& path, DWORD access, DWORD share, DWORD disposition)
{
    const DWORD flags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS; // opens directories, too
    return CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
}

} // namespace

struct Entry::Handle {
    explicit Handle(HANDLE opened) : file(opened)
    {
        if (file == INVALID_HANDLE_VALUE) Fail();
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { CloseHandle(file); }

    HANDLE file;
};

Entry::Entry(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
Entry::Entry(Entry&&) noexcept = default;
Entry& Entry::operator=(Entry&&) noexcept = default;
Entry::~Entry() = default;

Entry Entry::MakeFile(const fs::path& path)
{
    return Entry(std::make_unique<Handle>(Open(path, GENERIC_WRITE, SharedByAll, CREATE_NEW)));
}

Entry Entry::MakeDirectory(const fs::path& path)
{
    if (CreateDirectoryW(path.c_str(), nullptr) == 0) Fail();
    return Entry(std::make_unique<Handle>(Open(path, FILE_LIST_DIRECTORY, SharedByAll, OPEN_EXISTING)));
}

Entry Entry::OpenDevice(const fs::path& path)
{
    return Entry(std::make_unique<Handle>(Open(path, GENERIC_WRITE, SharedByAll, OPEN_EXISTING)));
}

void Entry::Write(std::string_view bytes)
{
    constexpr std::size_t Most = std::size_t{1} << 30U; // a single call takes 32 bits
    while (!bytes.empty()) {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(bytes.size(), Most));
        if (WriteFile(handle_->file, bytes.data(), size, &written, nullptr) == 0) Fail();
        bytes.remove_prefix(written);
    }
}

void Entry::Sync()
{
    if (FlushFileBuffers(handle_->file) != 0) return;
    const DWORD error = GetLastError();
    if (error != ERROR_INVALID_FUNCTION && error != ERROR_ACCESS_DENIED) Fail(); // of devices and directories
}

void Entry::PrepareRename()
{
    handle_.reset();
}

bool IsAbandoned(const fs::path& path)
{
    const HANDLE file = Open(path, GENERIC_READ, 0, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) return false;
    CloseHandle(file);
    return true;
}

bool HasOtherName(const fs::path& path)
{
    std::error_code error;
    return !fs::is_directory(path) && fs::hard_link_count(path, error) > 1 && !error;
}

void RequireWritable(const fs::path& path)
{
    const HANDLE file = Open(path, GENERIC_WRITE, SharedByAll, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) Fail();
    CloseHandle(file);
}

bool CopyRights(const fs::path&, const fs::path&)
{
    return true; // both inherit those of their directory
}

bool Exchange(const fs::path&, const fs::path&)
{
    return false;
}

bool MoveUnlessTaken(const fs::path& from, const fs::path& to)
{
    return MoveFileExW(from.c_str(), to.c_str(), 0) != 0;
}

void SyncNames(const fs::path&) {}

unsigned long ProcessNumber()
{
    return GetCurrentProcessId();
}

struct InterruptsHeld::Saved {};
InterruptsHeld::InterruptsHeld() = default;
InterruptsHeld::~InterruptsHeld() = default;

} // namespace voalgo::disk
