#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include "VoAlgorithms/runtime/csharedmemory.h"
#include "platform/namedobjects.h"
#include "runtime/detail_systemerror.h"
#include "runtime/peer_process.h"
#include "runtime/pipe_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using testing::StartsWith;
using testing::ThrowsMessage;
using VoAlgo::CSharedMemory;
using VoAlgo::CSharedMemoryPipe;
using VoAlgo::platform::NamedSemaphore;

std::string UniqueName(const std::string& what = "pipe")
{
    return "VoAlgorithms-test-" + what + "-" + std::to_string(getpid());
}

std::wstring Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

std::vector<std::string> Arguments(const char* command, const std::string& name, std::size_t block,
                                   const std::vector<std::size_t>& sizes = {})
{
    std::vector<std::string> arguments = {command, name, std::to_string(block)};
    for (const std::size_t size : sizes) arguments.push_back(std::to_string(size));
    return arguments;
}

struct Receiver : PeerProcess {
    Receiver(const std::string& name, std::size_t block, const std::vector<std::size_t>& sizes)
        : PeerProcess(PIPE_PEER, Arguments("receive", name, block, sizes))
    {
        EXPECT_EQ(Line(), "ready");
    }
};

struct Sender : PeerProcess {
    Sender(const std::string& name, std::size_t block, const std::vector<std::size_t>& sizes)
        : PeerProcess(PIPE_PEER, Arguments("send", name, block, sizes))
    {
    }
};

void ExpectNewPairWorks(const std::string& name, std::size_t block)
{
    Receiver receiver(name, block, {1, 5 * block});
    Sender sender(name, block, {1, 5 * block});
    EXPECT_EQ(sender.ExitCode(), 0);
    EXPECT_EQ(receiver.ExitCode(), 0);
    EXPECT_FALSE(CSharedMemory::Open(Wide(name)));
}

/// The other end of a pipe, chunk by chunk as the layout says.
class RawEnd {
public:
    explicit RawEnd(const std::string& name)
        : view_(CSharedMemory::Open(Wide(name)).CreateView()),
          items_(NamedSemaphore::Open(L"Global\\" + Wide(name) + L".sem.items")),
          spaces_(NamedSemaphore::Open(L"Global\\" + Wide(name) + L".sem.spaces"))
    {
    }

    void Put(std::uint32_t first, std::uint32_t bytes, const std::string& payload)
    {
        spaces_->Wait();
        std::memcpy(At(0), &first, 4);
        std::memcpy(At(4), &bytes, 4);
        std::memcpy(At(8), payload.data(), payload.size());
        items_->Release();
    }

