#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace VoAlgo {

/// Carries byte messages of any length from one process to another through a fixed block of named shared memory. One
/// side creates the pipe, the other opens it; either may be the sender. One sender and one receiver per pipe: others
/// wait until a message has passed.
///
/// The block holds one chunk at a time, little-endian:
///
///     0  uint32  number of chunks in the first chunk of a message, the chunk's index (1, 2, ...) in the later ones
///     4  uint32  payload bytes in this chunk
///     8  ...     payload, up to the end of the block; every chunk but the last of a message is full
///
/// The block has the pipe's name, the counting semaphores the names "Global\" + name + ".sem.items" (chunks written and
/// not yet read) and "Global\" + name + ".sem.spaces" (free blocks, initially 1). Behind the block, five words number
/// the messages, so that chunks of two messages never mix.
///
/// Waits have no time-out: a receiver blocks until a message arrives, a sender until the block is free. But they throw
/// when nothing can come any more: when the creator of the pipe has destroyed it or died, and in the middle of a
/// message when the other side has gone. The pipe is then ready for the next message.
///
/// Both sides must belong to the same user; see CSharedMemory for who may create and open a name.
class VOALGO_API CSharedMemoryPipe {
public:
    /// An unusable pipe: sending and receiving throw.
    CSharedMemoryPipe();
    ///@{
    /// Moves the pipe; the source becomes unusable.
    CSharedMemoryPipe(CSharedMemoryPipe&& other) noexcept;
    CSharedMemoryPipe& operator=(CSharedMemoryPipe&& other) noexcept;
    ///@}
    /// Closes the semaphores, the view and the block.
    ~CSharedMemoryPipe();

    /// Creates a pipe with a block of `size` bytes. Throws std::runtime_error when the system refuses, when a living
    /// process has a pipe of this name ("File exists") or when another user has the name ("Permission denied"): its
    /// text starts with "VoAlgo::CSharedMemoryPipe::Create" and ends with the system's.
    [[nodiscard]] static CSharedMemoryPipe Create(const std::wstring& name, std::size_t size);
    /// Opens a pipe; `size` must equal the creator's, otherwise throws std::invalid_argument. Throws std::runtime_error
    /// ("VoAlgo::CSharedMemoryPipe::Open", then the system's text) at once when there is no such pipe, its creator has
    /// died, or it belongs to another user or may be opened by one.
    static CSharedMemoryPipe Open(const std::wstring& name, std::size_t size);

    ///@{
    /// Sends one message; an empty one sends nothing. Returns when the last chunk is in the block, which may be before
    /// it is received. Throws std::invalid_argument ("shared memory buffer too small") when the block has less than 9
    /// bytes or the pipe is unusable, std::length_error when the number or the length of chunks exceeds 32 bits,
    /// std::runtime_error when the receiver goes or refuses the message before the last chunk is in the block.
    void Send(const void* data, std::size_t size) { send(data, size, false); }
    void Send(const std::string& data) { Send(data.data(), data.size()); }
    void Send(const std::vector<unsigned char>& data) { Send(data.data(), data.size()); }
    ///@}
    /// As Send, but returns only when a receiver has the whole message: after Receive has copied it, or after the
    /// function given to Accept has returned. Throws std::runtime_error otherwise.
    void Deliver(const void* data, std::size_t size) { send(data, size, true); }

    /// Receives one message into a buffer that must be large enough for it; `size` returns its bytes.
    /// Throws std::invalid_argument as Send does, and when a chunk cannot be part of the message: longer than the
    /// block, out of sequence, empty, short without being the last, or the first of none. The chunk is then removed
    /// from the block. Throws std::runtime_error when the sender or the creator of the pipe has gone. In either case,
    /// the part of the message received so far is lost.
    void Receive(void* buffer, std::size_t& size);
    ///@{
    /// Receives one message and replaces the contents of the vector. Throws as above.
    void Receive(std::vector<unsigned char>& buffer);
    std::vector<unsigned char> Receive();
    ///@}
    /// Receives one message and passes it to `keep`; Deliver on the other side returns after `keep` has. When `keep`
    /// throws, so do Accept and Deliver.
    void Accept(const std::function<void(const std::vector<unsigned char>&)>& keep);

private:
    struct State;

    explicit CSharedMemoryPipe(std::unique_ptr<State> state);
    [[nodiscard]] std::size_t payloadCapacity() const;
    void send(const void* data, std::size_t size, bool confirmed);
    template <typename Start, typename Append, typename Keep>
    void receiveChunks(const Start& start, const Append& append, const Keep& keep);
    template <typename Keep>
    void receiveVector(std::vector<unsigned char>& buffer, const Keep& keep);

    std::unique_ptr<State> state_;
};

} // namespace VoAlgo
