#include "exchange/files/detail_disk.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__linux__)
#include <sys/syscall.h>
#include <sys/xattr.h>
#endif

namespace voalgo::disk {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(int error)
{
    throw std::system_error(error, std::generic_category());
}

/// The names of the extended attributes, access control lists among them.
std::string AttributesOf([[maybe_unused]] const fs::path& path)
{
    std::string names;
#if defined(__linux__)
    const ssize_t size = listxattr(path.c_str(), nullptr, 0);
    names.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    const ssize_t read = listxattr(path.c_str(), names.data(), names.size());
    names.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
#endif
    return names;
}

#if defined(__linux__)
constexpr unsigned NoReplace = 1, ExchangeBoth = 2; // RENAME_… of linux/fs.h, which clashes with the C library

bool Rename2(const fs::path& from, const fs::path& to, unsigned how)
{
    return syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), how) == 0;
}
#endif

} // namespace

struct Entry::Handle {
    explicit Handle(int opened) : file(opened)
    {
        if (file < 0) Fail(errno);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { close(file); }

    /// A process that clears up may have been faster. File systems without locks are not cleared up.
    void Lock() const
    {
        struct stat status {};
        if (flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) Fail(EAGAIN);
        if (fstat(file, &status) == 0 && status.st_nlink == 0) Fail(EAGAIN);
    }

    int file;
};

Entry::Entry(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
Entry::Entry(Entry&&) noexcept = default;
Entry& Entry::operator=(Entry&&) noexcept = default;
Entry::~Entry() = default;

Entry Entry::MakeFile(const fs::path& path)
{
    auto handle = std::make_unique<Handle>(open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
    handle->Lock();
    return Entry(std::move(handle));
}

Entry Entry::MakeDirectory(const fs::path& path)
{
    if (mkdir(path.c_str(), 0777) != 0) Fail(errno);
    auto handle = std::make_unique<Handle>(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    handle->Lock();
    return Entry(std::move(handle));
}

Entry Entry::OpenDevice(const fs::path& path)
{
    return Entry(std::make_unique<Handle>(open(path.c_str(), O_WRONLY | O_CLOEXEC)));
}

void Entry::Write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(handle_->file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) Fail(errno);
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void Entry::Sync()
{
    if (fsync(handle_->file) == 0) return;
    if (errno != EINVAL && errno != ENOTSUP && errno != EROFS) Fail(errno); // which devices and pipes answer
}

void Entry::PrepareRename() {}

bool IsAbandoned(const fs::path& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return false;
    const bool isFree = flock(file, LOCK_EX | LOCK_NB) == 0;
    close(file);
    return isFree;
}

bool HasOtherName(const fs::path& path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode) && status.st_nlink > 1;
}

void RequireWritable(const fs::path& path)
{
    if (access(path.c_str(), W_OK) != 0) Fail(errno);
}

bool CopyRights(const fs::path& from, const fs::path& to)
{
    struct stat wanted {
    }, got{};
    if (stat(from.c_str(), &wanted) != 0 || stat(to.c_str(), &got) != 0) return false;
    if (wanted.st_uid != got.st_uid || wanted.st_gid != got.st_gid)
        (void)!chown(to.c_str(), wanted.st_uid, wanted.st_gid);
    (void)!chmod(to.c_str(), wanted.st_mode & 07777U);
    return stat(to.c_str(), &got) == 0 && wanted.st_uid == got.st_uid && wanted.st_gid == got.st_gid &&
           wanted.st_mode == got.st_mode && AttributesOf(from) == AttributesOf(to);
}

bool Exchange([[maybe_unused]] const fs::path& a, [[maybe_unused]] const fs::path& b)
{
#if defined(__linux__)
    return Rename2(a, b, ExchangeBoth);
#else
    return false;
#endif
}

bool MoveUnlessTaken([[maybe_unused]] const fs::path& from, [[maybe_unused]] const fs::path& to)
{
#if defined(__linux__)
    return Rename2(from, to, NoReplace);
#else
    return false;
#endif
}

void SyncNames(const fs::path& directory)
{
    const int file = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0) return;
    (void)fsync(file);
    close(file);
}

unsigned long ProcessNumber()
{
    return static_cast<unsigned long>(getpid());
}

struct InterruptsHeld::Saved {
    sigset_t signals;
};

InterruptsHeld::InterruptsHeld() : saved_(std::make_unique<Saved>())
{
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, &saved_->signals);
}

InterruptsHeld::~InterruptsHeld()
{
    pthread_sigmask(SIG_SETMASK, &saved_->signals, nullptr);
}

} // namespace voalgo::disk
