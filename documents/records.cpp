#include "VoAlgorithms/documents/records.h"

#include "VoAlgorithms/prereg/fields.h"
#include "bson/view.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace VoAlgo::bson {
namespace {

using detail::Children;
using detail::TypeOf;
using detail::View;
using Vec3 = kdtree::Vector<3>;
using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;
using prereg::ConfigurationFPFH;
using prereg::ConfigurationICP;
using prereg::CPointFeatureHistogram;
using prereg::Ellipsoid;
using prereg::ICPResult;

// The layout of poses and ellipsoids.

struct RotationRecord {
    float w = 1.0F, x = 0.0F, y = 0.0F, z = 0.0F;
};

struct PoseRecord {
    RotationRecord rotation;
    Vec3 translation;

    PoseRecord() = default;
    explicit PoseRecord(const CTrafo& trafo) : translation(trafo.GetTranslation())
    {
        const Quaternion q = trafo.GetQuaternion();
        rotation = {static_cast<float>(q.w), static_cast<float>(q.x), static_cast<float>(q.y), static_cast<float>(q.z)};
    }
    explicit operator CTrafo() const
    {
        const auto& [w, x, y, z] = rotation;
        return {Quaternion(w, x, y, z), translation};
    }
};

struct ExtremePointsRecord {
    Vec3 points[3];
};

struct EllipsoidRecord {
    Vec3 center;
    ExtremePointsRecord extremes;

    EllipsoidRecord() = default;
    explicit EllipsoidRecord(const Ellipsoid& e) : center(e[0]), extremes{{e[1], e[2], e[3]}} {}
    explicit operator Ellipsoid() const { return {center, extremes.points[0], extremes.points[1], extremes.points[2]}; }
};

template <class T>
struct Mapping {
    using Record = T;
};
template <>
struct Mapping<CTrafo> {
    using Record = PoseRecord;
};
template <>
struct Mapping<Ellipsoid> {
    using Record = EllipsoidRecord;
};

// The keys of every record in order; `visit` receives each key with its field.

using prereg::RecordOf;

void VisitKeys(RecordOf<Vec3> auto& r, auto visit)
{
    visit("x", r.x);
    visit("y", r.y);
    visit("z", r.z);
}

void VisitKeys(RecordOf<RotationRecord> auto& r, auto visit)
{
    visit("w", r.w);
    visit("x", r.x);
    visit("y", r.y);
    visit("z", r.z);
}

void VisitKeys(RecordOf<PoseRecord> auto& r, auto visit)
{
    visit("Rotation", r.rotation);
    visit("Translation", r.translation);
}

void VisitKeys(RecordOf<ExtremePointsRecord> auto& r, auto visit)
{
    visit("pt1", r.points[0]);
    visit("pt2", r.points[1]);
    visit("pt3", r.points[2]);
}

void VisitKeys(RecordOf<EllipsoidRecord> auto& r, auto visit)
{
    visit("COG", r.center);
    visit("ExtremePts", r.extremes);
}

/// The fields of a record that is listed elsewhere by its own keys.
template <class Record, class Visit>
void VisitListed(Record& r, Visit visit)
{
    prereg::VisitFields(r, [&](const prereg::FieldInfo& info, auto& field) { visit(info.key, field); });
}

void VisitKeys(RecordOf<ConfigurationICP> auto& r, auto visit)
{
    VisitListed(r, visit);
}

void VisitKeys(RecordOf<ConfigurationFPFH> auto& r, auto visit)
{
    VisitListed(r, visit);
    visit(prereg::IcpKey, r.icpConfig);
}

/// Deliberate: the stop ratio is written as such, but read into the start ratio, as documents are read everywhere.
void VisitKeys(RecordOf<ICPResult> auto& r, auto visit)
{
    constexpr bool IsRead = !std::is_const_v<std::remove_reference_t<decltype(r)>>;
    VisitListed(r, [&](const char* key, auto& field) {
        if constexpr (IsRead && std::same_as<std::remove_cvref_t<decltype(field)>, float>) {
            visit(key, &field == &r.fStop_OverlapRatio ? r.fStart_OverlapRatio : field);
        } else {
            visit(key, field);
        }
    });
    visit("trafo", r.trafo);
    visit("ellipsoid", r.ellipsoid);
}

// From records to documents and back.

template <class T>
element::object WriteRecord(const T& value);

template <class T>
element WriteValue(const char* key, const T& value)
{
    if constexpr (TypeOf<T> != element::Empty) {
        return {key, value};
    } else {
        return {key, WriteRecord(value)};
    }
}

template <class T>
element::object WriteRecord(const T& value)
{
    element::object result;
    VisitKeys(static_cast<const typename Mapping<T>::Record&>(typename Mapping<T>::Record(value)),
              [&](const char* key, const auto& field) { result.append(WriteValue(key, field)); });
    return result;
}

View AsView(const View& view)
{
    return view;
}
View AsView(const element& e)
{
    return View::Of(e);
}

/// Reads the elements of an object or the children of a view.
template <class T>
T ReadRecord(const auto& elements);

template <class T>
T ReadValue(const View& view)
{
    if constexpr (TypeOf<T> != element::Empty) {
        return view.Read<T>();
    } else {
        return ReadRecord<T>(Children(view));
    }
}

template <class T>
T ReadRecord(const auto& elements)
{
    typename Mapping<T>::Record record;
    for (const auto& e : elements) {
        const View view = AsView(e);
        VisitKeys(record, [&](const char* key, auto& field) {
            if (std::strcmp(key, view.Name()) == 0) field = ReadValue<std::remove_reference_t<decltype(field)>>(view);
        });
    }
    return static_cast<T>(record);
}

// Point sets: the arrays as they are in memory.

template <class T>
element WriteArray(const char* key, const std::vector<T>& array)
{
    const std::size_t size = array.size() * sizeof(T);
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        throw std::length_error(std::string("array too long for a document: ") + key);
    return {key, array.data(), static_cast<unsigned>(size)};
}

/// Every operation of the library relies on a fourth lane of 0, whatever a document says.
void Restore(Vec3& point)
{
    point.w = 0.0F;
}
void Restore(CPointFeatureHistogram&) {}

/// A binary that holds an array of records; absent by default.
struct StoredArray {
    const char* key;
    View view;

