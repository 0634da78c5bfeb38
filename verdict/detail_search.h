#pragma once

#include "VoAlgorithms/verdict/registerscans.h"
#include "verdict/detail_seenspace.h"

#include <memory>
#include <optional>

namespace prereg::detail {

/// The scans of a search, ready for it.
struct SearchInput {
    std::shared_ptr<const CFPFHPointSet> fix;
    std::shared_ptr<const CFPFHPointSet> flt;
    std::optional<View> fixView; ///< nothing: a merged scan or a model
    std::optional<View> fltView;
};

/// Searches for poses and verifies them; fills results, refused, refusal and statistics.
void SearchPoses(const SearchInput& input, const RegistrationOptions& options, Registration& registration);

/// Refines and verifies the pose options.start; fills the same members.
void RefinePose(const SearchInput& input, const RegistrationOptions& options, Registration& registration);

} // namespace prereg::detail
