#include "VoAlgorithms/runtime/csharedmemory.h"

#include "runtime/detail_systemerror.h"

#include <utility>

namespace VoAlgo {

CSharedMemory::CSharedMemory(std::wstring name, std::unique_ptr<platform::NamedMapping> mapping)
    : name_(std::move(name)), mapping_(std::move(mapping)), error_(mapping_ ? 0 : platform::LastErrorCode())
{
}

CSharedMemory::CSharedMemory(CSharedMemory&& other) noexcept = default;
CSharedMemory& CSharedMemory::operator=(CSharedMemory&& other) noexcept = default;
CSharedMemory::~CSharedMemory() = default;

CSharedMemory CSharedMemory::Create(const std::wstring& name, std::size_t size)
{
    return {name, platform::NamedMapping::Create(name, size)};
}

CSharedMemory CSharedMemory::Open(const std::wstring& name)
{
    return {name, platform::NamedMapping::Open(name)};
}

std::size_t CSharedMemory::Size() const
{
    return mapping_ ? mapping_->Size() : 0;
}

std::shared_ptr<void> CSharedMemory::CreateView() const
{
    constexpr const char* Function = "VoAlgo::CSharedMemory::CreateView/MapViewOfFile:";
    if (!mapping_) throw SystemError(Function, error_);
    if (auto view = mapping_->View()) return view;
    throw SystemError(Function);
}

} // namespace VoAlgo