    [[nodiscard]] bool IsPresent() const { return view.raw != nullptr; }
    [[nodiscard]] std::size_t Size() const { return std::get<1>(view.Binary()); }

    template <class T>
    [[nodiscard]] std::vector<T> Read() const
    {
        const auto [bytes, size, subtype] = view.Binary();
        std::vector<T> array(size / sizeof(T));
        if (size > 0) std::memcpy(array.data(), bytes, size);
        for (T& record : array) Restore(record);
        return array;
    }
};

template <class T>
std::size_t NumberOf(const StoredArray& array)
{
    if (array.Size() % sizeof(T) != 0)
        throw std::invalid_argument(std::string("length of \"") + array.key +
                                    "\" is not a multiple of its record size");
    return array.Size() / sizeof(T);
}

/// Fills all arrays of a group from their binaries, or none when one is absent.
template <class... T>
void ReadGroup(const std::pair<StoredArray, std::vector<T>&>&... arrays)
{
    if (!(arrays.first.IsPresent() && ...)) return;
    const std::size_t numbers[] = {NumberOf<T>(arrays.first)...};
    for (const std::size_t n : numbers)
        if (n != numbers[0]) throw std::invalid_argument("arrays of a point set hold different numbers of records");
    ((arrays.second = arrays.first.template Read<T>()), ...);
}

CFPFHPointSet ReadPointSet(const auto& elements)
{
    StoredArray stored[] = {
        {"Points", {}}, {"Normals", {}}, {"FeaturePoints", {}}, {"FeatureNormals", {}}, {"Features", {}}};
    for (const auto& e : elements) {
        const View view = AsView(e);
        for (StoredArray& array : stored) {
            if (std::strcmp(array.key, view.Name()) != 0) continue;
            view.Require(element::Binary);
            array.view = view;
        }
    }
    std::vector<Vec3> points, normals, featurePoints, featureNormals;
    std::vector<CPointFeatureHistogram> features;
    ReadGroup<Vec3, Vec3>({stored[0], points}, {stored[1], normals});
    ReadGroup<Vec3, Vec3, CPointFeatureHistogram>({stored[2], featurePoints}, {stored[3], featureNormals},
                                                  {stored[4], features});
    return {points, normals, featurePoints, featureNormals, features};
}

} // namespace

