#include "platform/namedobjects.h"

#include "platform/utf8.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VoAlgo::platform {

namespace {

constexpr mode_t OwnerOnly = S_IRUSR | S_IWUSR;

/// "/" and the name in UTF-8. Such names cannot contain a slash or a NUL: these, and the percent sign itself, are
/// written as %XX.
std::string SystemName(const std::wstring& name)
{
    std::string text = "/";
    for (const wchar_t letter : name) {
        if (letter == L'/')
            text += "%2F";
        else if (letter == L'%')
            text += "%25";
        else if (letter == L'\0')
            text += "%00";
        else
            AppendUtf8(text, static_cast<char32_t>(letter));
    }
    return text;
}

/// Calls create() and removes any object that holds the name until it is free; `failed` is the failure value of create.
template <typename Handle, typename Create>
Handle TakeName(const std::string& name, int (*unlink)(const char*), Handle failed, const Create& create)
{
    for (;;) {
        const Handle handle = create();
        if (handle != failed || errno != EEXIST) return handle;
        if (unlink(name.c_str()) != 0 && errno != ENOENT) return failed;
    }
}

int OpenBlock(const std::string& name)
{
    return shm_open(name.c_str(), O_RDWR, 0);
}

sem_t* OpenSemaphore(const std::string& name)
{
    return sem_open(name.c_str(), 0);
}

bool SameBlock(int a, int b)
{
    struct stat first = {}, second = {};
    return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

/// Reserves the memory as well: otherwise the first write would kill the process when the system is out of memory.
int Reserve(int block, std::size_t size)
{
    int error = 0;
    do error = posix_fallocate(block, 0, static_cast<off_t>(size));
    while (error == EINTR);
    return error;
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

std::unique_ptr<NamedMapping> NamedMapping::Create(const std::wstring& name, std::size_t size)
{
    const std::string systemName = SystemName(name);
    const int block = TakeName(systemName, shm_unlink, -1,
                               [&] { return shm_open(systemName.c_str(), O_RDWR | O_CREAT | O_EXCL, OwnerOnly); });
    if (block == -1) return nullptr;
    std::unique_ptr<NamedMapping> mapping(new NamedMapping(block, systemName));
    if (const int error = Reserve(block, std::max<std::size_t>(size, 1)); error != 0) {
        mapping.reset();
        errno = error;
    }
    return mapping;
}

std::unique_ptr<NamedMapping> NamedMapping::Open(const std::wstring& name)
{
    const int block = OpenBlock(SystemName(name));
    return std::unique_ptr<NamedMapping>(block == -1 ? nullptr : new NamedMapping(block, {}));
}

NamedMapping::~NamedMapping()
{
    const int block = static_cast<int>(handle_);
    if (!ownedName_.empty()) {
        if (const int current = OpenBlock(ownedName_); current != -1) {
            if (SameBlock(current, block)) shm_unlink(ownedName_.c_str());
            close(current);
        }
    }
    close(block);
}

std::shared_ptr<void> NamedMapping::View() const
{
    const std::size_t size = Size();
    void* view = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(handle_), 0);
    if (view == MAP_FAILED) return nullptr;
    return {view, [size](void* start) { munmap(start, size); }};
}

std::size_t NamedMapping::Size() const
{
    struct stat status = {};
    return fstat(static_cast<int>(handle_), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

std::unique_ptr<NamedSemaphore> NamedSemaphore::Create(const std::wstring& name, unsigned initial)
{
    const std::string systemName = SystemName(name);
    sem_t* semaphore = TakeName(systemName, sem_unlink, SEM_FAILED,
                                [&] { return sem_open(systemName.c_str(), O_CREAT | O_EXCL, OwnerOnly, initial); });
    return std::unique_ptr<NamedSemaphore>(semaphore == SEM_FAILED ? nullptr
                                                                   : new NamedSemaphore(semaphore, systemName));
}

std::unique_ptr<NamedSemaphore> NamedSemaphore::Open(const std::wstring& name)
{
    sem_t* semaphore = OpenSemaphore(SystemName(name));
    return std::unique_ptr<NamedSemaphore>(semaphore == SEM_FAILED ? nullptr : new NamedSemaphore(semaphore, {}));
}

NamedSemaphore::~NamedSemaphore()
{
    auto* semaphore = static_cast<sem_t*>(handle_);
    if (!ownedName_.empty()) {
        // Within a process, every sem_open of a semaphore returns the same address.
        if (sem_t* current = OpenSemaphore(ownedName_); current != SEM_FAILED) {
            if (current == semaphore) sem_unlink(ownedName_.c_str());
            sem_close(current);
        }
    }
    sem_close(semaphore);
}

void NamedSemaphore::Wait()
{
    while (sem_wait(static_cast<sem_t*>(handle_)) != 0 && errno == EINTR) {
    }
}

void NamedSemaphore::Release()
{
    int count = 0;
    sem_getvalue(static_cast<sem_t*>(handle_), &count);
    if (count < MaxCount) sem_post(static_cast<sem_t*>(handle_));
}

} // namespace VoAlgo::platform
