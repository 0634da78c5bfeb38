#include "registration.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "thin.h"
#include "verification.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace voalgo {
namespace {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;

constexpr std::int32_t OverlapTooSmall = 8; // result type

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The pose that the search found kept the limit on the area, if there is one; the verification has moved it since.
void JudgeArea(JudgedTrafo& judged, const CFPFHPreRegistration& driver)
{
    const prereg::ConfigurationICP& icp = driver.GetMatchingConfig().icpConfig;
    if (!judged.objection.empty() || !(icp.dMinOverlapArea > 0.0)) return;
    judged.fStop_OverlapArea = driver.EstimateOverlapArea(judged.trafo);
    judged.tests.push_back(AreaTest(judged, icp, "both sides"));
    if (judged.tests.back().outcome == AcceptanceTest::Outcome::Failed) judged.objection = CauseText(OverlapTooSmall);
}

/// The driver's search in steps: until enough proposals agree on one pose that passes the verification.
class Search {
public:
    Search(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt, const Settings& settings,
           const Progress& progress)
        : settings_(settings), progress_(progress), fix_(std::move(fix)), flt_(std::move(flt)),
          driver_(fix_, flt_, settings.config)
    {
        driver_.GetMatchingConfig().uiNumPolygons = BatchSize;
    }

    void Run(Registration& registration)
    {
        const std::uint32_t quorum = settings_.config.uiTrafoClusteringQuorum;
        const bool isLean = fix_->IsTooLean(settings_.config) || flt_->IsTooLean(settings_.config);
        const std::uint32_t numPolygons = isLean ? 0 : settings_.config.uiNumPolygons;
        std::uint32_t done = 0;
        while (done < numPolygons) {
            progress_("search", static_cast<double>(done) / numPolygons);
            driver_.Compute();
            done += BatchSize;
            if (quorum == 0 || driver_.GetBestClusterSize() < quorum) continue;
            driver_.GetMatchingConfig().uiTrafoClusteringQuorum = 0; // what comes first may not be right: search on
            if (driver_.GetBestClusterSize() < Agreement && done < ManyPolygons) continue;
            registration.results = TakeConfirmed(quorum);
            if (IsEnough(registration.results, done)) break;
        }
        if (done >= numPolygons) registration.results = TakeConfirmed(settings_.verification.minClusterSize);
        registration.refused = Refused(!registration.results.empty());
        for (JudgedTrafo& result : registration.results)
            result.fStop_OverlapArea = driver_.EstimateOverlapArea(result.trafo);
        registration.reason = Reason(registration.results);
        driver_.GetMatchingConfig().uiNumPolygons = settings_.config.uiNumPolygons;
        registration.statistics = driver_.GetStatistics();
        progress_("search", 1.0);
    }

private:
    using VerifiedTrafo = CFPFHPreRegistration::VerifiedTrafo;

    static constexpr std::uint32_t BatchSize = 50; // polygons a step
    static constexpr std::uint32_t ManyPolygons = 500;
    // An object that looks alike when turned has shown its other poses, too, once so many proposals agree on one.
    static constexpr std::uint32_t Agreement = 8;

    /// What two scans share by chance is small: such a result must stay the best of many polygons.
    static bool IsEnough(const std::vector<JudgedTrafo>& results, std::uint32_t polygons)
    {
        constexpr float SmallOverlap = 0.4F;
        return !results.empty() && (results[0].fStop_OverlapRatio >= SmallOverlap || polygons >= ManyPolygons);
    }

    /// The results that at least so many proposals led to and that pass the verification; first what explains most of
    /// the scan.
    std::vector<JudgedTrafo> TakeConfirmed(std::uint32_t minClusterSize)
    {
        std::vector<JudgedTrafo> confirmed;
        lonely_.clear();
        for (const VerifiedTrafo& result : driver_.GetVerifiedTrafos()) {
            if (result.clusterSize < minClusterSize) {
                if (lastObjection_.empty()) lastObjection_ = TooFewAgree;
                lonely_.push_back(result);
                continue;
            }
            if (std::find(refused_.begin(), refused_.end(), result.trafo) != refused_.end()) continue;
            JudgedTrafo judged = Verify(*fix_, *flt_, settings_.verification, result);
            judged.tests.insert(judged.tests.begin(), Agreed(result, minClusterSize));
            JudgeArea(judged, driver_);
            if (judged.objection.empty()) {
                const auto isSame = [&](const JudgedTrafo& other) { return IsSamePose(other.trafo, judged.trafo); };
                if (std::none_of(confirmed.begin(), confirmed.end(), isSame)) confirmed.push_back(std::move(judged));
                continue;
            }
            refused_.push_back(result.trafo);
            lastObjection_ = judged.objection;
            objectedTo_.push_back(std::move(judged));
        }
        SortByExplainedShare(confirmed);
        return confirmed;
    }

