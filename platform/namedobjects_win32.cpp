#include "platform/namedobjects.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

namespace VoAlgo::platform {

namespace {

struct CloseObject {
    void operator()(HANDLE handle) const
    {
        const DWORD error = GetLastError();
        CloseHandle(handle);
        SetLastError(error);
    }
};
using Handle = std::unique_ptr<void, CloseObject>;

struct FreeLocal {
    void operator()(void* memory) const { LocalFree(memory); }
};

Handle Refused(DWORD error)
{
    SetLastError(error);
    return nullptr;
}

/// A security identifier as text, empty for none.
std::wstring TextOf(PSID sid)
{
    LPWSTR text = nullptr;
    if (sid == nullptr || ConvertSidToStringSidW(sid, &text) == 0) return {};
    const std::unique_ptr<void, FreeLocal> memory(text);
    return text;
}

/// The user that this process runs as.
std::wstring ThisUser()
{
    HANDLE token = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) == 0) return {};
    const Handle closesToken(token);
    alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> memory;
    DWORD size = 0;
    if (GetTokenInformation(token, TokenUser, memory.data(), static_cast<DWORD>(memory.size()), &size) == 0) return {};
    TOKEN_USER user = {};
    std::memcpy(&user, memory.data(), sizeof(user));
    return TextOf(user.User.Sid);
}

bool IsOurs(HANDLE object)
{
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR memory = nullptr;
    if (GetSecurityInfo(object, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &memory) != ERROR_SUCCESS)
        return false;
    const std::unique_ptr<void, FreeLocal> descriptor(memory);
    const std::wstring text = TextOf(owner);
    return !text.empty() && text == ThisUser();
}

/// Passes on an object that was opened and is ours.
Handle OnlyOurs(HANDLE opened)
{
    Handle object(opened);
    return object == nullptr || IsOurs(opened) ? std::move(object) : Refused(ERROR_ACCESS_DENIED);
}

/// Calls create(security attributes) for an object that belongs to this user, also when the process is elevated, and
/// that no one else can open; fails when the name is in use.
template <typename Create>
Handle CreateNew(const Create& create)
{
    const std::wstring user = ThisUser(), rights = L"O:" + user + L"D:P(A;;GA;;;" + user + L")";
    PSECURITY_DESCRIPTOR memory = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &memory, nullptr) == 0)
        return nullptr;
    const std::unique_ptr<void, FreeLocal> descriptor(memory);
    SECURITY_ATTRIBUTES security = {sizeof(security), descriptor.get(), FALSE};
    SetLastError(ERROR_SUCCESS);
    Handle object(create(&security));
    if (object != nullptr && GetLastError() == ERROR_ALREADY_EXISTS) return Refused(ERROR_ALREADY_EXISTS);
    return object;
}

/// A lock is an object that exists: it vanishes with its holder, whichever thread took it.
Handle TakeLock(const std::wstring& name)
{
    return CreateNew([&](SECURITY_ATTRIBUTES* security) { return CreateMutexW(security, FALSE, name.c_str()); });
}

std::wstring OwnerName(const std::wstring& name)
{
    return name + L".owner";
}

} // namespace

int LastErrorCode()
{
    return static_cast<int>(GetLastError());
}

std::string ErrorText(int code)
{
    char text[512];
    DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                  static_cast<DWORD>(code), 0, text, sizeof(text), nullptr);
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) --length;
    return {text, length};
}

struct NamedMapping::System {
    std::wstring name;
    Handle mapping;
    Handle owner; // null in a process that opened the block
    std::shared_ptr<void> view = {};
};

NamedMapping::NamedMapping(std::unique_ptr<System> system) : system_(std::move(system))
{
    system_->view = View();
}
NamedMapping::~NamedMapping() = default;

std::unique_ptr<NamedMapping> NamedMapping::Create(const std::wstring& name, std::size_t size)
{
    Handle owner = TakeLock(OwnerName(name));
    if (owner == nullptr) return nullptr;
    const std::uint64_t bytes = std::max<std::uint64_t>(size, 1);
    // Fails while a process still holds the block of a creator that was killed.
    Handle mapping = CreateNew([&](SECURITY_ATTRIBUTES* security) {
        return CreateFileMappingW(INVALID_HANDLE_VALUE, security, PAGE_READWRITE, static_cast<DWORD>(bytes >> 32),
                                  static_cast<DWORD>(bytes), name.c_str());
    });
    if (mapping == nullptr) return nullptr;
    return std::unique_ptr<NamedMapping>(
        new NamedMapping(std::unique_ptr<System>(new System{name, std::move(mapping), std::move(owner)})));
}

