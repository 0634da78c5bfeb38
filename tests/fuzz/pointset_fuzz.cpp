// A document is read as a point set, as a case and as records: it gives a value that writes and reads back to the same
// bytes, or a documented exception.
#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/platform/logging.h"
#include "tests/bson/bson_support.h"
#include "tests/fuzz/detail_require.h"

using VoAlgo::bson::element;
using VoAlgo::bson::from_object;
using VoAlgo::bson::to_object;
using namespace bson_test;

namespace {

/// Nothing for a documented exception.
template <class T>
std::optional<T> Read(const element::object& document)
{
    try {
        return from_object<T>(document);
    } catch (const std::bad_cast&) {
    } catch (const std::invalid_argument&) {
    }
    return std::nullopt;
}

template <class T>
void RequireFixedPoint(const T& value)
{
    const element::object written = to_object(value);
    Require(BytesOf(to_object(from_object<T>(written))) == BytesOf(written));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    Logging::SetSink([](const Logging::Message&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const auto document = Parsed([&] { return element::object::unfreeze(data, size); });
    if (!document) return 0;
    if (const auto set = Read<prereg::CFPFHPointSet>(*document)) RequireFixedPoint(*set);
    if (const auto config = Read<prereg::ConfigurationFPFH>(*document)) RequireFixedPoint(*config);
    if (const auto result = Read<prereg::ICPResult>(*document)) // its start ratio does not come back
        Require(from_object<prereg::ICPResult>(to_object(*result)).iStop_Iterations == result->iStop_Iterations);
    if (const auto registration = Read<prereg::CFPFHPreRegistration>(*document)) {
        RequireFixedPoint(registration->GetFixPointSet());
        RequireFixedPoint(registration->GetFltPointSet());
        const auto again = from_object<prereg::CFPFHPreRegistration>(to_object(*registration));
        RequireFixedPoint(registration->GetMatchingConfig());
        Require(again.GetVerifiedTrafos().size() == registration->GetVerifiedTrafos().size());
    }
    return 0;
}
