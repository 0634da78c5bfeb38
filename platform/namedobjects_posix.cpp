#include "platform/namedobjects.h"

#include "platform/utf8.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VoAlgo::platform {

namespace {

constexpr mode_t OwnerOnly = S_IRUSR | S_IWUSR;
constexpr int OpenFlags = O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;
constexpr off_t OwnerByte = 0; // locked by the creator of a block; the bytes behind it are the locks of NamedLocks

/// The file of a name in UTF-8, where shm_open puts it. Names of files cannot contain a slash or a NUL: these, and the
/// percent sign itself, are written as %XX.
std::string PathOf(const std::wstring& name)
{
    std::string path = "/dev/shm/";
    for (const wchar_t letter : name) {
        if (letter == L'/')
            path += "%2F";
        else if (letter == L'%')
            path += "%25";
        else if (letter == L'\0')
            path += "%00";
        else
            AppendUtf8(path, static_cast<char32_t>(letter));
    }
    return path;
}

/// An open file, closed on destruction, and its path when the name is ours to remove.
class File {
public:
    explicit File(int descriptor) : descriptor_(descriptor) {}
    File(File&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)), ownedPath_(std::exchange(other.ownedPath_, {}))
    {
    }
    File& operator=(File&&) = delete;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File()
    {
        if (descriptor_ == -1) return;
        const int error = errno;
        if (!ownedPath_.empty() && IsAt(ownedPath_)) unlink(ownedPath_.c_str());
        close(descriptor_);
        errno = error;
    }

    void Own(std::string path) { ownedPath_ = std::move(path); }
    [[nodiscard]] bool IsOwned() const { return !ownedPath_.empty(); }
    [[nodiscard]] bool IsOpen() const { return descriptor_ != -1; }
    [[nodiscard]] int Descriptor() const { return descriptor_; }
    [[nodiscard]] struct stat Status() const
    {
        struct stat status = {};
        fstat(descriptor_, &status);
        return status;
    }
    /// Whether the path still leads to this file.
    [[nodiscard]] bool IsAt(const std::string& path) const
    {
        struct stat there = {};
        const struct stat here = Status();
        return lstat(path.c_str(), &there) == 0 && there.st_dev == here.st_dev && there.st_ino == here.st_ino;
    }

    /// Locks of the open file, not of the process: they end with its last descriptor. False when it is locked.
    [[nodiscard]] bool TryLock(off_t byte) const { return setLock(F_OFD_SETLK, F_WRLCK, byte).has; }
    void Unlock(off_t byte) const { setLock(F_OFD_SETLK, F_UNLCK, byte); }
    [[nodiscard]] bool IsLockedElsewhere(off_t byte) const
    {
        const Lock lock = setLock(F_OFD_GETLK, F_WRLCK, byte);
        return lock.has && lock.type != F_UNLCK;
    }

private:
    struct Lock {
        bool has;
        short type;
    };
    Lock setLock(int command, short type, off_t byte) const
    {
        struct flock range = {};
        range.l_type = type;
        range.l_whence = SEEK_SET;
        range.l_start = byte;
        range.l_len = 1;
        return {fcntl(descriptor_, command, &range) == 0, range.l_type};
    }

    int descriptor_;
    std::string ownedPath_;
};

/// Opens a file that belongs to this user and to no one else.
File OpenPrivate(const std::string& path, mode_t kind)
{
    File file(open(path.c_str(), OpenFlags));
    if (!file.IsOpen()) return file;
    const struct stat status = file.Status();
    if (status.st_uid == geteuid() && (status.st_mode & (S_IFMT | S_IRWXG | S_IRWXO)) == kind) return file;
    errno = EACCES;
    return File(-1);
}

/// Removes a block whose creator has died; false when it lives. Whoever holds the lock on a block, and no one else, may
/// remove its name: so nothing new can have come to the name in the meantime.
bool RemoveRemains(const std::string& path)
{
    const File file = OpenPrivate(path, S_IFREG);
    if (!file.IsOpen()) return errno == ENOENT;
    if (!file.TryLock(OwnerByte)) {
        errno = EEXIST;
        return false;
    }
    return !file.IsAt(path) || unlink(path.c_str()) == 0;
}

/// A new file with the lock of its creator.
File CreateOwned(const std::string& path)
{
    for (;;) {
        File file(open(path.c_str(), OpenFlags | O_CREAT | O_EXCL, OwnerOnly));
        if (!file.IsOpen()) {
            if (errno == EEXIST && RemoveRemains(path)) continue;
            return file;
        }
        // Before it was locked, another creator may have mistaken it for remains.
        if (file.TryLock(OwnerByte) && file.IsAt(path)) {
            file.Own(path);
            return file;
        }
        errno = EEXIST;
        return File(-1);
    }
}

/// Reserves the memory as well: otherwise a write may fail half-way, and one through a view kill the process.
int Reserve(const File& file, std::size_t size)
{
    int error = 0;
    do error = posix_fallocate(file.Descriptor(), 0, static_cast<off_t>(size));
    while (error == EINTR);
    return error;
}

/// Calls transfer(byte offset) until all bytes have passed.
template <typename Transfer>
bool TransferAll(std::size_t bytes, const Transfer& transfer)
{
    for (std::size_t done = 0; done < bytes;) {
        const ssize_t now = transfer(done);
        if (now < 0 && errno == EINTR) continue;
        if (now == 0) errno = EIO; // past the end
        if (now <= 0) return false;
        done += static_cast<std::size_t>(now);
    }
    return true;
}

} // namespace

int LastErrorCode()
{
    return errno;
}

