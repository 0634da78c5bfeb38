#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include "VoAlgorithms/runtime/csharedmemory.h"
#include "platform/namedobjects.h"
#include "runtime/detail_pipeblock.h"
#include "runtime/detail_systemerror.h"
#include "runtime/peer_process.h"

#include <gmock/gmock.h>

#include <atomic>
#include <barrier>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace {

using testing::StartsWith;
using testing::ThrowsMessage;
using VoAlgo::CSharedMemory;
using VoAlgo::CSharedMemoryPipe;
using VoAlgo::PipeBlock;
using VoAlgo::platform::NamedLocks;
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

/// The files of the pipe: block and semaphores.
std::vector<std::string> Files()
{
    const std::string name(Name.begin(), Name.end());
    return {"/dev/shm/" + name, "/dev/shm/Global\\" + name + ".sem.items", "/dev/shm/Global\\" + name + ".sem.spaces"};
}

constexpr unsigned SenderRole = 0, ReceiverRole = 1;

/// The other end of a pipe, chunk by chunk as the layout says. Playing a role keeps the peer waiting; destroying it is
/// what the peer sees of a killed process.
class RawEnd {
public:
    explicit RawEnd(unsigned role) { EXPECT_TRUE(locks_->TryLock(role)); }

    void Put(std::uint32_t first, std::uint32_t bytes, const std::string& payload, PipeBlock::Progress progress)
    {
        TakeSpace();
        notes_->sent = progress;
        std::memcpy(at(0), &first, 4);
        std::memcpy(at(4), &bytes, 4);
        std::memcpy(at(8), payload.data(), payload.size());
        items_->Release();
    }
    void TakeSpace() { EXPECT_TRUE(spaces_->WaitFor(5000)); }
    /// Header words and payload of the chunk in the block, which is kept there.
    std::string Peek()
    {
        EXPECT_TRUE(items_->WaitFor(5000));
        std::uint32_t first = 0, bytes = 0;
        std::memcpy(&first, at(0), 4);
        std::memcpy(&bytes, at(4), 4);
        return std::to_string(first) + " " + std::to_string(bytes) + " " + std::string(at(8), bytes);
    }
    std::string Take()
    {
        std::string text = Peek();
        notes_->taken = notes_->sent;
        spaces_->Release();
        return text;
    }

private:
    [[nodiscard]] char* at(std::size_t offset) const { return static_cast<char*>(view_.get()) + offset; }

    CSharedMemory block_ = CSharedMemory::Open(Name);
    std::shared_ptr<void> view_ = block_.CreateView();
    PipeBlock::Notes* notes_ = reinterpret_cast<PipeBlock::Notes*>(at(block_.Size() - sizeof(PipeBlock::Notes)));
    std::unique_ptr<NamedLocks> locks_ = NamedLocks::Open(Name);
    std::unique_ptr<NamedSemaphore> items_ = NamedSemaphore::Open(L"Global\\" + Name + L".sem.items");
    std::unique_ptr<NamedSemaphore> spaces_ = NamedSemaphore::Open(L"Global\\" + Name + L".sem.spaces");
};

/// Expects a std::runtime_error that ends as stated.
template <typename Action>
void ExpectFails(const Action& action, const std::string& end)
{
    EXPECT_THAT(action, ThrowsMessage<std::runtime_error>(testing::EndsWith(end)));
}

void ExpectPasses(CSharedMemoryPipe& from, CSharedMemoryPipe& to)
{
    std::thread sender([&] { from.Send(Message(99)); });
    EXPECT_EQ(to.Receive(), Message(99));
    sender.join();
}

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
    RawEnd raw(ReceiverRole);
    std::thread sender([&] {
        for (const char* text : {"abc", "", "abcd", "abcde", "abcdefghijk"}) pipe.Send(std::string(text));
    });
    for (const char* chunk : {"1 3 abc", "1 4 abcd", "2 4 abcd", "1 1 e", "3 4 abcd", "1 4 efgh", "2 3 ijk"})
        EXPECT_EQ(raw.Take(), chunk);
    sender.join();
}