    static void SortByExplainedShare(std::vector<JudgedTrafo>& results)
    {
        std::stable_sort(results.begin(), results.end(), [](const JudgedTrafo& a, const JudgedTrafo& b) {
            return ExplainedShare(a) > ExplainedShare(b);
        });
    }

    /// Whether clustering would put two poses together.
    [[nodiscard]] bool IsSamePose(const VoAlgo::CTrafo& a, const VoAlgo::CTrafo& b) const
    {
        const auto [low, high] = flt_->GetAABB();
        const kdtree::Vector<3> centre = (low + high) * 0.5F;
        const double angle = settings_.config.dOrientationClusteringBandwidth;
        return static_cast<double>((a * centre - b * centre).Norm()) <= settings_.config.dTrafoClusteringBandwidth &&
               (angle <= 0.0 || static_cast<double>(a.GetRotationDistance(b)) <= angle);
    }

    /// A quite different pose that fits about as well as the best result. It need not be one to hand out itself.
    [[nodiscard]] std::optional<VerifiedTrafo> Rival(const VerifiedTrafo& best) const
    {
        const auto isRival = [&](const VerifiedTrafo& other) {
            return ExplainedShare(other) > AlikeShare * ExplainedShare(best) && !IsSamePose(other.trafo, best.trafo);
        };
        for (const VerifiedTrafo& other : driver_.GetVerifiedTrafos()) {
            if (!isRival(other)) continue;
            const JudgedTrafo judged = VerifyFit(*fix_, *flt_, settings_.verification, other);
            if (judged.objection.empty() && isRival(judged)) return judged;
        }
        return std::nullopt;
    }

    /// Asks for a rival of the best result; true when there is one.
    [[nodiscard]] bool HasRival(std::vector<JudgedTrafo>& results) const
    {
        JudgedTrafo& best = results[0];
        std::optional<VerifiedTrafo> rival = Rival(best);
        const bool isAmbiguous = rival.has_value();
        if (!rival && results.size() > 1) rival = results[1]; // the next best, though clearly less
        const double share = rival ? static_cast<double>(ExplainedShare(*rival) / ExplainedShare(best)) : 0.0;
        AcceptanceTest test =
            AtMost("Another pose explains, of what this one does", "", "", share, static_cast<double>(AlikeShare));
        test.outcome = isAmbiguous ? AcceptanceTest::Outcome::Failed : AcceptanceTest::Outcome::Passed;
        test.stage = "all results";
        best.tests.push_back(test);
        return isAmbiguous;
    }

    static AcceptanceTest Agreed(const VerifiedTrafo& result, std::uint32_t minClusterSize)
    {
        AcceptanceTest test = AtLeast("Proposals that agree", "minClusterSize", "", result.clusterSize, minClusterSize);
        test.stage = "search";
        return test;
    }

    /// What was verified in vain; when nothing passed, then what too few proposals led to.
    [[nodiscard]] std::vector<JudgedTrafo> Refused(bool isFound) const
    {
        std::vector<JudgedTrafo> refused = objectedTo_;
        SortByExplainedShare(refused);
        if (isFound) return refused;
        std::vector<JudgedTrafo> lonely;
        for (const VerifiedTrafo& result : lonely_) {
            JudgedTrafo& judged = lonely.emplace_back(result, TooFewAgree);
            judged.tests = TestsOf(result, settings_.config.icpConfig, "search");
            judged.tests.insert(judged.tests.begin(), Agreed(result, settings_.verification.minClusterSize));
        }
        SortByExplainedShare(lonely);
        refused.insert(refused.end(), lonely.begin(), lonely.end());
        return refused;
    }

    [[nodiscard]] std::string Reason(std::vector<JudgedTrafo>& results) const
    {
        if (fix_->IsTooLean(settings_.config)) return "too few features in FIX";
        if (flt_->IsTooLean(settings_.config)) return "too few features in FLT";
        if (!results.empty())
            return HasRival(results) ? "ambiguous: different poses fit about equally well" : std::string();
        if (lastObjection_.empty()) return "no proposed pose passed the acceptance tests";
        return "no accepted pose was confirmed; the last objection: " + lastObjection_;
    }

