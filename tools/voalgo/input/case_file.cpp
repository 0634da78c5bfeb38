#include "input/case_file.h"

#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/verdict/registrationsettings.h"
#include "VoAlgorithms/version.h"
#include "exchange/files/input_error.h"
#include "exchange/files/length_unit.h"
#include "platform/finite.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace voalgo {

namespace {

using VoAlgo::bson::element;

constexpr const char* NotesKey = "Tool";

element ToElement(const char* key, const std::array<double, 3>& position)
{
    return {key, (element("x", position[0]), element("y", position[1]), element("z", position[2]))};
}

element ToElement(const CaseNotes& notes)
{
    return {NotesKey, (element("version", VOALGO_VERSION), element("preset", notes.preset), element("unit", notes.unit),
                       element("fixSha1", notes.fixChecksum), element("fltSha1", notes.fltChecksum),
                       element("resolution", notes.resolution), element("roughness", notes.roughness),
                       element("minOverlap", notes.minOverlap), ToElement("fixOrigin", notes.fixOrigin),
                       ToElement("fltOrigin", notes.fltOrigin))};
}

void ReadPosition(const element& stored, std::array<double, 3>& position)
{
    if (stored.type() == element::Empty) return;
    position = {stored.child("x").as_double(), stored.child("y").as_double(), stored.child("z").as_double()};
    if (!VoAlgo::AllFinite(position.data(), 3)) throw std::invalid_argument("an origin is not finite");
}

CaseNotes ReadNotes(const element& stored)
{
    CaseNotes notes;
    for (auto [key, field] : {std::pair{"preset", &notes.preset},
                              {"unit", &notes.unit},
                              {"fixSha1", &notes.fixChecksum},
                              {"fltSha1", &notes.fltChecksum}})
        if (const element value = stored.child(key); value.type() != element::Empty) *field = value.as_string();
    for (auto [key, field] : {std::pair{"resolution", &notes.resolution},
                              {"roughness", &notes.roughness},
                              {"minOverlap", &notes.minOverlap}})
        if (const element value = stored.child(key); value.type() != element::Empty) *field = value.as_double();
    ReadPosition(stored.child("fixOrigin"), notes.fixOrigin);
    ReadPosition(stored.child("fltOrigin"), notes.fltOrigin);
    if (!prereg::PresetOf(notes.preset) || !UnitOf(notes.unit)) throw std::invalid_argument("unknown preset or unit");
    return notes;
}

} // namespace

std::string CaseBytes(const prereg::CFPFHPointSet& fix, const prereg::CFPFHPointSet& flt,
                      const prereg::RegistrationSettings& settings, const std::vector<prereg::ICPResult>& results,
                      CaseNotes notes)
{
    notes.resolution = settings.resolution;
    notes.roughness = settings.verification.roughness;
    notes.minOverlap = settings.verification.minOverlap;
    prereg::CFPFHPreRegistration registration(fix, flt, settings.config, false);
    for (const auto& result : results) registration.InjectICPResult(result);
    element::object document = VoAlgo::bson::to_object(registration);
    document.append(ToElement(notes));
    const auto [bytes, size] = document.freeze();
    return {reinterpret_cast<const char*>(bytes.get()), static_cast<std::size_t>(size)};
}

element::object ParseDocument(const std::string& bytes, const std::string& origin)
{
    try {
        auto document = element::object::unfreeze(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
        if (document.size() == bytes.size()) return document;
    } catch (const std::invalid_argument&) { // its text says no more
    }
    throw InputError(origin + ": truncated, or not a case file");
}

Case ParseCase(const std::string& bytes, const std::string& origin)
{
    const element::object document = ParseDocument(bytes, origin);
    for (const char* key : {"FixPointSet", "FltPointSet"})
        if (document.child(key).type() != element::Object)
            throw InputError(origin + ": not a case: \"" + key + "\" is missing");
    try {
        return {VoAlgo::bson::from_object<prereg::CFPFHPreRegistration>(document), ReadNotes(document.child(NotesKey))};
    } catch (const std::exception& error) {
        throw InputError(origin + ": damaged case: " + error.what());
    }
}

} // namespace voalgo
