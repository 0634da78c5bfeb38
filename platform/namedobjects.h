#pragma once

#include <cstddef>
#include <memory>
#include <string>

/// Objects of the operating system that the processes of one user share by name; one source for POSIX, one for Win32.
///
/// A name belongs to the process that created the object until it destroys the object or dies: until then Create fails
/// with the system's code for "exists", afterwards Open with that for "not found". What a killed creator left behind is
/// replaced. Objects of another user, and files that others may open, are refused with "access denied".
///
/// A child process that was forked without exec counts as its parent's, which then seems to live as long as the child.
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

    /// Whether the process that created the block still holds it.
    [[nodiscard]] bool HasOwner() const;
    /// Bytes of the block; on Win32 whole pages, and 0 when the system does not say.
    [[nodiscard]] std::size_t Size() const;
    ///@{
    /// Copies bytes out of the block or into it. Unlike access through a view, this survives a block that another
    /// process has shortened: reading past the end is an error. False on failure.
    bool Read(std::size_t offset, void* to, std::size_t bytes) const;
    bool Write(std::size_t offset, const void* from, std::size_t bytes);
    ///@}
    /// The whole block, mapped into this process until its last owner releases it; may outlive the mapping. Null on
    /// failure.
    [[nodiscard]] std::shared_ptr<void> View() const;

private:
    struct System;
    explicit NamedMapping(std::unique_ptr<System> system);

    std::unique_ptr<System> system_;
};

/// A counting semaphore with a name. Its creator is expected to own a mapping that goes with it: on POSIX, Create takes
/// the name over from any other semaphore.
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

    /// Takes one as soon as the count is positive; false when this does not happen within the time.
    bool WaitFor(unsigned milliseconds);
    /// Adds one.
    void Release();

private:
    struct System;
    explicit NamedSemaphore(std::unique_ptr<System> system);

    std::unique_ptr<System> system_;
};

/// One participant in the locks that go with a named block. A lock is free again when its holder is destroyed or its
/// process dies, so a lock that can be taken proves that nobody is at work under it.
class NamedLocks {
public:
    static constexpr unsigned Count = 2;

    /// Null on failure. `name`: of an existing block.
    static std::unique_ptr<NamedLocks> Open(const std::wstring& name);
    NamedLocks(const NamedLocks&) = delete;
    NamedLocks& operator=(const NamedLocks&) = delete;
    ~NamedLocks();

    /// Takes lock 0 .. Count - 1; false when another participant, of whichever process, holds it.
    bool TryLock(unsigned lock);
    void Unlock(unsigned lock);

private:
    struct System;
    explicit NamedLocks(std::unique_ptr<System> system);

    std::unique_ptr<System> system_;
};

} // namespace VoAlgo::platform