// A chunk that cannot be part of the message is refused: nothing is read past the block, nothing hangs, and the next
// message passes. The last three rows are what a killed receiver, a killed sender and a foreign program leave.
TEST(SharedMemoryPipe, ImpossibleChunksAreRefused)
{
    struct Case {
        const char* what;
        bool second; // sent after the full first chunk of a message that claims 2^32 - 1 chunks
        std::uint32_t first, bytes;
        PipeBlock::Progress progress;
    };
    for (const Case& c :
         {Case{"chunk larger than its block", false, 1, 5, {1, 1}},
          Case{"chunk larger than its block", false, 1, 0xffffffff, {1, 1}},
          Case{"chunk larger than its block", true, 1, 5, {1, 2}}, Case{"chunk out of sequence", true, 2, 4, {1, 2}},
          Case{"chunk out of sequence", true, 0, 4, {1, 2}}, Case{"chunk too short", false, 2, 3, {1, 1}},
          Case{"chunk too short", true, 1, 3, {1, 2}}, Case{"chunk too short", false, 1, 0, {1, 1}},
          Case{"message without chunks", false, 0, 0, {1, 1}}, Case{"message without chunks", false, 0, 4, {1, 1}},
          Case{"chunk out of sequence", false, 1, 4, {1, 2}}, Case{"chunk out of sequence", true, 1, 4, {1, 3}},
          Case{"chunk out of sequence", false, 1, 4, {0, 0}}}) {
        auto pipe = CSharedMemoryPipe::Create(Name, 12);
        std::thread foreign([&] {
            RawEnd raw(SenderRole);
            if (c.second) raw.Put(0xffffffff, 4, "abcd", {1, 1});
            raw.Put(c.first, c.bytes, "efgh", c.progress);
            raw.Put(1, 1, "k", {2, 1});
        });
        EXPECT_THAT([&] { (void)pipe.Receive(); },
                    ThrowsMessage<std::invalid_argument>(std::string("shared memory ") + c.what));
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
        RawEnd raw(SenderRole);
        raw.Put(25, 4, "abcd", {1, 1});
        raw.TakeSpace();
        receiver.Kill();
        ExpectNewPairWorks(12);
        ExpectNewPairWorks(40);
    }
    PeerProcess crashed([] {
        auto pipe = CSharedMemoryPipe::Create(Name, 64);
        pipe.Send("x", 1);
        PeerProcess::Say("ready");
        pause();
    });
    EXPECT_EQ(crashed.Line(), "ready");
    auto opened = CSharedMemoryPipe::Open(Name, 64);
    crashed.Kill();
    EXPECT_FALSE(CSharedMemory::Open(Name)); // without a living creator it is none, although the file is there
    EXPECT_EQ(access(Files().front().c_str(), F_OK), 0);
    EXPECT_THROW((void)CSharedMemoryPipe::Open(Name, 64), std::runtime_error);
    ExpectFails([&] { opened.Send("y", 1); }, "the process that created the pipe has gone");
    ExpectNewPairWorks(64);
}

