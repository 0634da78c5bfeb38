#pragma once

#include "VoAlgorithms/verdict/registerscans.h"

#include <memory>

namespace prereg::detail {

/// Searches for poses and verifies them; fills results, refused, refusal and statistics.
void SearchPoses(const std::shared_ptr<const CFPFHPointSet>& fix, const std::shared_ptr<const CFPFHPointSet>& flt,
                 const RegistrationOptions& options, Registration& registration);

/// Refines and verifies the pose options.start; fills the same members.
void RefinePose(const std::shared_ptr<const CFPFHPointSet>& fix, const std::shared_ptr<const CFPFHPointSet>& flt,
                const RegistrationOptions& options, Registration& registration);

} // namespace prereg::detail
