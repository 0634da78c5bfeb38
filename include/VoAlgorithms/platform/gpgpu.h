#pragma once

#include <memory>

/// The way to a graphics processor for computations. There is no such path at present: no accessor is ever handed out,
/// and everything runs on the CPU.
namespace GPGPU {

/// Access to one device; lives as long as somebody holds it.
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
