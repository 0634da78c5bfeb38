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

    virtual bool Compute() = 0;
    [[nodiscard]] virtual bool HasMoreResults() const = 0;
    [[nodiscard]] virtual ICPResult PeekBestResult() = 0;
    virtual ICPResult GetNextResult() = 0;
    virtual ICPResult InjectTrafo(const VoAlgo::CTrafo& trafo, const VoAlgo::CTrafo* reference = nullptr) = 0;
    [[nodiscard]] virtual const CPointSet& GetFixPointSet() const = 0;
    [[nodiscard]] virtual const CPointSet& GetFltPointSet() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const CPointSet> GetFixPointSetPtr() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const CPointSet> GetFltPointSetPtr() const = 0;

protected:
    IPreRegistration() = default;
    IPreRegistration(const IPreRegistration&) = default;
    IPreRegistration(IPreRegistration&&) = default;
    IPreRegistration& operator=(const IPreRegistration&) = default;
    IPreRegistration& operator=(IPreRegistration&&) = default;
};

} // namespace prereg
