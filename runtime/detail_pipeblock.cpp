#include "runtime/detail_pipeblock.h"

#include "runtime/detail_systemerror.h"

#include <chrono>
#include <limits>
#include <stdexcept>
#include <thread>

namespace VoAlgo {

namespace {

using platform::NamedLocks;
using platform::NamedMapping;
using platform::NamedSemaphore;

// Held by a sender from before it takes the token until its message has ended, and by a receiver for a whole message.
constexpr unsigned SenderLock = 0, ReceiverLock = 1;
// After this time, a wait looks whether the other side is still there. One that is not within a message then gives up
// its lock for the pause, so that the other side can restore the token of a process that was killed.
constexpr unsigned WaitMs = 20, PauseMs = 2;
// A multiple of what systems round memory up to, so that all of them know the block's exact size.
constexpr std::size_t Page = 4096;

constexpr const char* CreatorGone = "the process that created the pipe has gone";

/// Bytes of the block with its notes. A size that no memory can hold stays one.
std::size_t WithNotes(std::size_t size)
{
    constexpr std::size_t Max = std::numeric_limits<std::size_t>::max();
    if (size > Max - Page - sizeof(PipeBlock::Notes)) return Max;
    return (size + sizeof(PipeBlock::Notes) + Page - 1) / Page * Page;
}

std::size_t NotesOffset(std::size_t size)
{
    return WithNotes(size) - sizeof(PipeBlock::Notes);
}

std::runtime_error Failure(const char* function, const char* what)
{
    return std::runtime_error(std::string(function) + " " + what);
}

/// Passes the object on; throws when the system refused it.
template <typename Object>
Object Checked(Object object, const char* function)
{
    if (!object) throw SystemError(function);
    return object;
}

std::wstring ItemsName(const std::wstring& name)
{
    return L"Global\\" + name + L".sem.items";
}

std::wstring SpacesName(const std::wstring& name)
{
    return L"Global\\" + name + L".sem.spaces";
}

/// Only certain while nobody else can take from the semaphore.
bool IsZero(NamedSemaphore& semaphore)
{
    if (!semaphore.WaitFor(0)) return true;
    semaphore.Release();
    return false;
}

void Pause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(PauseMs));
}

} // namespace

std::unique_ptr<PipeBlock> PipeBlock::Create(const std::wstring& name, std::size_t size, const char* function)
{
    std::unique_ptr<PipeBlock> block(new PipeBlock);
    block->size_ = size;
    block->mapping_ = Checked(NamedMapping::Create(name, WithNotes(size)), function);
    block->items_ = Checked(NamedSemaphore::Create(ItemsName(name), 0), function);
    block->spaces_ = Checked(NamedSemaphore::Create(SpacesName(name), 1), function);
    block->openLocks(name, function);
    const std::uint64_t complete = size;
    block->Write(NotesOffset(size), &complete, sizeof(complete), function);
    return block;
}

std::unique_ptr<PipeBlock> PipeBlock::Open(const std::wstring& name, std::size_t size, const char* function)
{
    std::unique_ptr<PipeBlock> block(new PipeBlock);
    block->size_ = size;
    block->mapping_ = Checked(NamedMapping::Open(name), function);
    block->items_ = Checked(NamedSemaphore::Open(ItemsName(name)), function);
    block->spaces_ = Checked(NamedSemaphore::Open(SpacesName(name)), function);
    block->openLocks(name, function);
    const bool ofThisSize = block->mapping_->Size() == WithNotes(size);
    const std::uint64_t stated = ofThisSize ? block->ReadNotes(function).blockSize : size + 1;
    // Semaphores of an earlier pipe may still have been there before it was complete, ones of a later pipe afterwards.
    if (!block->mapping_->HasOwner()) throw Failure(function, CreatorGone);
    if (stated == 0 && size != 0) throw Failure(function, "the pipe is not complete yet");
    if (stated != size) throw std::invalid_argument("shared memory block of another size than stated");
    return block;
}

void PipeBlock::openLocks(const std::wstring& name, const char* function)
{
    senderSide_ = Checked(NamedLocks::Open(name), function);
    receiverSide_ = Checked(NamedLocks::Open(name), function);
}

PipeBlock::Notes PipeBlock::ReadNotes(const char* function) const
{
    Notes notes = {};
    Read(NotesOffset(size_), &notes, sizeof(notes), function);
    return notes;
}

void PipeBlock::WriteSent(const Progress& sent, const char* function)
{
    Write(NotesOffset(size_) + offsetof(Notes, sent), &sent, sizeof(sent), function);
}

void PipeBlock::WriteTaken(const Progress& taken, const char* function)
{
    Write(NotesOffset(size_) + offsetof(Notes, taken), &taken, sizeof(taken), function);
}

void PipeBlock::Read(std::size_t offset, void* to, std::size_t bytes, const char* function) const
{
    if (!mapping_->Read(offset, to, bytes)) throw SystemError(function);
}

void PipeBlock::Write(std::size_t offset, const void* from, std::size_t bytes, const char* function)
{
    if (!mapping_->Write(offset, from, bytes)) throw SystemError(function);
}

/// With both locks held nobody uses the block, so a token that is in neither semaphore went down with a process.
void PipeBlock::restoreLostToken()
{
    if (IsZero(*items_) && IsZero(*spaces_)) spaces_->Release();
}

/// The same when nobody will take the chunk in the block.
void PipeBlock::clear()
{
    (void)items_->WaitFor(0);
    if (IsZero(*spaces_)) spaces_->Release();
}

HeldLock PipeBlock::BeginSending(const char* function)
{
    for (;; Pause()) {
        if (!mapping_->HasOwner()) throw Failure(function, CreatorGone);
        HeldLock sender(*senderSide_, SenderLock);
        if (!sender) continue;
        if (spaces_->WaitFor(WaitMs)) return sender;
        if (const HeldLock noReceiver(*senderSide_, ReceiverLock); noReceiver) restoreLostToken();
    }
}

bool PipeBlock::AwaitSpace(std::uint64_t chunksSent)
{
    while (!spaces_->WaitFor(WaitMs)) {
        if (!mapping_->HasOwner()) return false;
        const HeldLock noReceiver(*senderSide_, ReceiverLock);
        if (!noReceiver) continue;
        if (chunksSent == 1)
            restoreLostToken(); // a receiver may come yet
        else
            clear(); // the receiver of the earlier chunks has gone
    }
    return true;
}

HeldLock PipeBlock::BeginReceiving(const char* function)
{
    for (;; Pause()) {
        HeldLock receiver(*receiverSide_, ReceiverLock);
        if (!receiver) continue;
        if (items_->WaitFor(WaitMs)) return receiver;
        if (const HeldLock noSender(*receiverSide_, SenderLock); noSender) restoreLostToken();
        if (mapping_->HasOwner()) continue;
        if (items_->WaitFor(0)) return receiver; // sent just before
        throw Failure(function, CreatorGone);
    }
}

void PipeBlock::AwaitItem(const char* function)
{
    while (!items_->WaitFor(WaitMs)) {
        const char* gone = mapping_->HasOwner() ? nullptr : CreatorGone;
        if (const HeldLock noSender(*receiverSide_, SenderLock); noSender) {
            restoreLostToken();
            gone = "the sender has gone before the end of its message";
        }
        if (gone == nullptr) continue;
        if (items_->WaitFor(0)) return; // the last chunk, sent just before
        throw Failure(function, gone);
    }
}

} // namespace VoAlgo
