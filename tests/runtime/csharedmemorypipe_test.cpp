#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include "VoAlgorithms/runtime/csharedmemory.h"
#include "platform/namedobjects.h"
#include "runtime/detail_systemerror.h"
#include "runtime/peer_process.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::StartsWith;
using testing::ThrowsMessage;
using VoAlgo::CSharedMemory;
using VoAlgo::CSharedMemoryPipe;
using VoAlgo::platform::NamedSemaphore;
using Bytes = std::vector<unsigned char>;

const std::wstring Name = L"VoAlgorithms-test-" + std::to_wstring(getpid());

/// The message of a given length that both processes know.
Bytes Message(std::size_t size)
{
    Bytes message(size);
    for (std::size_t i = 0; i < size; ++i) message[i] = static_cast<unsigned char>((i * i + size) >> 2);
    return message;
}

/// A process that creates the pipe and receives these messages.
struct Receiver : PeerProcess {
    Receiver(std::size_t block, const std::vector<std::size_t>& sizes)
        : PeerProcess([&] {
              auto pipe = CSharedMemoryPipe::Create(Name, block);
              Say("ready");
              for (std::size_t size : sizes) {
                  Bytes buffer(size);
                  const Bytes expected = Message(size);
                  pipe.Receive(buffer.data(), size);
                  if (size != expected.size() || buffer != expected) throw std::runtime_error("wrong message");
              }
          })
    {
        EXPECT_EQ(Line(), "ready");
    }
};

void Send(std::size_t block, const std::vector<std::size_t>& sizes)
{
    auto pipe = CSharedMemoryPipe::Open(Name, block);
    for (const std::size_t size : sizes) pipe.Send(Message(size));
}

void ExpectNewPairWorks(std::size_t block)
{
    Receiver receiver(block, {1, 5 * block});
    Send(block, {1, 5 * block});
    EXPECT_EQ(receiver.ExitCode(), 0);
    EXPECT_FALSE(CSharedMemory::Open(Name));
}

/// The other end of a pipe, chunk by chunk as the layout says.
class RawEnd {
public:
    void Put(std::uint32_t first, std::uint32_t bytes, const std::string& payload)
    {
        spaces_->Wait();
        std::memcpy(at(0), &first, 4);
        std::memcpy(at(4), &bytes, 4);
        std::memcpy(at(8), payload.data(), payload.size());
        items_->Release();
    }
    /// Header words and payload of the chunk in the block.
    std::string Take()
    {
        items_->Wait();
        std::uint32_t first = 0, bytes = 0;
        std::memcpy(&first, at(0), 4);
        std::memcpy(&bytes, at(4), 4);
        std::string text = std::to_string(first) + " " + std::to_string(bytes) + " " + std::string(at(8), bytes);
        spaces_->Release();
        return text;
    }
    /// Returns when the other end has taken the last chunk.
    void WaitUntilTaken()
    {
        spaces_->Wait();
        spaces_->Release();
    }

private:
    [[nodiscard]] char* at(std::size_t offset) const { return static_cast<char*>(view_.get()) + offset; }

    std::shared_ptr<void> view_ = CSharedMemory::Open(Name).CreateView();
    std::unique_ptr<NamedSemaphore> items_ = NamedSemaphore::Open(L"Global\\" + Name + L".sem.items");
    std::unique_ptr<NamedSemaphore> spaces_ = NamedSemaphore::Open(L"Global\\" + Name + L".sem.spaces");
};

// Catches wrong chunk counts and lengths at the chunk borders; an empty message must leave no trace. The last block has
// the size used for cases.
TEST(SharedMemoryPipe, MessagesOfAllLengthsPassBetweenProcesses)
{
    for (const std::size_t block : {9U, 10U, 64U, 5000U, 0xa00000U}) {
        const std::size_t c = block - 8;
        Receiver receiver(block, {1, c, c + 1, 3 * c + 7, 1});
        Send(block, {0, 1, c, 0, c + 1, 3 * c + 7, 0, 1});
        EXPECT_EQ(receiver.ExitCode(), 0) << block;
    }
}

