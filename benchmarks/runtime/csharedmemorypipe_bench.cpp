// Sends a message as large as a big case through the block used for cases, compared with the two copies that it needs.
#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t BLOCK = 0xa00000, SIZE = 300'000'000;

// Sender and receiver each have their own view and their own buffer, touched beforehand; wall time from the first byte
// sent to the last one received.
void BM_PipeMessage(benchmark::State& state)
{
    const std::wstring name = L"VoAlgorithms-bench-" + std::to_wstring(std::random_device()());
    auto receiver = VoAlgo::CSharedMemoryPipe::Create(name, BLOCK);
    auto sender = VoAlgo::CSharedMemoryPipe::Open(name, BLOCK);
    const std::vector<unsigned char> message(SIZE, 1);
    std::vector<unsigned char> buffer(SIZE, 2);
    for (auto _ : state) {
        std::thread other([&] { sender.Send(message); });
        std::size_t size = 0;
        receiver.Receive(buffer.data(), size);
        other.join();
    }
    if (buffer != message) state.SkipWithError("wrong bytes");
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(SIZE));
}
BENCHMARK(BM_PipeMessage)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// Copies the same bytes into a block and out again, piece by piece, on one thread.
void BM_TwoCopies(benchmark::State& state)
{
    const std::vector<unsigned char> message(SIZE, 1);
    std::vector<unsigned char> block(BLOCK, 3), buffer(SIZE, 2);
    for (auto _ : state)
        for (std::size_t offset = 0; offset < SIZE; offset += BLOCK) {
            const std::size_t bytes = std::min(BLOCK, SIZE - offset);
            std::memcpy(block.data(), message.data() + offset, bytes);
            benchmark::ClobberMemory();
            std::memcpy(buffer.data() + offset, block.data(), bytes);
            benchmark::ClobberMemory();
        }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(SIZE));
}
BENCHMARK(BM_TwoCopies)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

} // namespace