    const Settings& settings_;
    const Progress& progress_;
    std::shared_ptr<const CFPFHPointSet> fix_;
    std::shared_ptr<const CFPFHPointSet> flt_;
    CFPFHPreRegistration driver_;
    static constexpr const char* TooFewAgree = "too few proposals agree on the pose";
    std::vector<VoAlgo::CTrafo> refused_; // by the verification, as the search found them
    std::vector<JudgedTrafo> objectedTo_; // the same, as the verification left them
    std::vector<VerifiedTrafo> lonely_;   // results that too few proposals led to
    std::string lastObjection_;
};

} // namespace

float ExplainedShare(const prereg::ICPResult& result)
{
    return result.fStop_SmallBigRatio * result.fStop_OverlapRatio;
}

std::shared_ptr<const CFPFHPointSet> ComputeFeatures(const Cloud& cloud, const Settings& settings)
{
    const unsigned threads =
        settings.threads != 0 ? settings.threads : std::max(1U, std::thread::hardware_concurrency());
    const Cloud thinned = settings.workingSpacing > 0.0 ? Thin(cloud, settings.workingSpacing) : cloud;
    prereg::CFPFHDataSource source(settings.config.dFeatureRadius, settings.config.uiMinCurvatureQuality, threads,
                                   false);
    source.Update(thinned.points, thinned.normals);
    return std::make_shared<const CFPFHPointSet>(cloud.points, cloud.normals, source.GetFeaturePoints(),
                                                 source.GetFeatureNormals(), source.GetFeatures());
}

Registration Register(const Cloud& fix, const Cloud& flt, const Settings& settings, const Progress& progress)
{
    const auto report = [&progress](const char* stage, double share) {
        if (progress) progress(stage, share);
    };
    const double start = Now();
    report("features", 0.0);
    auto fixSet = ComputeFeatures(fix, settings);
    report("features", 0.5);
    auto fltSet = ComputeFeatures(flt, settings);
    const double featureSeconds = Now() - start;
    Registration registration = Register(std::move(fixSet), std::move(fltSet), settings, report);
    registration.featureSeconds = featureSeconds;
    return registration;
}

Registration Register(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt,
                      const Settings& settings, const Progress& progress)
{
    Registration registration;
    registration.fix = std::move(fix);
    registration.flt = std::move(flt);
    const double start = Now();
    Search search(registration.fix, registration.flt, settings, progress);
    search.Run(registration);
    registration.searchSeconds = Now() - start;
    return registration;
}

Registration Refine(const Cloud& fix, const Cloud& flt, const Settings& settings, const VoAlgo::CTrafo& start)
{
    const double begin = Now();
    auto fixSet = ComputeFeatures(fix, settings);
    auto fltSet = ComputeFeatures(flt, settings);
    const double featureSeconds = Now() - begin;
    Registration registration = Refine(std::move(fixSet), std::move(fltSet), settings, start);
    registration.featureSeconds = featureSeconds;
    return registration;
}

Registration Refine(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt,
                    const Settings& settings, const VoAlgo::CTrafo& start)
{
    const double begin = Now();
    Registration registration;
    registration.fix = fix;
    registration.flt = flt;
    CFPFHPreRegistration driver(fix, flt, settings.config);
    const CFPFHPreRegistration::VerifiedTrafo found(driver.InjectTrafo(start), 1);
    registration.statistics = driver.GetStatistics();
    JudgedTrafo judged(found, {});
    if (found.resultType == 0) {
        judged = Verify(*fix, *flt, settings.verification, found);
        JudgeArea(judged, driver);
    } else {
        const bool isLean = fix->IsTooLean(settings.config) || flt->IsTooLean(settings.config);
        judged.objection = isLean ? "too few features" : CauseText(found.resultType);
        judged.tests = TestsOf(found, settings.config.icpConfig, "search");
        if (found.resultType <= 2) judged.trafo = start;
    }
    if (judged.objection.empty()) judged.fStop_OverlapArea = driver.EstimateOverlapArea(judged.trafo);
    registration.reason = judged.objection;
    (judged.objection.empty() ? registration.results : registration.refused).push_back(judged);
    registration.searchSeconds = Now() - begin;
    return registration;
}

} // namespace voalgo
