#pragma once

#include <memory>

/// Access to a graphics processor for computation. There is no GPU path at present: nothing is handed out, and
/// everything runs on the CPU.
namespace GPGPU {

/// Access to one device, shared by its holders.
class IAccessor {
public:
    virtual ~IAccessor() = default;
};

/// Hands out the accessors.
class CGPGPUFactory {
public:
    /// An accessor for the machine's GPU technology, or null when there is none.
    [[nodiscard]] static std::shared_ptr<IAccessor> TechnologyAccess() { return nullptr; }
};

} // namespace GPGPU
