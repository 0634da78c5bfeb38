#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/cfpfhclusteranalysis.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/ipreregistration.h"

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace prereg {

/// Registers two scans without a starting pose: polygons of feature points of 'flt' are matched into 'fix', each
/// proposed pose is refined and verified by ICP, the accepted poses are clustered, and the best of each cluster is a
/// result. Deterministic: the random engine starts from a fixed seed at construction. One thread at a time.
class VOALGO_API CFPFHPreRegistration : public IPreRegistration {
public:
    /// An accepted pose with the number of accepted poses that it stands for.
    struct VOALGO_API VerifiedTrafo : ICPResult {
        std::uint32_t clusterSize = 0; ///< accepted poses in the cluster, this one included

        /// A default result, of no cluster.
        VerifiedTrafo() = default;
        /// `result` as it is.
        VerifiedTrafo(const ICPResult& result, std::uint32_t size) : ICPResult(result), clusterSize(size) {}

        ///@{
        /// Compare the ICPResult part alone.
        bool operator<(const VerifiedTrafo& other) const { return ICPResult::operator<(other); }
        bool operator>(const VerifiedTrafo& other) const { return ICPResult::operator>(other); }
        ///@}
        /// The pose, maps 'flt' coordinates into 'fix'.
        operator const VoAlgo::CTrafo&() const { return trafo; } // NOLINT(google-explicit-constructor)
    };

    /// Figures of the search so far.
    struct VOALGO_API Statistics {
        std::uint32_t uiNumPolygons = 0;   ///< configured attempts, also when the search stopped early
        std::uint32_t uiNumProposals = 0;  ///< distinct verified proposals
        std::uint32_t uiNumSuccessful = 0; ///< accepted
        std::uint32_t uiNumFailed = 0;     ///< refused
        std::vector<std::pair<std::uint32_t, std::uint32_t>> failures; ///< (result type, count), most frequent first

        ///@{
        /// The counts and the causes of failure in words, on one line.
        [[nodiscard]] std::string ToString() const;
        [[nodiscard]] std::wstring ToWString() const;
        ///@}
    };

    /// Without point sets: Compute finds nothing.
    CFPFHPreRegistration();
    /// `copy` true copies both sets; false refers to them, and the caller keeps them alive as long as the driver.
    CFPFHPreRegistration(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const ConfigurationFPFH& config,
                         bool copy);
    /// Shares the given sets.
    CFPFHPreRegistration(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt,
                         const ConfigurationFPFH& config);
    CFPFHPreRegistration(const CFPFHPreRegistration&) = default;
    CFPFHPreRegistration(CFPFHPreRegistration&&) = default;
    CFPFHPreRegistration& operator=(const CFPFHPreRegistration&) = default;
    CFPFHPreRegistration& operator=(CFPFHPreRegistration&&) = default;
    ~CFPFHPreRegistration() override = default;

    /// Runs the search; true when at least one result exists afterwards. May be called again: proposals, verifications
    /// and the random engine go on, so the sets must not change in between. Every call with a negative
    /// dMaxPolygonDiameter clusters the features of 'flt' anew.
    bool Compute() override;
    /// Threads that refine proposals; 1 unless set, 0: as many as the machine has. Results do not depend on it.
    void SetNumThreads(unsigned threads);
    /// Whether another result is available.
    [[nodiscard]] bool HasMoreResults() const override { return !results_.empty(); }
    /// The best result with its overlap area, or a default one (type −1) when there is none.
    [[nodiscard]] ICPResult PeekBestResult() override;
    /// The best result, removed; or a default one (type −1).
    ICPResult GetNextResult() override;
    /// All results with their overlap areas, best first. An area is estimated when its result is first handed out.
    [[nodiscard]] std::vector<ICPResult> GetAllResults() const;
    /// All results with the sizes of their clusters, best first; cheap: overlap areas are not estimated.
    [[nodiscard]] std::vector<VerifiedTrafo> GetVerifiedTrafos() const;
    /// Size of the best result's cluster; 0 when there is none.
    [[nodiscard]] std::uint32_t GetBestClusterSize() const
    {
        return results_.empty() ? 0 : results_.front().clusterSize;
    }
    /// The area of 'fix' that 'flt' covers under a pose, mm², as results carry it: points within dPositionTolerance
    /// count as covered, local areas are estimated from neighbours within twice that.
    [[nodiscard]] float EstimateOverlapArea(const VoAlgo::CTrafo& pose) const;

    /// Refines a pose from outside (maps 'flt' into 'fix') and, when it is accepted, adds it as a result and a
    /// proposal. `reference`: pose against which the rotation and movement limits are measured; null: `trafo`. Returns
    /// the outcome of the refinement, or a default result when a point set is absent or too lean.
    ICPResult InjectTrafo(const VoAlgo::CTrafo& trafo, const VoAlgo::CTrafo* reference = nullptr) override;
    /// Adds a result as it is, with cluster size 1.
    void InjectICPResult(const ICPResult& result);

    ///@{
    /// Name of the pipe that cases pass through between processes, and the bytes of its block.
    static constexpr const wchar_t* CasePipe = L"PreRegistrationFPFH";
    static constexpr std::size_t CasePipeBlock = 0xa00000;
    ///@}
    /// Hands the whole case (both point sets, configuration, results) as a document to the process that waits for it
    /// in ReceiveCase; returns when that process has read it. Throws std::runtime_error when nobody has created the
    /// pipe (at once) or the case was not received, std::length_error for sets that are too large for a document.
    void SendCase(const std::wstring& pipe = CasePipe) const;
    /// Creates the pipe and waits, without time-out, for a case. The driver owns its sets; its results are those that
    /// were sent as documents keep them (VoAlgorithms/documents/records.h), each with cluster size 1. Throws
    /// std::runtime_error when the pipe cannot be created or the sender dies on the way, std::invalid_argument and
    /// std::bad_cast when anything but a case was sent.
    [[nodiscard]] static CFPFHPreRegistration ReceiveCase(const std::wstring& pipe = CasePipe);

    /// Counts over all calls of Compute so far.
    [[nodiscard]] Statistics GetStatistics() const;
    ///@{
    /// Changes apply to the next Compute.
    [[nodiscard]] ConfigurationFPFH& GetMatchingConfig() { return config_; }
    [[nodiscard]] const ConfigurationFPFH& GetMatchingConfig() const { return config_; }
    ///@}

    ///@{
    /// The sets as passed in; without one, an empty set by reference and null by pointer.
    [[nodiscard]] const CFPFHPointSet& GetFixPointSet() const override;
    [[nodiscard]] const CFPFHPointSet& GetFltPointSet() const override;
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFixPointSetPtr() const override { return fix_; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFltPointSetPtr() const override { return flt_; }
    ///@}

private:
    struct TrafoHash {
        std::size_t operator()(const VoAlgo::CTrafo& trafo) const;
    };
    struct TrafoEqual {
        bool operator()(const VoAlgo::CTrafo& a, const VoAlgo::CTrafo& b) const { return a == b && b == a; }
    };

    using Group = std::vector<std::size_t>; // accepted poses that count as one

    [[nodiscard]] bool isTooLean() const;
    void verifyProposals();
    [[nodiscard]] ICPResult refine(const VoAlgo::CTrafo& start, const VoAlgo::CTrafo* reference) const;
    [[nodiscard]] ICPResult evaluate(const VoAlgo::CTrafo& pose) const;
    void fillOverlapArea(ICPResult& result) const;
    void clusterTransformations();
    [[nodiscard]] std::vector<Group> groupByPosition(bool& failed) const;
    [[nodiscard]] std::vector<Group> splitByOrientation(std::size_t cluster, const Group& members) const;
    void pushResult(const ICPResult& result, std::size_t clusterSize);

    std::shared_ptr<const CFPFHPointSet> fix_;
    std::shared_ptr<const CFPFHPointSet> flt_;
    ConfigurationFPFH config_;
    std::mt19937 engine_;
    unsigned threads_ = 1;
    std::vector<VoAlgo::CTrafo> proposals_;
    // A heap, the best at the front. Handing out fills in overlap areas, which take no part in the order.
    mutable std::vector<VerifiedTrafo> results_;
    std::unordered_map<VoAlgo::CTrafo, ICPResult, TrafoHash, TrafoEqual> verified_;
    CFPFHClusterAnalysis clusters_;
    std::size_t numExamined_ = 0;     // proposals whose outcome is known
    std::vector<ICPResult> accepted_; // their successes, in proposal order
};

} // namespace prereg