// Otherwise a sender says that it is done, and nobody has the message.
TEST(SharedMemoryPipe, DeliverReturnsWhenTheMessageWasKept)
{
    for (const std::size_t size : {3U, 4U, 11U}) {
        Receiver stopped(12, {size, 1});
        auto sender = CSharedMemoryPipe::Open(Name, 12);
        stopped.Stop();
        std::thread delivering([&] { ExpectFails([&] { sender.Deliver("abcdefghijk", size); }, " has gone"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(30)); // the block is full by then
        stopped.Kill();
        delivering.join();
    }
    auto pipe = CSharedMemoryPipe::Create(Name, 12);
    for (const std::size_t size : {3U, 4U, 11U}) {
        {
            std::thread refusing([&] {
                EXPECT_THROW(pipe.Accept([](const Bytes&) { throw std::logic_error("no"); }), std::logic_error);
            });
            auto sender = CSharedMemoryPipe::Open(Name, 12);
            ExpectFails([&] { sender.Deliver("abcdefghijk", size); }, "the receiver has not taken the message");
            refusing.join();
        }
        std::atomic<bool> kept = false;
        std::thread keeping([&] {
            pipe.Accept([&](const Bytes& message) {
                EXPECT_EQ(message.size(), size);
                std::this_thread::sleep_for(std::chrono::milliseconds(60)); // longer than a sender waits at a time
                kept = true;
            });
        });
        CSharedMemoryPipe::Open(Name, 12).Deliver("abcdefghijk", size);
        EXPECT_TRUE(kept);
        keeping.join();
    }
    PeerProcess dies([&] {
        CSharedMemoryPipe::Open(Name, 12).Accept([](const Bytes&) { _exit(0); }); // with the last chunk in the block
    });
    ExpectFails([&] { pipe.Deliver("abcdefghijk", 11); }, "the receiver has not taken the message");
    ExpectPasses(pipe, pipe);
}

// What a killed process leaves is cleared away, whatever it was doing; a new sender's message never continues the old.
TEST(SharedMemoryPipe, PipeGoesOnAfterTheOtherSideHasGone)
{
    const std::string senderGone = "the sender has gone before the end of its message";
    auto pipe = CSharedMemoryPipe::Create(Name, 12), other = CSharedMemoryPipe::Open(Name, 12);
    RawEnd(SenderRole).TakeSpace(); // and died before it wrote
    ExpectPasses(other, pipe);
    RawEnd(SenderRole).Put(2, 4, "abcd", {2, 1});
    ExpectFails([&] { pipe.Receive(); }, senderGone);
    ExpectPasses(other, pipe);
    std::thread receiver([&] { ExpectFails([&] { pipe.Receive(); }, senderGone); });
    {
        RawEnd killed(SenderRole);
        killed.Put(2, 4, "abcd", {4, 1});
        killed.TakeSpace();
    }
    receiver.join();
    RawEnd(SenderRole).Put(2, 4, "abcd", {5, 1});
    std::thread restarted([&] { other.Send("efgh", 4); }); // would complete the message of two chunks
    ExpectFails([&] { pipe.Receive(); }, senderGone);
    EXPECT_EQ(pipe.Receive(), (Bytes{'e', 'f', 'g', 'h'}));
    restarted.join();

    for (const bool within : {false, true}) { // a receiver that dies in between two chunks, and one while it copies
        std::thread sender(
            [&] { ExpectFails([&] { pipe.Send("abcdefghijk", 11); }, "the receiver has not taken the message"); });
        {
            RawEnd killed(ReceiverRole);
            EXPECT_EQ(within ? killed.Peek() : killed.Take(), "3 4 abcd");
        }
        if (!within) {
            sender.join();
            continue;
        }
        std::thread next([&] { EXPECT_EQ(other.Receive(), Message(99)); }); // comes before the sender has noticed
        sender.join();
        pipe.Send(Message(99));
        next.join();
    }
}

// A block that another process shortens costs the message, not the process.
TEST(SharedMemoryPipe, ShortenedBlocksAreErrors)
{
    for (const off_t length : {0, 10, 100, 5000}) {
        {
            auto receiver = CSharedMemoryPipe::Create(Name, 5000), sender = CSharedMemoryPipe::Open(Name, 5000);
            sender.Send(Message(4000));
            for (const std::string& file : Files()) (void)!truncate(file.c_str(), length); // semaphores cannot be
            EXPECT_THROW((void)receiver.Receive(), std::runtime_error);
            EXPECT_THROW(sender.Send(Message(4000)), std::runtime_error);
        }
        auto pipe = CSharedMemoryPipe::Create(Name, 5000);
        ExpectPasses(pipe, pipe);
    }
}

// Neither a block nor a semaphore that another user has, or may open, is used by creators and openers.
TEST(SharedMemoryPipe, WhatOthersMayOpenIsRefused)
{
    const auto open = [] { (void)CSharedMemoryPipe::Open(Name, 64); };
    for (const std::string& file : Files()) {
        const auto pipe = CSharedMemoryPipe::Create(Name, 64);
        for (const mode_t mode : {0666U, 0640U, 0602U}) {
            EXPECT_EQ(chmod(file.c_str(), mode), 0);
            ExpectFails(open, "Open: Permission denied");
        }
    }
    if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    for (const bool whole : {true, false}) { // pipes and single semaphores
        PeerProcess another([&] {
            if (setuid(65534) != 0) throw std::runtime_error("no other user");
            const auto pipe = whole ? CSharedMemoryPipe::Create(Name, 64) : CSharedMemoryPipe();
            const auto items = whole ? nullptr : NamedSemaphore::Create(L"Global\\" + Name + L".sem.items", 0);
            PeerProcess::Say("ready");
            pause();
        });
        EXPECT_EQ(another.Line(), "ready");
        ExpectFails([] { (void)CSharedMemoryPipe::Create(Name, 64); }, "Create: Permission denied");
        ExpectFails(open, whole ? "Open: Permission denied" : "Open: No such file or directory");
        for (const std::string& file : Files()) unlink(file.c_str());
    }
}

// Each round begins with the remains of a killed creator.
TEST(SharedMemoryPipe, OneOfTwoParallelCreatorsWins)
{
    constexpr int Rounds = 500;
    const std::string block = Files().front(), remains = block + "-remains";
    PeerProcess([&] {
        const auto pipe = CSharedMemoryPipe::Create(Name, 64);
        _exit(rename(block.c_str(), remains.c_str()));
    }).ExitCode();
    std::atomic<int> won = 0;
    std::barrier start(2, [&]() noexcept { EXPECT_EQ(link(remains.c_str(), block.c_str()), 0); });
    std::barrier end(2);
    const auto create = [&] {
        for (int round = 0; round < Rounds; ++round) {
            start.arrive_and_wait();
            CSharedMemoryPipe pipe;
            try {
                pipe = CSharedMemoryPipe::Create(Name, 64);
                ++won;
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "VoAlgo::CSharedMemoryPipe::Create: File exists");
            }
            end.arrive_and_wait();
        }
    };
    std::thread other(create);
    create();
    other.join();
    EXPECT_EQ(won, Rounds);
    unlink(remains.c_str());
}

TEST(SharedMemoryPipe, OnlyTheCreatorRemovesTheNames)
{
    const auto exists = [] { return static_cast<bool>(CSharedMemory::Open(Name)); };
    auto first = CSharedMemoryPipe::Create(Name, 64);
    ExpectFails([] { (void)CSharedMemoryPipe::Create(Name, 64); }, "Create: File exists");
    (void)CSharedMemoryPipe::Open(Name, 64);
    auto opened = CSharedMemoryPipe::Open(Name, 64);
    opened.Send("a", 1);
    EXPECT_EQ(first.Receive(), Bytes{'a'});
    {
        const auto moved = std::move(first);
        first = std::move(opened);
        EXPECT_TRUE(exists());
    }
    EXPECT_FALSE(exists());
    for (const std::string& file : Files()) EXPECT_NE(access(file.c_str(), F_OK), 0) << file;
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
    for (const std::size_t size : {0U, 63U, 65U, 10'000U})
        EXPECT_THROW((void)CSharedMemoryPipe::Open(Name, size), std::invalid_argument) << size;
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
