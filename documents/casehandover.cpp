// Hands cases over between processes; kept apart because the rest of the registration knows neither documents nor
// pipes.
#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/runtime/csharedmemorypipe.h"

namespace prereg {

using VoAlgo::CSharedMemoryPipe;
using VoAlgo::bson::element;

void CFPFHPreRegistration::SendCase(const std::wstring& pipe) const
{
    CSharedMemoryPipe sender =
        CSharedMemoryPipe::Open(pipe, CasePipeBlock); // before the work: fails at once without a receiver
    const auto [bytes, size] = VoAlgo::bson::to_object(*this).freeze();
    sender.Send(bytes.get(), size);
}

CFPFHPreRegistration CFPFHPreRegistration::ReceiveCase(const std::wstring& pipe)
{
    const auto receive = [&] {
        const auto message = CSharedMemoryPipe::Create(pipe, CasePipeBlock).Receive();
        return element::object::unfreeze(message.data(), message.size());
    };
    return VoAlgo::bson::from_object<CFPFHPreRegistration>(receive());
}

} // namespace prereg