    /// Header words and payload of the chunk in the block.
    std::string Take()
    {
        items_->Wait();
        std::uint32_t first = 0, bytes = 0;
        std::memcpy(&first, At(0), 4);
        std::memcpy(&bytes, At(4), 4);
        std::string text = std::to_string(first) + " " + std::to_string(bytes) + " " + std::string(At(8), bytes);
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
    char* At(std::size_t offset) { return static_cast<char*>(view_.get()) + offset; }

    std::shared_ptr<void> view_;
    std::unique_ptr<NamedSemaphore> items_;
    std::unique_ptr<NamedSemaphore> spaces_;
};

// Catches wrong chunk counts and lengths at the seams; an empty message must leave no trace.
TEST(SharedMemoryPipe, MessagesOfAllLengthsPassBetweenProcesses)
{
    for (const std::size_t block : {9U, 10U, 64U, 5000U}) {
        const std::size_t c = block - 8;
        const std::vector<std::size_t> sent = {0, 1, c - 1, c, 0, c + 1, 3 * c + 7, 0, 1};
        std::vector<std::size_t> received = sent;
        std::erase(received, 0U);
        Receiver receiver(UniqueName(), block, received);
        Sender sender(UniqueName(), block, sent);
        EXPECT_EQ(sender.ExitCode(), 0) << block;
        EXPECT_EQ(receiver.ExitCode(), 0) << block;
    }
}

TEST(SharedMemoryPipe, LargeMessagePassesThroughTheBlockOfTheCases)
{
    constexpr std::size_t BLOCK = 0xa00000, SIZE = 300'000'000;
    Receiver receiver(UniqueName(), BLOCK, {SIZE});
    Sender sender(UniqueName(), BLOCK, {SIZE});
    EXPECT_EQ(sender.ExitCode(), 0);
    EXPECT_EQ(receiver.ExitCode(), 0);
}

TEST(SharedMemoryPipe, TwoPipesDoNotDisturbEachOther)
{
    Receiver one(UniqueName("one"), 32, {100'000, 1, 50'000}), two(UniqueName("two"), 48, {70'000, 80'000});
    Sender first(UniqueName("one"), 32, {100'000, 1, 50'000}), second(UniqueName("two"), 48, {70'000, 80'000});
    EXPECT_EQ(first.ExitCode(), 0);
    EXPECT_EQ(second.ExitCode(), 0);
    EXPECT_EQ(one.ExitCode(), 0);
    EXPECT_EQ(two.ExitCode(), 0);
}

// Headers by hand from the layout: block 12 holds 4 bytes of payload.
TEST(SharedMemoryPipe, ChunksLieInTheBlockAsTheLayoutSays)
{
    auto pipe = CSharedMemoryPipe::Create(Wide(UniqueName()), 12);
    RawEnd raw(UniqueName());
    std::thread sender([&] {
        pipe.Send(std::string("abc"));
        pipe.Send(std::string());
        pipe.Send(std::string("abcd"));
        pipe.Send(std::string("abcde"));
        pipe.Send(std::string("abcdefghijk"));
    });
    for (const char* chunk : {"1 3 abc", "1 4 abcd", "2 4 abcd", "1 1 e", "3 4 abcd", "1 4 efgh", "2 3 ijk"})
        EXPECT_EQ(raw.Take(), chunk);
    sender.join();

    std::thread foreign([&] {
        raw.Put(3, 4, "abcd");
        raw.Put(1, 4, "efgh");
        raw.Put(2, 2, "ij");
        raw.Put(1, 1, "k");
    });
    char buffer[16] = {};
    std::size_t size = 99;
    pipe.Receive(buffer, size);
    EXPECT_EQ(std::string(buffer, size), "abcdefghij");
    std::vector<unsigned char> vector(5, 'z');
    pipe.Receive(vector);
    EXPECT_EQ(vector, std::vector<unsigned char>{'k'});
    foreign.join();
}

// A message comes from outside: what cannot be part of it is refused, nothing is read past the block, nothing hangs,
// and the next message passes.
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
        auto pipe = CSharedMemoryPipe::Create(Wide(UniqueName()), 12);
        RawEnd raw(UniqueName());
        std::thread foreign([&] {
            if (c.second) raw.Put(0xffffffff, 4, "abcd");
            raw.Put(c.first, c.bytes, "efgh");
            raw.Put(1, 1, "k");
        });
        EXPECT_THAT([&] { (void)pipe.Receive(); },
                    ThrowsMessage<std::invalid_argument>(std::string("shared memory chunk ") + c.what));
        EXPECT_EQ(pipe.Receive(), std::vector<unsigned char>{'k'}) << c.what;
        foreign.join();
    }
}

TEST(SharedMemoryPipe, NewPairWorksAfterTheReceiverWasKilledBetweenTwoChunks)
{
    Receiver receiver(UniqueName(), 12, {100});
    RawEnd raw(UniqueName());
    raw.Put(25, 4, "abcd");
    raw.WaitUntilTaken();
    receiver.Kill();
    ExpectNewPairWorks(UniqueName(), 12);
    ExpectNewPairWorks(UniqueName(), 40);
}

TEST(SharedMemoryPipe, NewPairWorksAfterTheSenderWasKilledBetweenTwoChunks)
{
    const auto pipe = CSharedMemoryPipe::Create(Wide(UniqueName()), 12);
    Sender sender(UniqueName(), 12, {100});
    EXPECT_THAT(RawEnd(UniqueName()).Take(), StartsWith("25 4 "));
    sender.Kill();
    ExpectNewPairWorks(UniqueName(), 12); // although an old receiver is still there
}

TEST(SharedMemoryPipe, WaitingReceiverDoesNotTakeANewSendersMessageForTheRestOfTheOld)
{
    Receiver receiver(UniqueName(), 12, {100});
    RawEnd raw(UniqueName());
    raw.Put(25, 4, "abcd");
    raw.Put(1, 1, "x");
    EXPECT_EQ(receiver.Line(), "shared memory chunk too short");
    EXPECT_EQ(receiver.ExitCode(), 3);
}

// The killed creator left a full block and counts 1 and 0.
TEST(SharedMemoryPipe, CreateStartsFreshOnWhatACrashedCreatorLeft)
{
    PeerProcess crashed(PIPE_PEER, Arguments("leave", UniqueName(), 64));
    EXPECT_EQ(crashed.Line(), "ready");
    crashed.Kill();
    EXPECT_TRUE(CSharedMemory::Open(Wide(UniqueName()))); // so there is something to take over
    ExpectNewPairWorks(UniqueName(), 64);
}