std::string ErrorText(int code)
{
    const std::string text = std::system_category().message(code);
    return text.starts_with("Unknown error") ? std::string() : text;
}

struct NamedMapping::System {
    File file;
};

NamedMapping::NamedMapping(std::unique_ptr<System> system) : system_(std::move(system)) {}
NamedMapping::~NamedMapping() = default;

std::unique_ptr<NamedMapping> NamedMapping::Create(const std::wstring& name, std::size_t size)
{
    File file = CreateOwned(PathOf(name));
    if (!file.IsOpen()) return nullptr;
    if (const int error = Reserve(file, std::max<std::size_t>(size, 1)); error != 0) {
        errno = error;
        return nullptr;
    }
    return std::unique_ptr<NamedMapping>(new NamedMapping(std::unique_ptr<System>(new System{std::move(file)})));
}

std::unique_ptr<NamedMapping> NamedMapping::Open(const std::wstring& name)
{
    File file = OpenPrivate(PathOf(name), S_IFREG);
    if (!file.IsOpen()) return nullptr;
    std::unique_ptr<NamedMapping> mapping(new NamedMapping(std::unique_ptr<System>(new System{std::move(file)})));
    if (mapping->HasOwner() && mapping->Size() > 0) return mapping;
    errno = ENOENT; // remains, or not complete yet
    return nullptr;
}

bool NamedMapping::HasOwner() const
{
    return system_->file.IsOwned() || system_->file.IsLockedElsewhere(OwnerByte);
}

std::size_t NamedMapping::Size() const
{
    return static_cast<std::size_t>(system_->file.Status().st_size);
}

bool NamedMapping::Read(std::size_t offset, void* to, std::size_t bytes) const
{
    return TransferAll(bytes, [&](std::size_t done) {
        return pread(system_->file.Descriptor(), static_cast<char*>(to) + done, bytes - done,
                     static_cast<off_t>(offset + done));
    });
}

bool NamedMapping::Write(std::size_t offset, const void* from, std::size_t bytes)
{
    return TransferAll(bytes, [&](std::size_t done) {
        return pwrite(system_->file.Descriptor(), static_cast<const char*>(from) + done, bytes - done,
                      static_cast<off_t>(offset + done));
    });
}

std::shared_ptr<void> NamedMapping::View() const
{
    const std::size_t size = Size();
    void* view = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, system_->file.Descriptor(), 0);
    if (view == MAP_FAILED) return nullptr;
    return {view, [size](void* start) { munmap(start, size); }};
}

/// A FIFO whose bytes are the count: unlike the memory of a sem_t, another process cannot shorten it, and its owner and
/// mode can be checked on what was opened.
struct NamedSemaphore::System {
    File file;
};

NamedSemaphore::NamedSemaphore(std::unique_ptr<System> system) : system_(std::move(system)) {}
NamedSemaphore::~NamedSemaphore() = default;

std::unique_ptr<NamedSemaphore> NamedSemaphore::Create(const std::wstring& name, unsigned initial)
{
    const std::string path = PathOf(name);
    struct stat remains = {};
    if (lstat(path.c_str(), &remains) == 0) {
        if (remains.st_uid != geteuid()) {
            errno = EACCES;
            return nullptr;
        }
        if (unlink(path.c_str()) != 0 && errno != ENOENT) return nullptr;
    }
    if (mkfifo(path.c_str(), OwnerOnly) != 0) return nullptr;
    File file = OpenPrivate(path, S_IFIFO);
    if (!file.IsOpen()) return nullptr;
    file.Own(path);
    std::unique_ptr<NamedSemaphore> semaphore(new NamedSemaphore(std::unique_ptr<System>(new System{std::move(file)})));
    for (unsigned i = 0; i < initial; ++i) semaphore->Release();
    return semaphore;
}

std::unique_ptr<NamedSemaphore> NamedSemaphore::Open(const std::wstring& name)
{
    File file = OpenPrivate(PathOf(name), S_IFIFO);
    if (!file.IsOpen()) return nullptr;
    return std::unique_ptr<NamedSemaphore>(new NamedSemaphore(std::unique_ptr<System>(new System{std::move(file)})));
}

bool NamedSemaphore::WaitFor(unsigned milliseconds)
{
    const int descriptor = system_->file.Descriptor();
    char token = 0;
    if (read(descriptor, &token, 1) == 1) return true;
    if (milliseconds == 0) return false;
    pollfd ready = {descriptor, POLLIN, 0};
    poll(&ready, 1, static_cast<int>(milliseconds));
    return read(descriptor, &token, 1) == 1;
}

void NamedSemaphore::Release()
{
    int count = 0;
    ioctl(system_->file.Descriptor(), FIONREAD, &count);
    if (count < MaxCount) (void)!write(system_->file.Descriptor(), "", 1);
}

struct NamedLocks::System {
    File file;
};

NamedLocks::NamedLocks(std::unique_ptr<System> system) : system_(std::move(system)) {}
NamedLocks::~NamedLocks() = default;

std::unique_ptr<NamedLocks> NamedLocks::Open(const std::wstring& name)
{
    File file = OpenPrivate(PathOf(name), S_IFREG);
    if (!file.IsOpen()) return nullptr;
    return std::unique_ptr<NamedLocks>(new NamedLocks(std::unique_ptr<System>(new System{std::move(file)})));
}

bool NamedLocks::TryLock(unsigned lock)
{
    return system_->file.TryLock(OwnerByte + 1 + static_cast<off_t>(lock));
}

void NamedLocks::Unlock(unsigned lock)
{
    system_->file.Unlock(OwnerByte + 1 + static_cast<off_t>(lock));
}

} // namespace VoAlgo::platform
