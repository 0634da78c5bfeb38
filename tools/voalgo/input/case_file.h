#pragma once

#include "VoAlgorithms/bson/element.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/verdict/registrationsettings.h"

#include <array>
#include <string>
#include <vector>

namespace voalgo {

/// What the tool adds to the library's document, under a key that the library ignores.
struct CaseNotes {
    std::string preset = "auto"; ///< gives the settings of the verification
    std::string unit = "mm";     ///< of the files that the case was made from; the case itself is in mm
    ///@{
    /// Coordinates of the frames that the point sets and poses are stored in, mm; 0 in a case without this note.
    std::array<double, 3> fixOrigin = {};
    std::array<double, 3> fltOrigin = {};
    ///@}
    ///@{
    /// SHA-1 of the files that the case was made from, in hexadecimal; empty in a case without this note.
    std::string fixChecksum = {};
    std::string fltChecksum = {};
    ///@}
    ///@{
    /// Measured at the scans, which the case may hold thinned, mm; 0 in a case without this note.
    double resolution = 0.0;
    double roughness = 0.0;
    ///@}
    double minOverlap = 0.0; ///< of the verification, which depends on what the scans are; 0 without this note
};

/// A case read from a file.
struct Case {
    prereg::CFPFHPreRegistration registration;
    CaseNotes notes;
};

/// A case with both point sets, the settings and the results, as the bytes of a document. What the settings were
/// derived from is added to the notes.
std::string CaseBytes(const prereg::CFPFHPointSet& fix, const prereg::CFPFHPointSet& flt,
                      const prereg::RegistrationSettings& settings, const std::vector<prereg::ICPResult>& results,
                      CaseNotes notes);

/// Parses a document that fills `bytes`; throws InputError for anything else. `origin` names the source in messages.
VoAlgo::bson::element::object ParseDocument(const std::string& bytes, const std::string& origin);
/// Parses a case. Throws InputError when the document is damaged or lacks a point set.
Case ParseCase(const std::string& bytes, const std::string& origin);

} // namespace voalgo
