#include "VoAlgorithms/verdict/registration.h"

#include "VoAlgorithms/verdict/localframes.h"

#include <stdexcept>

namespace prereg {

const JudgedTrafo& Registration::Best() const
{
    if (refusal || results.empty()) throw std::logic_error("no pose can be trusted: " + refusal.text);
    return results.front();
}

VoAlgo::CbMatrix4Rd Registration::Pose() const
{
    return PoseOf(Best());
}

VoAlgo::CbMatrix4Rd Registration::PoseOf(const JudgedTrafo& judged) const
{
    return PoseOfCoordinates(judged.trafo, fixOrigin, fltOrigin);
}

} // namespace prereg
