#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/cpointset.h"
#include "VoAlgorithms/prereg/icpresult.h"

#include <memory>

namespace prereg {

/// A registration of a floating point set ('flt') with a fixed one ('fix') without a starting pose.
class VOALGO_API IPreRegistration {
public:
    virtual ~IPreRegistration() = default;

    /// Searches; true when at least one result exists afterwards.
    virtual bool Compute() = 0;
    /// Whether another result is available.
    [[nodiscard]] virtual bool HasMoreResults() const = 0;
    /// The best result, without removing it; a default one (type −1) when there is none.
    [[nodiscard]] virtual ICPResult PeekBestResult() = 0;
    /// The best result, removed; a default one (type −1) when there is none.
    virtual ICPResult GetNextResult() = 0;
    /// Refines a pose from outside (maps 'flt' into 'fix') and, when it is accepted, adds it to the results.
    /// `reference`: pose against which the rotation and movement limits are measured; null: `trafo`.
    virtual ICPResult InjectTrafo(const VoAlgo::CTrafo& trafo, const VoAlgo::CTrafo* reference = nullptr) = 0;
    ///@{
    /// The two sets as passed in; without one, an empty set by reference and null by pointer.
    [[nodiscard]] virtual const CPointSet& GetFixPointSet() const = 0;
    [[nodiscard]] virtual const CPointSet& GetFltPointSet() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const CPointSet> GetFixPointSetPtr() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const CPointSet> GetFltPointSetPtr() const = 0;
    ///@}

protected:
    IPreRegistration() = default;
    IPreRegistration(const IPreRegistration&) = default;
    IPreRegistration(IPreRegistration&&) = default;
    IPreRegistration& operator=(const IPreRegistration&) = default;
    IPreRegistration& operator=(IPreRegistration&&) = default;
};

} // namespace prereg