// Headers worked out by hand from the layout: a block of 12 bytes holds 4 bytes of payload.
TEST(SharedMemoryPipe, ChunksLieInTheBlockAsTheLayoutSays)
{
    auto pipe = CSharedMemoryPipe::Create(Name, 12);
    RawEnd raw;
    std::thread sender([&] {
        for (const char* text : {"abc", "", "abcd", "abcde", "abcdefghijk"}) pipe.Send(std::string(text));
    });
    for (const char* chunk : {"1 3 abc", "1 4 abcd", "2 4 abcd", "1 1 e", "3 4 abcd", "1 4 efgh", "2 3 ijk"})
        EXPECT_EQ(raw.Take(), chunk);
    sender.join();
}

// A chunk that cannot be part of the message, such as the first one of a new sender, is refused: nothing is read past
// the block, nothing hangs, and the next message passes.
TEST(SharedMemoryPipe, ImpossibleChunksAreRefused)
{
    struct Case {
        const char* what;
        bool second; // sent after the full first chunk of a message that claims 2^32 - 1 chunks
        std::uint32_t first, bytes;
    };
    for (const Case& c :
         {Case{"larger than its block", false, 1, 5}, Case{"larger than its block", false, 1, 0xffffffff},
          Case{"larger than its block", true, 1, 5}, Case{"out of sequence", true, 2, 4},
          Case{"out of sequence", true, 0, 4}, Case{"too short", false, 2, 3}, Case{"too short", true, 1, 3}}) {
        auto pipe = CSharedMemoryPipe::Create(Name, 12);
        RawEnd raw;
        std::thread foreign([&] {
            if (c.second) raw.Put(0xffffffff, 4, "abcd");
            raw.Put(c.first, c.bytes, "efgh");
            raw.Put(1, 1, "k");
        });
        EXPECT_THAT([&] { (void)pipe.Receive(); },
                    ThrowsMessage<std::invalid_argument>(std::string("shared memory chunk ") + c.what));
        Bytes next(5, 'z');
        pipe.Receive(next);
        EXPECT_EQ(next, Bytes{'k'}) << c.what;
        foreign.join();
    }
}

// A killed receiver, a killed sender whose receiver still waits, and a killed creator that left a full block.
TEST(SharedMemoryPipe, NewPairWorksAfterAPeerWasKilled)
{
    {
        Receiver receiver(12, {100});
        RawEnd raw;
        raw.Put(25, 4, "abcd");
        raw.WaitUntilTaken();
        receiver.Kill();
        ExpectNewPairWorks(12);
        ExpectNewPairWorks(40);
    }
    {
        const auto pipe = CSharedMemoryPipe::Create(Name, 12);
        PeerProcess sender([] { Send(12, {100}); });
        EXPECT_THAT(RawEnd().Take(), StartsWith("25 4 "));
        sender.Kill();
        ExpectNewPairWorks(12);
    }
    PeerProcess crashed([] {
        auto pipe = CSharedMemoryPipe::Create(Name, 64);
        pipe.Send("x", 1);
        PeerProcess::Say("ready");
        pause();
    });
    EXPECT_EQ(crashed.Line(), "ready");
    crashed.Kill();
    EXPECT_TRUE(CSharedMemory::Open(Name)); // so there is something to take over
    ExpectNewPairWorks(64);
}

TEST(SharedMemoryPipe, OnlyTheCreatorRemovesTheNames)
{
    const auto exists = [] { return static_cast<bool>(CSharedMemory::Open(Name)); };
    auto older = CSharedMemoryPipe::Create(Name, 64);
    auto newer = CSharedMemoryPipe::Create(Name, 64); // takes the name over
    older = CSharedMemoryPipe();
    EXPECT_TRUE(exists());
    (void)CSharedMemoryPipe::Open(Name, 64);
    auto opened = CSharedMemoryPipe::Open(Name, 64);
    opened.Send("a", 1);
    EXPECT_EQ(newer.Receive(), Bytes{'a'});
    {
        const auto moved = std::move(newer);
        newer = std::move(opened);
        EXPECT_TRUE(exists());
    }
    EXPECT_FALSE(exists());
    EXPECT_THROW((void)CSharedMemoryPipe::Open(Name, 64), std::runtime_error);
}

