// Hands cases over between processes; kept apart because the rest of the registration knows neither documents nor
// pipes.
#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/runtime/csharedmemorypipe.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace prereg {

using VoAlgo::CSharedMemoryPipe;
using VoAlgo::bson::element;

namespace {

/// Missing keys read as defaults, so that anything, even an empty document, would become a case.
element::object ParseCase(const std::vector<unsigned char>& message)
{
    auto document = element::object::unfreeze(message.data(), message.size());
    for (const char* key : {"FixPointSet", "FltPointSet"})
        if (document.child(key).type() != VoAlgo::bson::element::Object)
            throw std::invalid_argument(std::string("not a case: \"") + key + "\" is missing");
    return document;
}

} // namespace

void CFPFHPreRegistration::SendCase(const std::wstring& pipe) const
{
    CSharedMemoryPipe sender =
        CSharedMemoryPipe::Open(pipe, CasePipeBlock); // before the work: fails at once without a receiver
    const auto [bytes, size] = VoAlgo::bson::to_object(*this).freeze();
    sender.Deliver(bytes.get(), size);
}

CFPFHPreRegistration CFPFHPreRegistration::ReceiveCase(const std::wstring& pipe)
{
    std::optional<CFPFHPreRegistration> received;
    CSharedMemoryPipe::Create(pipe, CasePipeBlock).Accept([&](const std::vector<unsigned char>& message) {
        received.emplace(VoAlgo::bson::from_object<CFPFHPreRegistration>(ParseCase(message)));
    });
    return *std::move(received);
}

} // namespace prereg
