#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace VoAlgo {

/// Carries byte messages of any length from one process to another through a fixed block of named shared memory. One
/// side creates the pipe, the other opens it; either may be the sender. One sender and one receiver per pipe.
///
/// The block holds one chunk at a time, little-endian:
///
///     0  uint32  number of chunks in the first chunk of a message, the chunk's index (1, 2, ...) in the later ones
///     4  uint32  payload bytes in this chunk
///     8  ...     payload, up to the end of the block; every chunk but the last of a message is full
///
/// The block has the pipe's name, the counting semaphores the names "Global\" + name + ".sem.items" (chunks written and
/// not yet read) and "Global\" + name + ".sem.spaces" (free blocks, initially 1).
///
/// Waits have no time-out: a receiver blocks until a message arrives, a sender until the block is free. A process that
/// is killed leaves its peer waiting; a new pair under the same name starts fresh (see CSharedMemory for who removes
/// names).
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

    /// Creates a pipe with a block of `size` bytes. Throws std::runtime_error when the system refuses: its text starts
    /// with "VoAlgo::CSharedMemoryPipe::Create" and ends with the system's.
    [[nodiscard]] static CSharedMemoryPipe Create(const std::wstring& name, std::size_t size);
    /// Opens a pipe; `size` must equal the creator's. Throws std::runtime_error ("VoAlgo::CSharedMemoryPipe::Open",
    /// then the system's text) at once when there is no such pipe, std::invalid_argument when its block is smaller.
    static CSharedMemoryPipe Open(const std::wstring& name, std::size_t size);

    ///@{
    /// Sends one message; an empty one sends nothing. Returns when the last chunk is in the block, which may be before
    /// it is received. Throws std::invalid_argument ("shared memory buffer too small") when the block has less than 9
    /// bytes or the pipe is unusable, std::length_error when the number or the length of chunks exceeds 32 bits.
    void Send(const void* data, std::size_t size);
    void Send(const std::string& data) { Send(data.data(), data.size()); }
    void Send(const std::vector<unsigned char>& data) { Send(data.data(), data.size()); }
    ///@}

    /// Receives one message into a buffer that must be large enough for it; `size` returns its bytes.
    /// Throws std::invalid_argument as Send does, and when a chunk cannot be part of the message: longer than the
    /// block, out of sequence, or short without being the last (for example from a new sender after one was killed).
    /// The chunk is then removed from the block, and the part of the message received so far is lost.
    void Receive(void* buffer, std::size_t& size);
    ///@{
    /// Receives one message and replaces the contents of the vector. Throws as above.
    void Receive(std::vector<unsigned char>& buffer);
    std::vector<unsigned char> Receive();
    ///@}

private:
    struct State;

    explicit CSharedMemoryPipe(std::unique_ptr<State> state);
    [[nodiscard]] std::size_t payloadCapacity() const;
    template <typename Start, typename Append>
    void receiveChunks(const Start& start, const Append& append);

    std::unique_ptr<State> state_;
};

} // namespace VoAlgo
