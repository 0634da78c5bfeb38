#include "platform/namedobjects.h"

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

constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;

void AppendUtf8(std::string& text, std::uint32_t code)
{
    const auto put = [&](std::uint32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (code < 0x80) return put(code);
    if (code < 0x800) {
        put(0xc0 | code >> 6);
    } else {
        if (code < 0x10000) {
            put(0xe0 | code >> 12);
        } else {
            put(0xf0 | (code >> 18 & 0x07));
            put(0x80 | (code >> 12 & 0x3f));
        }
        put(0x80 | (code >> 6 & 0x3f));
    }
    put(0x80 | (code & 0x3f));
}

/// "/" and the name in UTF-8. A slash has no place within such names and a NUL would end it: they, and the sign that
/// marks them, are written as %XX.
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
            AppendUtf8(text, static_cast<std::uint32_t>(letter));
    }
    return text;
}

/// Calls create() until the name is free, removing what is in its way; `failed` is what create returns on failure.
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

/// Reserves the memory too: without, a full system would end the process at the first write.
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
                               [&] { return shm_open(systemName.c_str(), O_RDWR | O_CREAT | O_EXCL, OWNER_ONLY); });
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
                                [&] { return sem_open(systemName.c_str(), O_CREAT | O_EXCL, OWNER_ONLY, initial); });
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
        // A process has one address for each semaphore, however often it opens it.
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
    if (count < MAXIMUM) sem_post(static_cast<sem_t*>(handle_));
}

} // namespace VoAlgo::platform
