#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include "runtime/detail_pipeblock.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace VoAlgo {

namespace {

using platform::NamedSemaphore;
using Progress = PipeBlock::Progress;

struct ChunkHeader {
    std::uint32_t countOrIndex; // of the first chunk: the number of chunks; of a later one: its index
    std::uint32_t bytes;
};
static_assert(sizeof(ChunkHeader) == 8);

constexpr std::uint64_t MaxWord = std::numeric_limits<std::uint32_t>::max();
// The number of chunks comes from another process: beyond this, memory grows as the bytes arrive.
constexpr std::size_t MaxReserved = std::size_t{1} << 30;
// Bytes pass between block and message through a small buffer: the system is slow at memory that it has not used yet,
// and a vector grows without being zeroed first.
constexpr std::size_t PieceBytes = 0x10000;

constexpr const char* SendFunction = "VoAlgo::CSharedMemoryPipe::Send:";
constexpr const char* ReceiveFunction = "VoAlgo::CSharedMemoryPipe::Receive:";

/// The token of the block; a semaphore gets it on destruction.
class BlockToken {
public:
    explicit BlockToken(NamedSemaphore& next) : next_(&next) {}
    BlockToken(const BlockToken&) = delete;
    BlockToken& operator=(const BlockToken&) = delete;
    ~BlockToken() { next_->Release(); }

    void SetNext(NamedSemaphore& semaphore) { next_ = &semaphore; }

private:
    NamedSemaphore* next_;
};

void WriteChunk(PipeBlock& block, std::vector<unsigned char>& piece, const ChunkHeader& header,
                const unsigned char* payload)
{
    std::memcpy(piece.data(), &header, sizeof(header));
    std::size_t filled = sizeof(header), to = 0;
    for (std::size_t done = 0; done < header.bytes; filled = 0) {
        const std::size_t now = std::min(piece.size() - filled, header.bytes - done);
        std::memcpy(piece.data() + filled, payload + done, now);
        block.Write(to, piece.data(), filled + now, SendFunction);
        to += filled + now;
        done += now;
    }
}

/// Throws when the chunk cannot be part of a message of that many chunks.
void CheckHeader(const ChunkHeader& header, std::uint32_t index, std::uint32_t chunks, std::size_t capacity)
{
    if (chunks == 0) throw std::invalid_argument("shared memory message without chunks");
    if (header.bytes > capacity) throw std::invalid_argument("shared memory chunk larger than its block");
    if (index != 0 && header.countOrIndex != index) throw std::invalid_argument("shared memory chunk out of sequence");
    if (header.bytes == 0 || (index + 1 < chunks && header.bytes != capacity))
        throw std::invalid_argument("shared memory chunk too short");
}

} // namespace

struct CSharedMemoryPipe::State {
    std::unique_ptr<PipeBlock> block;
    ///@{
    /// Keep two threads of this process from using one end at once.
    std::mutex sender = {};
    std::mutex receiver = {};
    ///@}
};

CSharedMemoryPipe::CSharedMemoryPipe() = default;
CSharedMemoryPipe::CSharedMemoryPipe(std::unique_ptr<State> state) : state_(std::move(state)) {}
CSharedMemoryPipe::CSharedMemoryPipe(CSharedMemoryPipe&& other) noexcept = default;
CSharedMemoryPipe& CSharedMemoryPipe::operator=(CSharedMemoryPipe&& other) noexcept = default;
CSharedMemoryPipe::~CSharedMemoryPipe() = default;

CSharedMemoryPipe CSharedMemoryPipe::Create(const std::wstring& name, std::size_t size)
{
    auto block = PipeBlock::Create(name, size, "VoAlgo::CSharedMemoryPipe::Create:");
    return CSharedMemoryPipe(std::unique_ptr<State>(new State{std::move(block)}));
}

CSharedMemoryPipe CSharedMemoryPipe::Open(const std::wstring& name, std::size_t size)
{
    auto block = PipeBlock::Open(name, size, "VoAlgo::CSharedMemoryPipe::Open:");
    return CSharedMemoryPipe(std::unique_ptr<State>(new State{std::move(block)}));
}

/// Payload bytes of a full chunk.
std::size_t CSharedMemoryPipe::payloadCapacity() const
{
    if (!state_ || state_->block->Size() <= sizeof(ChunkHeader))
        throw std::invalid_argument("shared memory buffer too small");
    return state_->block->Size() - sizeof(ChunkHeader);
}

