#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

/// Objects of the operating system that processes share by name; one source for POSIX, one for Win32.
///
/// Win32 objects live as long as any process holds them. POSIX names outlive processes: the creator removes its name
/// when it goes, unless somebody else has taken the name over. Create takes a name over from whoever has it: the new
/// object starts fresh, and processes that still hold the old one keep that. Names are for processes of one user.
namespace VoAlgo::platform {

/// Code of this thread's last failed call of the system.
int LastErrorCode();
/// The system's text for a code, empty when it has none.
std::string ErrorText(int code);

/// A block of memory with a name.
class NamedMapping {
public:
    /// A block of at least one byte, readable and writable, all zero, with its memory reserved. Null on failure.
    static std::unique_ptr<NamedMapping> Create(const std::wstring& name, std::size_t size);
    /// Null on failure, at once when the name does not exist.
    static std::unique_ptr<NamedMapping> Open(const std::wstring& name);
    NamedMapping(const NamedMapping&) = delete;
    NamedMapping& operator=(const NamedMapping&) = delete;
    ~NamedMapping();

    /// The whole block in this process, until the last owner lets go; it may outlive the mapping. Null on failure.
    [[nodiscard]] std::shared_ptr<void> View() const;
    /// Bytes of the block; Win32 counts whole pages, and 0 when it cannot tell.
    [[nodiscard]] std::size_t Size() const;

private:
    NamedMapping(std::intptr_t handle, std::string ownedName) : handle_(handle), ownedName_(std::move(ownedName)) {}

    std::intptr_t handle_;
    std::string ownedName_; // what is to be removed in the end; empty where that is nobody's or another's business
};

/// A counting semaphore with a name.
class NamedSemaphore {
public:
    /// Release does not count further than this.
    static constexpr int MAXIMUM = 1024;

    /// Null on failure.
    static std::unique_ptr<NamedSemaphore> Create(const std::wstring& name, unsigned initial);
    /// Null on failure, at once when the name does not exist.
    static std::unique_ptr<NamedSemaphore> Open(const std::wstring& name);
    NamedSemaphore(const NamedSemaphore&) = delete;
    NamedSemaphore& operator=(const NamedSemaphore&) = delete;
    ~NamedSemaphore();

    /// Waits without time-out until the count is positive, then takes one.
    void Wait();
    /// Adds one.
    void Release();

private:
    NamedSemaphore(void* handle, std::string ownedName) : handle_(handle), ownedName_(std::move(ownedName)) {}

    void* handle_;
    std::string ownedName_;
};

} // namespace VoAlgo::platform
