#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include "VoAlgorithms/runtime/csharedmemory.h"
#include "runtime/detail_systemerror.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <utility>

namespace VoAlgo {

namespace {

using platform::NamedSemaphore;

struct ChunkHeader {
    std::uint32_t countOrIndex; // of the first chunk: the number of chunks; of a later one: its index
    std::uint32_t bytes;
};
static_assert(sizeof(ChunkHeader) == 8);

constexpr std::uint64_t MaxWord = std::numeric_limits<std::uint32_t>::max();
// The number of chunks comes from another process: beyond this, memory grows as the bytes arrive.
constexpr std::size_t MaxReserved = std::size_t{1} << 30;

std::wstring ItemsName(const std::wstring& name)
{
    return L"Global\\" + name + L".sem.items";
}

std::wstring SpacesName(const std::wstring& name)
{
    return L"Global\\" + name + L".sem.spaces";
}

/// Passes the object on; throws when the system refused it.
template <typename Object>
Object Checked(Object object, const char* function)
{
    if (!object) throw SystemError(function);
    return object;
}

class ReleaseOnExit {
public:
    explicit ReleaseOnExit(NamedSemaphore& semaphore) : semaphore_(semaphore) {}
    ReleaseOnExit(const ReleaseOnExit&) = delete;
    ReleaseOnExit& operator=(const ReleaseOnExit&) = delete;
    ~ReleaseOnExit() { semaphore_.Release(); }

private:
    NamedSemaphore& semaphore_;
};

} // namespace

struct CSharedMemoryPipe::State {
    State(std::size_t size, CSharedMemory&& memory, std::unique_ptr<NamedSemaphore> full,
          std::unique_ptr<NamedSemaphore> empty)
        : blockSize(size), block(std::move(memory)), items(std::move(full)), spaces(std::move(empty)),
          view(block.CreateView())
    {
    }

    [[nodiscard]] unsigned char* Bytes() const { return static_cast<unsigned char*>(view.get()); }

    std::size_t blockSize;
    CSharedMemory block;
    std::unique_ptr<NamedSemaphore> items;
    std::unique_ptr<NamedSemaphore> spaces;
    std::mutex mutex; // keeps two threads of this process from using the block at once
    std::shared_ptr<void> view;
};

CSharedMemoryPipe::CSharedMemoryPipe() = default;
CSharedMemoryPipe::CSharedMemoryPipe(std::unique_ptr<State> state) : state_(std::move(state)) {}
CSharedMemoryPipe::CSharedMemoryPipe(CSharedMemoryPipe&& other) noexcept = default;
CSharedMemoryPipe& CSharedMemoryPipe::operator=(CSharedMemoryPipe&& other) noexcept = default;
CSharedMemoryPipe::~CSharedMemoryPipe() = default;

CSharedMemoryPipe CSharedMemoryPipe::Create(const std::wstring& name, std::size_t size)
{
    constexpr const char* Function = "VoAlgo::CSharedMemoryPipe::Create:";
    auto block = Checked(CSharedMemory::Create(name, size), Function);
    auto items = Checked(NamedSemaphore::Create(ItemsName(name), 0), Function);
    auto spaces = Checked(NamedSemaphore::Create(SpacesName(name), 1), Function);
    return CSharedMemoryPipe(std::make_unique<State>(size, std::move(block), std::move(items), std::move(spaces)));
}

CSharedMemoryPipe CSharedMemoryPipe::Open(const std::wstring& name, std::size_t size)
{
    constexpr const char* Function = "VoAlgo::CSharedMemoryPipe::Open:";
    auto block = Checked(CSharedMemory::Open(name), Function);
    auto items = Checked(NamedSemaphore::Open(ItemsName(name)), Function);
    auto spaces = Checked(NamedSemaphore::Open(SpacesName(name)), Function);
    if (block.Size() < size) throw std::invalid_argument("shared memory block smaller than stated");
    return CSharedMemoryPipe(std::make_unique<State>(size, std::move(block), std::move(items), std::move(spaces)));
}

/// Payload bytes of a full chunk.
std::size_t CSharedMemoryPipe::payloadCapacity() const
{
    if (!state_ || state_->blockSize <= sizeof(ChunkHeader))
        throw std::invalid_argument("shared memory buffer too small");
    return state_->blockSize - sizeof(ChunkHeader);
}

void CSharedMemoryPipe::Send(const void* data, std::size_t size)
{
    const std::size_t capacity = payloadCapacity();
    const std::size_t chunks = size / capacity + (size % capacity != 0 ? 1 : 0);
    if (chunks > MaxWord || std::min(size, capacity) > MaxWord)
        throw std::length_error("message too long for the shared memory pipe");

    const auto* message = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < chunks; ++i) {
        const std::size_t offset = i * capacity, bytes = std::min(capacity, size - offset);
        const ChunkHeader header = {static_cast<std::uint32_t>(i == 0 ? chunks : i), static_cast<std::uint32_t>(bytes)};
        state_->spaces->Wait();
        {
            const std::lock_guard lock(state_->mutex);
            std::memcpy(state_->Bytes(), &header, sizeof(header));
            std::memcpy(state_->Bytes() + sizeof(header), message + offset, bytes);
        }
        state_->items->Release();
    }
}

/// Receives the chunks of one message: calls start(number of chunks), then append(payload, bytes) for each.
template <typename Start, typename Append>
void CSharedMemoryPipe::receiveChunks(const Start& start, const Append& append)
{
    const std::size_t capacity = payloadCapacity();
    std::uint32_t chunks = 0;
    for (std::uint32_t index = 0; index == 0 || index < chunks; ++index) {
        state_->items->Wait();
        const ReleaseOnExit release(*state_->spaces); // after the lock
        const std::lock_guard lock(state_->mutex);
        ChunkHeader header; // a copy: the peer cannot change it after the checks
        std::memcpy(&header, state_->Bytes(), sizeof(header));
        if (index == 0) chunks = header.countOrIndex;
        if (header.bytes > capacity) throw std::invalid_argument("shared memory chunk larger than its block");
        if (index != 0 && header.countOrIndex != index)
            throw std::invalid_argument("shared memory chunk out of sequence");
        if (index + 1 < chunks && header.bytes != capacity)
            throw std::invalid_argument("shared memory chunk too short");
        if (index == 0) start(chunks);
        append(state_->Bytes() + sizeof(header), header.bytes);
    }
}

void CSharedMemoryPipe::Receive(void* buffer, std::size_t& size)
{
    size = 0;
    receiveChunks([](std::uint32_t) {},
                  [&](const unsigned char* payload, std::size_t bytes) {
                      std::memcpy(static_cast<unsigned char*>(buffer) + size, payload, bytes);
                      size += bytes;
                  });
}

void CSharedMemoryPipe::Receive(std::vector<unsigned char>& buffer)
{
    const std::size_t capacity = payloadCapacity();
    receiveChunks(
        [&](std::uint32_t chunks) {
            buffer.clear();
            buffer.reserve(chunks <= MaxReserved / capacity ? capacity * chunks : MaxReserved);
        },
        [&](const unsigned char* payload, std::size_t bytes) {
            buffer.insert(buffer.end(), payload, payload + bytes);
        });
}

std::vector<unsigned char> CSharedMemoryPipe::Receive()
{
    std::vector<unsigned char> buffer;
    Receive(buffer);
    return buffer;
}

} // namespace VoAlgo