/// `confirmed`: waits until the receiver has kept the last chunk, too.
void CSharedMemoryPipe::send(const void* data, std::size_t size, bool confirmed)
{
    const std::size_t capacity = payloadCapacity();
    const std::size_t chunks = size / capacity + (size % capacity != 0 ? 1 : 0);
    if (chunks > MaxWord || std::min(size, capacity) > MaxWord)
        throw std::length_error("message too long for the shared memory pipe");
    if (chunks == 0) return;

    PipeBlock& block = *state_->block;
    const std::lock_guard threads(state_->sender);
    std::vector<unsigned char> piece(std::min({size + sizeof(ChunkHeader), block.Size(), PieceBytes}));
    const HeldLock sender = block.BeginSending(SendFunction);
    std::uint64_t number = 0;
    for (std::size_t i = 0;; ++i) {
        {
            BlockToken token(block.Spaces());
            const PipeBlock::Notes notes = block.ReadNotes(SendFunction);
            if (i == 0)
                number = notes.sent.message + 1;
            else if (notes.taken != Progress{number, i})
                throw std::runtime_error(std::string(SendFunction) + " the receiver has not taken the message");
            if (i == chunks) return;
            // The notes first: when the block is shortened at any time between, they are lost, so that nothing else
            // can be lost unnoticed.
            block.WriteSent({number, i + 1}, SendFunction);
            const std::size_t offset = i * capacity, bytes = std::min(capacity, size - offset);
            WriteChunk(block, piece,
                       {static_cast<std::uint32_t>(i == 0 ? chunks : i), static_cast<std::uint32_t>(bytes)},
                       static_cast<const unsigned char*>(data) + offset);
            token.SetNext(block.Items());
        }
        if (i + 1 == chunks && !confirmed) return;
        if (block.AwaitSpace(i + 1)) continue;
        if (block.ReadNotes(SendFunction).taken == Progress{number, chunks}) return; // kept, then closed
        throw std::runtime_error(std::string(SendFunction) + " the receiver has gone");
    }
}

/// Receives the chunks of one message: calls start(number of chunks), then append(bytes, number of bytes) for the
/// pieces of each payload, and in the end keep(). The sender learns that a chunk was taken when they have returned.
template <typename Start, typename Append, typename Keep>
void CSharedMemoryPipe::receiveChunks(const Start& start, const Append& append, const Keep& keep)
{
    const std::size_t capacity = payloadCapacity();
    PipeBlock& block = *state_->block;
    const std::lock_guard threads(state_->receiver);
    std::vector<unsigned char> piece(std::min(capacity, PieceBytes));
    const HeldLock receiver = block.BeginReceiving(ReceiveFunction);
    std::uint64_t number = 0;
    std::uint32_t chunks = 1;
    for (std::uint32_t index = 0; index < chunks; ++index) {
        if (index != 0) block.AwaitItem(ReceiveFunction);
        BlockToken token(block.Spaces());
        const Progress sent = block.ReadNotes(ReceiveFunction).sent;
        ChunkHeader header; // a copy: the peer cannot change it after the checks
        block.Read(0, &header, sizeof(header), ReceiveFunction);
        if (index == 0) {
            number = sent.message;
            chunks = header.countOrIndex;
        }
        if (sent.message != number) { // of another sender
            token.SetNext(block.Items());
            throw std::runtime_error(std::string(ReceiveFunction) +
                                     " the sender has gone before the end of its message");
        }
        if (sent.chunks != index + 1ULL) throw std::invalid_argument("shared memory chunk out of sequence");
        CheckHeader(header, index, chunks, capacity);
        if (index == 0) start(chunks);
        for (std::size_t done = 0; done < header.bytes; done += piece.size()) {
            const std::size_t now = std::min(piece.size(), header.bytes - done);
            block.Read(sizeof(header) + done, piece.data(), now, ReceiveFunction);
            append(piece.data(), now);
        }
        if (index + 1 == chunks) keep();
        block.WriteTaken({number, index + 1ULL}, ReceiveFunction);
    }
}

void CSharedMemoryPipe::Receive(void* buffer, std::size_t& size)
{
    size = 0;
    receiveChunks([](std::uint32_t) {},
                  [&](const unsigned char* payload, std::size_t bytes) {
                      std::memcpy(static_cast<unsigned char*>(buffer) + size, payload, bytes);
                      size += bytes;
                  },
                  [] {});
}

template <typename Keep>
void CSharedMemoryPipe::receiveVector(std::vector<unsigned char>& buffer, const Keep& keep)
{
    const std::size_t capacity = payloadCapacity();
    receiveChunks(
        [&](std::uint32_t chunks) {
            buffer.clear();
            buffer.reserve(chunks <= MaxReserved / capacity ? capacity * chunks : MaxReserved);
        },
        [&](const unsigned char* payload, std::size_t bytes) { buffer.insert(buffer.end(), payload, payload + bytes); },
        keep);
}

void CSharedMemoryPipe::Receive(std::vector<unsigned char>& buffer)
{
    receiveVector(buffer, [] {});
}

std::vector<unsigned char> CSharedMemoryPipe::Receive()
{
    std::vector<unsigned char> buffer;
    Receive(buffer);
    return buffer;
}

void CSharedMemoryPipe::Accept(const std::function<void(const std::vector<unsigned char>&)>& keep)
{
    std::vector<unsigned char> buffer;
    receiveVector(buffer, [&] { keep(buffer); });
}

} // namespace VoAlgo
