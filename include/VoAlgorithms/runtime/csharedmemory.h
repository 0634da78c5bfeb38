#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <memory>
#include <string>

namespace VoAlgo {

namespace platform {
class NamedMapping;
}

/// A named block of memory that processes of one user and machine share.
///
/// A name belongs to the object that created the block until that is destroyed or its process dies: until then no other
/// can create it, afterwards none can open it. Processes that hold the block keep it. What a killed creator left behind
/// is replaced; on Windows only when no process holds it any more. A block that belongs to another user, or that others
/// may open, is refused.
///
/// Where processes fork, a child without exec counts as its parent, which then seems to live as long as the child.
class VOALGO_API CSharedMemory {
public:
    /// Creates a block of `size` bytes for reading and writing, all zero. Tests false when the name is taken or the
    /// system refuses.
    [[nodiscard]] static CSharedMemory Create(const std::wstring& name, std::size_t size);
    /// Opens an existing block. Tests false when there is none of that name with a living creator, or it is not ours;
    /// does not wait for one.
    static CSharedMemory Open(const std::wstring& name);

    ///@{
    /// Moves the block; the source tests false.
    CSharedMemory(CSharedMemory&& other) noexcept;
    CSharedMemory& operator=(CSharedMemory&& other) noexcept;
    ///@}
    ~CSharedMemory();

    /// Whether the block was created or opened.
    explicit operator bool() const { return mapping_ != nullptr; }
    /// The name as given to Create or Open.
    [[nodiscard]] const std::wstring& Name() const { return name_; }
    /// Bytes of the block, on Windows whole pages; 0 without a block.
    [[nodiscard]] std::size_t Size() const;

    /// Maps the whole block into the process; it is unmapped when the last owner of the view releases it, which may be
    /// after this object was destroyed. Throws std::runtime_error with the system's text; without a block, with the
    /// text of its failed creation or opening. On POSIX, access through a view kills a process when another one has
    /// shortened the block.
    [[nodiscard]] std::shared_ptr<void> CreateView() const;

private:
    CSharedMemory(std::wstring name, std::unique_ptr<platform::NamedMapping> mapping);

    std::wstring name_;
    std::unique_ptr<platform::NamedMapping> mapping_;
    int error_ = 0; // the system's code when there is no mapping
};

} // namespace VoAlgo