std::unique_ptr<NamedMapping> NamedMapping::Open(const std::wstring& name)
{
    Handle mapping = OnlyOurs(OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE | READ_CONTROL, FALSE, name.c_str()));
    if (mapping == nullptr) return nullptr;
    std::unique_ptr<NamedMapping> opened(
        new NamedMapping(std::unique_ptr<System>(new System{name, std::move(mapping), nullptr})));
    if (opened->HasOwner()) return opened;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
}

bool NamedMapping::HasOwner() const
{
    return system_->owner != nullptr || Handle(OpenMutexW(SYNCHRONIZE, FALSE, OwnerName(system_->name).c_str()));
}

std::size_t NamedMapping::Size() const
{
    const std::shared_ptr<void> view = View();
    MEMORY_BASIC_INFORMATION region = {};
    if (view == nullptr || VirtualQuery(view.get(), &region, sizeof(region)) == 0) return 0;
    return region.RegionSize;
}

bool NamedMapping::Read(std::size_t offset, void* to, std::size_t bytes) const
{
    if (system_->view == nullptr) return false;
    std::memcpy(to, static_cast<const char*>(system_->view.get()) + offset, bytes);
    return true;
}

bool NamedMapping::Write(std::size_t offset, const void* from, std::size_t bytes)
{
    if (system_->view == nullptr) return false;
    std::memcpy(static_cast<char*>(system_->view.get()) + offset, from, bytes);
    return true;
}

std::shared_ptr<void> NamedMapping::View() const
{
    void* view = MapViewOfFile(system_->mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
    if (view == nullptr) return nullptr;
    return {view, [](void* start) { UnmapViewOfFile(start); }};
}

struct NamedSemaphore::System {
    Handle semaphore;
};

NamedSemaphore::NamedSemaphore(std::unique_ptr<System> system) : system_(std::move(system)) {}
NamedSemaphore::~NamedSemaphore() = default;

std::unique_ptr<NamedSemaphore> NamedSemaphore::Create(const std::wstring& name, unsigned initial)
{
    Handle semaphore = CreateNew([&](SECURITY_ATTRIBUTES* security) {
        return CreateSemaphoreW(security, static_cast<LONG>(initial), MaxCount, name.c_str());
    });
    if (semaphore == nullptr) return nullptr;
    return std::unique_ptr<NamedSemaphore>(
        new NamedSemaphore(std::unique_ptr<System>(new System{std::move(semaphore)})));
}

std::unique_ptr<NamedSemaphore> NamedSemaphore::Open(const std::wstring& name)
{
    Handle semaphore = OnlyOurs(OpenSemaphoreW(SEMAPHORE_ALL_ACCESS, TRUE, name.c_str()));
    if (semaphore == nullptr) return nullptr;
    return std::unique_ptr<NamedSemaphore>(
        new NamedSemaphore(std::unique_ptr<System>(new System{std::move(semaphore)})));
}

bool NamedSemaphore::WaitFor(unsigned milliseconds)
{
    return WaitForSingleObject(system_->semaphore.get(), milliseconds) == WAIT_OBJECT_0;
}

void NamedSemaphore::Release()
{
    ReleaseSemaphore(system_->semaphore.get(), 1, nullptr);
}

struct NamedLocks::System {
    std::wstring name;
    std::array<Handle, Count> held = {};
};

NamedLocks::NamedLocks(std::unique_ptr<System> system) : system_(std::move(system)) {}
NamedLocks::~NamedLocks() = default;

std::unique_ptr<NamedLocks> NamedLocks::Open(const std::wstring& name)
{
    return std::unique_ptr<NamedLocks>(new NamedLocks(std::unique_ptr<System>(new System{name})));
}

bool NamedLocks::TryLock(unsigned lock)
{
    Handle& held = system_->held.at(lock);
    if (held == nullptr) held = TakeLock(system_->name + L".lock" + std::to_wstring(lock));
    return held != nullptr;
}

void NamedLocks::Unlock(unsigned lock)
{
    system_->held.at(lock).reset();
}

} // namespace VoAlgo::platform
