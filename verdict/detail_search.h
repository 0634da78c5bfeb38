#pragma once

#include "VoAlgorithms/verdict/registerscans.h"
#include "verdict/detail_seenspace.h"

#include <memory>
#include <optional>

namespace prereg::detail {

/// A scan, ready for the search.
struct SearchScan {
    std::shared_ptr<const CFPFHPointSet> set;
    std::optional<View> view; ///< nothing: a merged scan or a model
};

struct SearchInput {
    SearchScan fix;
    SearchScan flt;
};

/// Searches for poses and verifies them; fills results, refused, refusal and statistics.
void SearchPoses(const SearchInput& input, const RegistrationOptions& options, Registration& registration);

/// Refines and verifies the pose options.start; fills the same members.
void RefinePose(const SearchInput& input, const RegistrationOptions& options, Registration& registration);

} // namespace prereg::detail
