#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include "runtime/detail_pipeblock.h"

#include <algorithm>
#include <cstdint>
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
            const std::size_t offset = i * capacity, bytes = std::min(capacity, size - offset);
            const ChunkHeader header = {static_cast<std::uint32_t>(i == 0 ? chunks : i),
                                        static_cast<std::uint32_t>(bytes)};
            // The notes first: a block that is shortened at any time between loses them, so nothing else goes
            // unnoticed.
            block.WriteSent({number, i + 1}, SendFunction);
            block.Write(0, &header, sizeof(header), SendFunction);
            block.Write(sizeof(header), static_cast<const unsigned char*>(data) + offset, bytes, SendFunction);
            token.SetNext(block.Items());
        }
        if (i + 1 == chunks && !confirmed) return;
        if (block.AwaitSpace(i + 1)) continue;
        if (block.ReadNotes(SendFunction).taken == Progress{number, chunks}) return; // kept, then closed
        throw std::runtime_error(std::string(SendFunction) + " the receiver has gone");
    }
}

/// Receives the chunks of one message: calls start(number of chunks), then append(bytes) to get the place for the
/// payload of each, and in the end keep(). The sender learns that the chunk was taken when they have returned.
template <typename Start, typename Append, typename Keep>
void CSharedMemoryPipe::receiveChunks(const Start& start, const Append& append, const Keep& keep)
{
    const std::size_t capacity = payloadCapacity();
    PipeBlock& block = *state_->block;
    const std::lock_guard threads(state_->receiver);
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
        if (chunks == 0) throw std::invalid_argument("shared memory message without chunks");
        if (header.bytes > capacity) throw std::invalid_argument("shared memory chunk larger than its block");
        if (sent.chunks != index + 1ULL || (index != 0 && header.countOrIndex != index))
            throw std::invalid_argument("shared memory chunk out of sequence");
        if (header.bytes == 0 || (index + 1 < chunks && header.bytes != capacity))
            throw std::invalid_argument("shared memory chunk too short");
        if (index == 0) start(chunks);
        block.Read(sizeof(header), append(header.bytes), header.bytes, ReceiveFunction);
        if (index + 1 == chunks) keep();
        block.WriteTaken({number, index + 1ULL}, ReceiveFunction);
    }
}

void CSharedMemoryPipe::Receive(void* buffer, std::size_t& size)
{
    size = 0;
    receiveChunks([](std::uint32_t) {},
                  [&](std::size_t bytes) {
                      unsigned char* place = static_cast<unsigned char*>(buffer) + size;
                      size += bytes;
                      return place;
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
        [&](std::size_t bytes) {
            buffer.resize(buffer.size() + bytes);
            return buffer.data() + (buffer.size() - bytes);
        },
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
