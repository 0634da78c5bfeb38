#pragma once

#include "VoAlgorithms/bson/element.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"

#include <string>
#include <vector>

namespace voalgo {

/// What the tool keeps in a case beside the library's document, under a key that the library passes over.
struct CaseNotes {
    std::string preset = "auto"; ///< from which the settings of the verification come
    std::string unit = "mm";     ///< of the files that the case was made of; the case itself is in mm
};

/// A case that was read.
struct Case {
    prereg::CFPFHPreRegistration registration;
    CaseNotes notes;
};

/// The document of both point sets, the configuration and the results.
std::string CaseBytes(const prereg::CFPFHPointSet& fix, const prereg::CFPFHPointSet& flt,
                      const prereg::ConfigurationFPFH& config, const std::vector<prereg::ICPResult>& results,
                      const CaseNotes& notes);

/// The elements of a document that fills `bytes`. `origin`: where it is from, for messages. Throws InputError for
/// anything else.
VoAlgo::bson::element::object ParseDocument(const std::string& bytes, const std::string& origin);
/// The case in such a document. Throws InputError when it is none: broken, or without both point sets.
Case ParseCase(const std::string& bytes, const std::string& origin);

} // namespace voalgo
