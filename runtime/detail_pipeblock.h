#pragma once

#include "platform/namedobjects.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace VoAlgo {

/// Holds a lock, if it was free.
class HeldLock {
public:
    HeldLock(platform::NamedLocks& locks, unsigned lock) : locks_(locks.TryLock(lock) ? &locks : nullptr), lock_(lock)
    {
    }
    HeldLock(HeldLock&& other) noexcept : locks_(std::exchange(other.locks_, nullptr)), lock_(other.lock_) {}
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
    HeldLock& operator=(HeldLock&&) = delete;
    ~HeldLock()
    {
        if (locks_ != nullptr) locks_->Unlock(lock_);
    }

    explicit operator bool() const { return locks_ != nullptr; }

private:
    platform::NamedLocks* locks_;
    unsigned lock_;
};

/// The block of a pipe and the right to use it, which passes between the two sides as a token: in "spaces" the block is
/// free, in "items" it holds a chunk, otherwise one side is using it. Locks tell whether the other side lives, so that
/// waits end, and the token of a killed process is recovered.
///
/// Errors are thrown as std::runtime_error with the name of `function`.
class PipeBlock {
public:
    /// How far a message has come; messages of a pipe are numbered from 1.
    struct Progress {
        std::uint64_t message;
        std::uint64_t chunks; ///< up to this chunk
        friend bool operator==(const Progress&, const Progress&) = default;
    };
    /// Stands at the end of the last memory page, behind the block and never in it.
    struct Notes {
        std::uint64_t blockSize; ///< 0 until the pipe is complete
        Progress sent;           ///< the chunk that is in the block, by its sender
        Progress taken;          ///< the last chunk that a receiver kept
    };

    static std::unique_ptr<PipeBlock> Create(const std::wstring& name, std::size_t size, const char* function);
    /// Throws std::invalid_argument when the block was created with another size.
    static std::unique_ptr<PipeBlock> Open(const std::wstring& name, std::size_t size, const char* function);

    [[nodiscard]] std::size_t Size() const { return size_; }
    [[nodiscard]] Notes ReadNotes(const char* function) const;
    void WriteSent(const Progress& sent, const char* function);
    void WriteTaken(const Progress& taken, const char* function);
    void Read(std::size_t offset, void* to, std::size_t bytes, const char* function) const;
    void Write(std::size_t offset, const void* from, std::size_t bytes, const char* function);

    /// Waits for the token as the only sender, which this process is until the returned lock ends.
    [[nodiscard]] HeldLock BeginSending(const char* function);
    /// Waits for the token after that many chunks of a message; false when the creator of the pipe has gone. Whether
    /// the receiver has kept the chunk is in the notes.
    [[nodiscard]] bool AwaitSpace(std::uint64_t chunksSent);

    /// Waits for a chunk and its token as the only receiver, which this process is until the returned lock ends.
    [[nodiscard]] HeldLock BeginReceiving(const char* function);
    /// Waits for the next chunk of a message; throws when none will come.
    void AwaitItem(const char* function);

    platform::NamedSemaphore& Items() { return *items_; }
    platform::NamedSemaphore& Spaces() { return *spaces_; }

private:
    PipeBlock() = default;
    void openLocks(const std::wstring& name, const char* function);
    void restoreLostToken();
    void clear();

    std::size_t size_ = 0;
    std::unique_ptr<platform::NamedMapping> mapping_;
    std::unique_ptr<platform::NamedSemaphore> items_;
    std::unique_ptr<platform::NamedSemaphore> spaces_;
    // One participant for each direction: two threads may use both ends of a pipe through one object.
    std::unique_ptr<platform::NamedLocks> senderSide_;
    std::unique_ptr<platform::NamedLocks> receiverSide_;
};

} // namespace VoAlgo