TEST(SharedMemoryPipe, FailuresSayWhatWasTriedAndWhatTheSystemSaid)
{
    using Text = testing::Matcher<std::string>;
    const auto throwsText = [](const Text& text) { return ThrowsMessage<std::runtime_error>(text); };
    EXPECT_THAT([] { (void)CSharedMemoryPipe::Open(Name, 64); },
                throwsText("VoAlgo::CSharedMemoryPipe::Open: No such file or directory"));
    EXPECT_THAT([] { (void)CSharedMemoryPipe::Create(std::wstring(300, L'x'), 64); },
                throwsText(StartsWith("VoAlgo::CSharedMemoryPipe::Create: ")));
    EXPECT_THAT([] { (void)CSharedMemory::Open(Name).CreateView(); },
                throwsText("VoAlgo::CSharedMemory::CreateView/MapViewOfFile: No such file or directory"));
    EXPECT_STREQ(VoAlgo::SystemError("F:", 0x12345).what(), "F: failed; Unknown error code 00012345 (74565)");
    // More memory than the machine has is refused at once, not by a signal at the first write. Then the names of the
    // semaphores are too long for the system, although that of the block is not. No name is left behind.
    const std::wstring longName = Name + std::wstring(240 - Name.size(), L'x');
    EXPECT_THROW((void)CSharedMemoryPipe::Create(Name, std::size_t{1} << 50), std::runtime_error);
    EXPECT_THROW((void)CSharedMemoryPipe::Create(longName, 64), std::runtime_error);
    EXPECT_FALSE(CSharedMemory::Open(Name) || CSharedMemory::Open(longName));
}

TEST(SharedMemoryPipe, UnusablePipesThrow)
{
    const auto tooSmall = ThrowsMessage<std::invalid_argument>(std::string("shared memory buffer too small"));
    const auto expectUnusable = [&](CSharedMemoryPipe pipe) {
        EXPECT_THAT([&] { pipe.Send("a", 1); }, tooSmall);
        EXPECT_THAT([&] { pipe.Send(std::string()); }, tooSmall);
        EXPECT_THAT([&] { (void)pipe.Receive(); }, tooSmall);
    };
    expectUnusable({});
    for (const std::size_t block : {0U, 1U, 8U}) expectUnusable(CSharedMemoryPipe::Create(Name, block));
    const auto pipe = CSharedMemoryPipe::Create(Name, 64);
    EXPECT_THROW((void)CSharedMemoryPipe::Open(Name, 10'000), std::invalid_argument);
}

TEST(SharedMemoryPipe, ThreadsOfOneProcessMayShareTwoPipes)
{
    auto one = CSharedMemoryPipe::Create(Name, 64), two = CSharedMemoryPipe::Create(Name + L"2", 48);
    const auto sendAll = [](CSharedMemoryPipe& pipe) {
        for (std::size_t size = 1; size < 2000; size += 37) pipe.Send(Message(size));
    };
    std::thread first(sendAll, std::ref(one)), second(sendAll, std::ref(two));
    for (std::size_t size = 1; size < 2000; size += 37)
        for (CSharedMemoryPipe* pipe : {&one, &two}) EXPECT_EQ(pipe->Receive(), Message(size));
    first.join();
    second.join();
}

TEST(SharedMemory, ViewOutlivesItsBlockAndSimilarNamesDiffer)
{
    const std::wstring slash = Name + L"/\x20ac", escaped = Name + L"%2F\x20ac";
    std::shared_ptr<void> view;
    {
        const auto block = CSharedMemory::Create(slash, 3), other = CSharedMemory::Create(escaped, 5);
        EXPECT_EQ(CSharedMemory::Open(slash).Size(), 3U);
        EXPECT_EQ(CSharedMemory::Open(escaped).Size(), 5U);
        view = block.CreateView();
        std::memcpy(CSharedMemory::Open(block.Name()).CreateView().get(), "ab", 3);
    }
    EXPECT_FALSE(CSharedMemory::Open(slash));
    EXPECT_STREQ(static_cast<const char*>(view.get()), "ab");
}

} // namespace
