#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

/// Objects of the operating system that processes share by name; one source for POSIX, one for Win32.
///
/// Win32 objects live as long as any process holds them. POSIX names outlive processes: the creator removes its name on
/// destruction, unless another object has taken it over. Create takes over a name that is in use: the new object starts
/// fresh, and processes that hold the old one keep it. Only processes of the same user can open a name.
namespace VoAlgo::platform {

/// Code of this thread's last failed system call.
int LastErrorCode();
/// The system's text for a code, empty when it has none.
std::string ErrorText(int code);

/// A block of memory with a name.
class NamedMapping {
public:
    /// A block of at least one byte, readable and writable, all zero, with its memory reserved. Null on failure.
    static std::unique_ptr<NamedMapping> Create(const std::wstring& name, std::size_t size);
    /// Null on failure; does not wait for the name to appear.
    static std::unique_ptr<NamedMapping> Open(const std::wstring& name);
    NamedMapping(const NamedMapping&) = delete;
    NamedMapping& operator=(const NamedMapping&) = delete;
    ~NamedMapping();

    /// The whole block, mapped into this process until its last owner releases it; may outlive the mapping. Null on
    /// failure.
    [[nodiscard]] std::shared_ptr<void> View() const;
    /// Bytes of the block; on Win32 whole pages, and 0 when the system does not say.
    [[nodiscard]] std::size_t Size() const;

private:
    NamedMapping(std::intptr_t handle, std::string ownedName) : handle_(handle), ownedName_(std::move(ownedName)) {}

    std::intptr_t handle_;
    std::string ownedName_; // name to remove on destruction; empty when there is none
};

/// A counting semaphore with a name.
class NamedSemaphore {
public:
    /// Release never raises the count above this.
    static constexpr int MaxCount = 1024;

    /// Null on failure.
    static std::unique_ptr<NamedSemaphore> Create(const std::wstring& name, unsigned initial);
    /// Null on failure; does not wait for the name to appear.
    static std::unique_ptr<NamedSemaphore> Open(const std::wstring& name);
    NamedSemaphore(const NamedSemaphore&) = delete;
    NamedSemaphore& operator=(const NamedSemaphore&) = delete;
    ~NamedSemaphore();

    /// Waits without a time-out until the count is positive, then takes one.
    void Wait();
    /// Adds one.
    void Release();

private:
    NamedSemaphore(void* handle, std::string ownedName) : handle_(handle), ownedName_(std::move(ownedName)) {}

    void* handle_;
    std::string ownedName_;
};

} // namespace VoAlgo::platform
