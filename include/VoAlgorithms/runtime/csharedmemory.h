#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <memory>
#include <string>

namespace VoAlgo {

namespace platform {
class NamedMapping;
}

/// A block of memory that processes of one machine share by its name.
///
/// Where the system's names outlive processes (POSIX), the object that created the block removes the name when it goes,
/// and Create takes over a name that a crashed process left; processes that hold the old block keep it. On Windows the
/// block lives as long as any process holds it, and Create of an existing name joins it.
class VOALGO_API CSharedMemory {
public:
    /// Creates a block of `size` bytes for reading and writing, all zero. Tests false when the system refuses.
    [[nodiscard]] static CSharedMemory Create(const std::wstring& name, std::size_t size);
    /// Opens an existing block. Tests false, at once, when there is none of that name.
    static CSharedMemory Open(const std::wstring& name);

    ///@{
    /// The block goes over; the old owner tests false.
    CSharedMemory(CSharedMemory&& other) noexcept;
    CSharedMemory& operator=(CSharedMemory&& other) noexcept;
    ///@}
    ~CSharedMemory();

    /// Whether there is a block behind the name: creation or opening went well.
    explicit operator bool() const { return mapping_ != nullptr; }
    /// The name as given to Create or Open.
    [[nodiscard]] const std::wstring& Name() const { return name_; }
    /// Bytes of the block, 0 without one; Windows counts whole pages.
    [[nodiscard]] std::size_t Size() const;

    /// Maps the whole block into the process; it is unmapped when the last owner lets go, which may be after this
    /// object has gone. Throws std::runtime_error with the system's text; when there is no block, with that of its
    /// creation or opening.
    [[nodiscard]] std::shared_ptr<void> CreateView() const;

private:
    CSharedMemory(std::wstring name, std::unique_ptr<platform::NamedMapping> mapping);

    std::wstring name_;
    std::unique_ptr<platform::NamedMapping> mapping_;
    int error_ = 0; // the system's code when there is no mapping
};

} // namespace VoAlgo