element::object to_object(const CTrafo& trafo)
{
    return WriteRecord(trafo);
}
element::object to_object(const CbMatrix4Rd& matrix)
{
    return to_object(CTrafo(matrix));
}
element::object to_object(const CbMatrix4Rf& matrix)
{
    return to_object(CTrafo(matrix));
}
element::object to_object(const ConfigurationFPFH& config)
{
    return WriteRecord(config);
}
element::object to_object(const ConfigurationICP& config)
{
    return WriteRecord(config);
}
element::object to_object(const Ellipsoid& ellipsoid)
{
    return WriteRecord(ellipsoid);
}
element::object to_object(const ICPResult& result)
{
    return WriteRecord(result);
}

element::object to_object(const CFPFHPointSet& set)
{
    element::object result;
    result.append(WriteArray("Points", set.GetPoints()));
    result.append(WriteArray("Normals", set.GetNormals()));
    result.append(WriteArray("FeaturePoints", set.GetFeaturePoints()));
    result.append(WriteArray("FeatureNormals", set.GetFeatureNormals()));
    result.append(WriteArray("Features", set.GetFeatures()));
    return result;
}

element::object to_object(const CFPFHPreRegistration& registration)
{
    element::object transforms;
    for (const ICPResult& result : registration.GetVerifiedTrafos()) // areas as far as known
        transforms.append({std::to_string(transforms.end() - transforms.begin()), to_object(result)});
    element::object result;
    result.append({"FixPointSet", to_object(registration.GetFixPointSet())});
    result.append({"FltPointSet", to_object(registration.GetFltPointSet())});
    result.append({"Configuration", to_object(registration.GetMatchingConfig())});
    result.append({"Transforms", transforms});
    return result;
}

template <>
CTrafo from_object<CTrafo>(const element::object& object)
{
    return ReadRecord<CTrafo>(object);
}
template <>
CbMatrix4Rd from_object<CbMatrix4Rd>(const element::object& object)
{
    return ReadRecord<CTrafo>(object);
}
template <>
CbMatrix4Rf from_object<CbMatrix4Rf>(const element::object& object)
{
    return ReadRecord<CTrafo>(object);
}
template <>
ConfigurationFPFH from_object<ConfigurationFPFH>(const element::object& object)
{
    return ReadRecord<ConfigurationFPFH>(object);
}
template <>
ConfigurationICP from_object<ConfigurationICP>(const element::object& object)
{
    return ReadRecord<ConfigurationICP>(object);
}
template <>
Ellipsoid from_object<Ellipsoid>(const element::object& object)
{
    return ReadRecord<Ellipsoid>(object);
}
template <>
ICPResult from_object<ICPResult>(const element::object& object)
{
    return ReadRecord<ICPResult>(object);
}

template <>
CFPFHPointSet from_object<CFPFHPointSet>(const element::object& object)
{
    return ReadPointSet(object);
}

template <>
CFPFHPreRegistration from_object<CFPFHPreRegistration>(const element::object& object)
{
    auto fix = std::make_shared<const CFPFHPointSet>();
    auto flt = fix;
    ConfigurationFPFH config;
    std::vector<ICPResult> results;
    for (const element& e : object) {
        const View view = View::Of(e);
        const std::string_view name = view.Name();
        if (name == "FixPointSet") fix = std::make_shared<const CFPFHPointSet>(ReadPointSet(Children(view)));
        if (name == "FltPointSet") flt = std::make_shared<const CFPFHPointSet>(ReadPointSet(Children(view)));
        if (name == "Configuration") config = ReadValue<ConfigurationFPFH>(view);
        if (name != "Transforms") continue;
        results.clear();
        for (const View& child : Children(view)) results.push_back(ReadValue<ICPResult>(child));
    }
    CFPFHPreRegistration registration(std::move(fix), std::move(flt), config);
    for (const ICPResult& result : results) registration.InjectICPResult(result);
    return registration;
}

} // namespace VoAlgo::bson
