#include "platform/namedobjects.h"

#include <algorithm>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

namespace VoAlgo::platform {

namespace {

HANDLE AsHandle(std::intptr_t handle)
{
    return reinterpret_cast<HANDLE>(handle);
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

std::unique_ptr<NamedMapping> NamedMapping::Create(const std::wstring& name, std::size_t size)
{
    const std::uint64_t bytes = std::max<std::uint64_t>(size, 1);
    const HANDLE handle = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                             static_cast<DWORD>(bytes >> 32), static_cast<DWORD>(bytes), name.c_str());
    return std::unique_ptr<NamedMapping>(
        handle == nullptr ? nullptr : new NamedMapping(reinterpret_cast<std::intptr_t>(handle), {}));
}

std::unique_ptr<NamedMapping> NamedMapping::Open(const std::wstring& name)
{
    const HANDLE handle = OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, name.c_str());
    return std::unique_ptr<NamedMapping>(
        handle == nullptr ? nullptr : new NamedMapping(reinterpret_cast<std::intptr_t>(handle), {}));
}

NamedMapping::~NamedMapping()
{
    CloseHandle(AsHandle(handle_));
}

std::shared_ptr<void> NamedMapping::View() const
{
    void* view = MapViewOfFile(AsHandle(handle_), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
    if (view == nullptr) return nullptr;
    return {view, [](void* start) { UnmapViewOfFile(start); }};
}

std::size_t NamedMapping::Size() const
{
    const std::shared_ptr<void> view = View();
    MEMORY_BASIC_INFORMATION region = {};
    if (view == nullptr || VirtualQuery(view.get(), &region, sizeof(region)) == 0) return 0;
    return region.RegionSize;
}

std::unique_ptr<NamedSemaphore> NamedSemaphore::Create(const std::wstring& name, unsigned initial)
{
    const HANDLE handle = CreateSemaphoreW(nullptr, static_cast<LONG>(initial), MaxCount, name.c_str());
    return std::unique_ptr<NamedSemaphore>(handle == nullptr ? nullptr : new NamedSemaphore(handle, {}));
}

std::unique_ptr<NamedSemaphore> NamedSemaphore::Open(const std::wstring& name)
{
    const HANDLE handle = OpenSemaphoreW(SEMAPHORE_ALL_ACCESS, TRUE, name.c_str());
    return std::unique_ptr<NamedSemaphore>(handle == nullptr ? nullptr : new NamedSemaphore(handle, {}));
}

NamedSemaphore::~NamedSemaphore()
{
    CloseHandle(handle_);
}

void NamedSemaphore::Wait()
{
    WaitForSingleObject(handle_, INFINITE);
}

void NamedSemaphore::Release()
{
    ReleaseSemaphore(handle_, 1, nullptr);
}

} // namespace VoAlgo::platform