TEST(SharedMemoryPipe, NamesGoWithTheirCreatorOnly)
{
    const std::wstring name = Wide(UniqueName());
    const auto there = [&] {
        try {
            (void)CSharedMemoryPipe::Open(name, 64);
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    };
    auto older = CSharedMemoryPipe::Create(name, 64);
    auto newer = CSharedMemoryPipe::Create(name, 64); // takes the name over
    older = CSharedMemoryPipe();
    EXPECT_TRUE(there());
    EXPECT_TRUE(there()); // an opener that goes takes nothing with it
    auto opened = CSharedMemoryPipe::Open(name, 64);
    opened.Send("a", 1);
    EXPECT_EQ(newer.Receive(), std::vector<unsigned char>{'a'});
    const auto moved = std::move(newer);
    EXPECT_TRUE(there());
    newer = std::move(opened);
    {
        const auto gone = CSharedMemoryPipe::Create(Wide(UniqueName("gone")), 64);
    }
    EXPECT_FALSE(CSharedMemory::Open(Wide(UniqueName("gone"))));
}

TEST(SharedMemoryPipe, FailuresSayWhatWasTriedAndWhatTheSystemSaid)
{
    using Text = testing::Matcher<std::string>;
    const auto throwsText = [](const Text& text) { return ThrowsMessage<std::runtime_error>(text); };
    EXPECT_THAT([] { (void)CSharedMemoryPipe::Open(Wide(UniqueName()), 64); },
                throwsText("VoAlgo::CSharedMemoryPipe::Open: No such file or directory"));
    EXPECT_THAT([] { (void)CSharedMemoryPipe::Create(std::wstring(300, L'x'), 64); },
                throwsText(StartsWith("VoAlgo::CSharedMemoryPipe::Create: ")));
    EXPECT_THAT([] { (void)CSharedMemory::Open(Wide(UniqueName())).CreateView(); },
                throwsText("VoAlgo::CSharedMemory::CreateView/MapViewOfFile: No such file or directory"));
    EXPECT_STREQ(VoAlgo::SystemError("F:", 0x12345).what(), "F: failed; Unknown error code 00012345 (74565)");
    // More memory than there is: refused at once, not by a signal at the first write, and no name is left.
    EXPECT_THROW((void)CSharedMemoryPipe::Create(Wide(UniqueName()), std::size_t{1} << 50), std::runtime_error);
    EXPECT_FALSE(CSharedMemory::Open(Wide(UniqueName())));
    // Semaphores whose names are too long for the system, although the block's is not: the block goes again.
    const std::wstring longName = Wide(UniqueName() + std::string(230 - UniqueName().size(), 'x'));
    EXPECT_THROW((void)CSharedMemoryPipe::Create(longName + std::wstring(10, L'y'), 64), std::runtime_error);
    EXPECT_FALSE(CSharedMemory::Open(longName + std::wstring(10, L'y')));
}

TEST(SharedMemoryPipe, UnusablePipesThrow)
{
    const auto tooSmall = ThrowsMessage<std::invalid_argument>(std::string("shared memory buffer too small"));
    CSharedMemoryPipe none;
    EXPECT_THAT([&] { none.Send("a", 1); }, tooSmall);
    EXPECT_THAT([&] { (void)none.Receive(); }, tooSmall);
    for (const std::size_t block : {0U, 1U, 8U}) {
        auto pipe = CSharedMemoryPipe::Create(Wide(UniqueName()), block);
        EXPECT_THAT([&] { pipe.Send("a", 1); }, tooSmall);
        EXPECT_THAT([&] { pipe.Send(std::string()); }, tooSmall);
        EXPECT_THAT([&] { (void)pipe.Receive(); }, tooSmall);
    }
    const auto pipe = CSharedMemoryPipe::Create(Wide(UniqueName()), 64);
    EXPECT_THROW((void)CSharedMemoryPipe::Open(Wide(UniqueName()), 10'000), std::invalid_argument);
}

TEST(SharedMemoryPipe, ThreadsOfOneProcessMayShareAPipe)
{
    auto pipe = CSharedMemoryPipe::Create(Wide(UniqueName()), 64);
    std::thread sender([&] {
        for (std::size_t size = 1; size < 2000; size += 37) pipe.Send(PipeMessage(size));
    });
    for (std::size_t size = 1; size < 2000; size += 37) EXPECT_EQ(pipe.Receive(), PipeMessage(size));
    sender.join();
}

TEST(SharedMemory, ViewOutlivesItsBlockAndNamesStayApart)
{
    const std::wstring name = Wide(UniqueName());
    std::shared_ptr<void> view;
    {
        const auto block = CSharedMemory::Create(name + L"/\x20ac", 3);
        const auto other = CSharedMemory::Create(name + L"%2F\x20ac", 5);
        ASSERT_TRUE(block && other);
        EXPECT_EQ(CSharedMemory::Open(name + L"/\x20ac").Size(), 3U);
        EXPECT_EQ(CSharedMemory::Open(name + L"%2F\x20ac").Size(), 5U);
        view = block.CreateView();
        std::memcpy(CSharedMemory::Open(block.Name()).CreateView().get(), "ab", 3);
    }
    EXPECT_FALSE(CSharedMemory::Open(name + L"/\x20ac"));
    EXPECT_STREQ(static_cast<const char*>(view.get()), "ab");
}

} // namespace
