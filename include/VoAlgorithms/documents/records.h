#pragma once

#include "VoAlgorithms/bson/element.h"
#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/configurationicp.h"
#include "VoAlgorithms/prereg/ellipsoid.h"
#include "VoAlgorithms/prereg/icpresult.h"

namespace VoAlgo::bson {

/// @file
/// Documents of the registration's records. The keys are the names of the fields, in their order; "ui…" is stored as
/// uint32, "i…" as int32, "d…" as double, "f…" as float; records inside records are objects.

/// "Rotation" (w, x, y, z: the unit quaternion, computed in double precision) and "Translation" (x, y, z), all floats.
[[nodiscard]] VOALGO_API element::object to_object(const CTrafo& trafo);
///@{
/// Converted to CTrafo first.
[[nodiscard]] VOALGO_API element::object to_object(const CbMatrix4Rd& matrix);
[[nodiscard]] VOALGO_API element::object to_object(const CbMatrix4Rf& matrix);
///@}
///@{
/// All settings, defaults included.
[[nodiscard]] VOALGO_API element::object to_object(const prereg::ConfigurationFPFH& config);
[[nodiscard]] VOALGO_API element::object to_object(const prereg::ConfigurationICP& config);
///@}
/// "COG" and "ExtremePts" (pt1, pt2, pt3), each x, y, z.
[[nodiscard]] VOALGO_API element::object to_object(const prereg::Ellipsoid& ellipsoid);
/// All fields but the result type.
[[nodiscard]] VOALGO_API element::object to_object(const prereg::ICPResult& result);
/// "Points", "Normals", "FeaturePoints", "FeatureNormals" (records of four floats x, y, z, 0) and "Features" (records
/// of 33 floats), each one binary. Throws std::length_error for an array of 2 GiB or more.
[[nodiscard]] VOALGO_API element::object to_object(const prereg::CFPFHPointSet& set);
/// "FixPointSet", "FltPointSet", "Configuration", "Transforms" (the results "0", "1", …, best first; their
/// cluster sizes are not stored). Throws std::length_error for a point set of 4 GiB or more.
[[nodiscard]] VOALGO_API element::object to_object(const prereg::CFPFHPreRegistration& registration);

///@{
/// Reads a record. Fields without a key keep their defaults, unknown keys are skipped, and the last value of a repeated
/// key wins. A known key with a value of another type throws bad_cast.
///
/// An ICPResult comes back with type −1; "fStop_OverlapRatio" is read into fStart_OverlapRatio (the later of the two
/// keys wins) and fStop_OverlapRatio keeps its default.
///
/// A point set rebuilds its trees and becomes empty when its data are unusable (see prereg::CFPFHPointSet). The fourth
/// float of every point and normal is set to 0. Throws std::invalid_argument when the length of an array is not a
/// multiple of its record size, or when arrays of one group ("Points" and "Normals"; "FeaturePoints", "FeatureNormals"
/// and "Features") hold different numbers of records. If one array is absent, its whole group is ignored.
///
/// A CFPFHPreRegistration owns its point sets; its results are those of "Transforms", each with cluster size 1.
template <class T>
T from_object(const element::object& object);

template <>
VOALGO_API CTrafo from_object<CTrafo>(const element::object& object);
template <>
VOALGO_API CbMatrix4Rd from_object<CbMatrix4Rd>(const element::object& object);
template <>
VOALGO_API CbMatrix4Rf from_object<CbMatrix4Rf>(const element::object& object);
template <>
[[nodiscard]] VOALGO_API prereg::ConfigurationFPFH
from_object<prereg::ConfigurationFPFH>(const element::object& object);
template <>
VOALGO_API prereg::ConfigurationICP from_object<prereg::ConfigurationICP>(const element::object& object);
template <>
VOALGO_API prereg::Ellipsoid from_object<prereg::Ellipsoid>(const element::object& object);
template <>
VOALGO_API prereg::ICPResult from_object<prereg::ICPResult>(const element::object& object);
template <>
VOALGO_API prereg::CFPFHPointSet from_object<prereg::CFPFHPointSet>(const element::object& object);
template <>
[[nodiscard]] VOALGO_API prereg::CFPFHPreRegistration
from_object<prereg::CFPFHPreRegistration>(const element::object& object);
///@}

} // namespace VoAlgo::bson
