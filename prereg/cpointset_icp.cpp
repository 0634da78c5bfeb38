// Iterative closest point, point to plane (Y. Chen, G. Medioni, Image and Vision Computing 10 (1992) 145-155), on
// random samples of the floating set:
// 1. Pair the samples with their nearest reference points, turn down pairs whose normals disagree, sort by error.
// 2. Drop outliers: errors above a multiple of the robust spread (median absolute deviation).
// 3. Iterate: solve for the small motion that brings the inliers onto the reference tangent planes, move on, and pair
//    again within the reach of the last inliers. Keep the pose whose inliers had the smallest RMSE.
// 4. Grade: stability of the pairing (small and big radius), overlap, then the acceptance tests in their fixed order.
// All random indices of a run come from one stream, so the order of the draws is part of the result.
#include "VoAlgorithms/numerics/symsolvers.h"
#include "VoAlgorithms/prereg/cpointset.h"
#include "VoAlgorithms/prereg/eicpresulttype.h"
#include "platform/randomseed.h"
#include "prereg/icplimits.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;
using VoAlgo::CTrafo;

constexpr double RadiansPerDegree = 0.0174532925199433;
constexpr double IterationMismatchFactor = 100.0; // deliberate: the final test uses the ratio unscaled
constexpr float DivergenceFactor = 16.0F;
constexpr double MadToSigma = 1.4826;
constexpr float MinInlierError = 0.001F; // mm²

constexpr float FindsNothing = -1.0F; // as a squared radius

/// Squared search radius; a length that is negative or NaN finds nothing.
float RadiusSq(double length)
{
    if (!(length >= 0.0)) return FindsNothing;
    const auto single = static_cast<float>(length);
    return single * single;
}

/// The largest signed number stands for all larger ones.
std::int32_t ToSigned(std::uint32_t iterations)
{
    return static_cast<std::int32_t>(std::min<std::uint32_t>(iterations, std::numeric_limits<std::int32_t>::max()));
}

/// Median by selection; reorders the values.
float Median(std::vector<float>& values)
{
    const std::size_t n = values.size();
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(n / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (n % 2 == 1) return *middle;
    return (*std::max_element(values.begin(), middle) + *middle) * 0.5F;
}

} // namespace

/// The state of one ICP registration.
class CIcpRun {
public:
    CIcpRun(const ConfigurationICP& config, const CPointSet& fix, const CPointSet& flt, const CTrafo& start,
            const CTrafo& reference)
        : config_(config), fix_(fix), flt_(flt), start_(start), reference_(reference), current_(start), best_(start),
          minRadiusSq_(RadiusSq(config.dMinQueryRadius)), minPairs_(MinPairs(config.uiNumSamples))
    {
        const int last = static_cast<int>(std::max<std::size_t>(flt.Size(), 1)) - 1;
        randomIndex_ = [engine = std::mt19937(VoAlgo::RandomSeed),
                        distribution = std::uniform_int_distribution<int>(0, last)]() mutable {
            return distribution(engine);
        };
    }

    ICPResult Run()
    {
        if (!firstPass()) return result_;
        for (std::uint32_t i = 0; i < config_.uiMaxNumIterations;) {
            const Step step = iterate(++i);
            if (step == Step::Failed) return result_;
            if (step == Step::Diverged) break;
        }
        grade();
        return result_;
    }

private:
    enum class Step { Continue, Diverged, Failed };

    bool firstPass()
    {
        const bool isScaled = config_.dInitialQueryRadiusScaling >= 0.0; // two negative factors make no radius
        pairSamples(isScaled ? RadiusSq(config_.dInitialQueryRadiusScaling * config_.dPositionTolerance)
                             : FindsNothing);
        result_.fStart_OverlapRatio = static_cast<float>(pairs_.size()) / static_cast<float>(config_.uiNumSamples);
        if (pairs_.size() < minPairs_) return fail(EICPResultType::InitialOverlapTooSmall);
        cutOutliers();
        result_.iStart_NumberOfInliers = static_cast<std::int32_t>(inliers_);
        result_.fStart_RMSE = rmse_;
        if (inliers_ < MinInliers) return fail(EICPResultType::TooFewInliersInitially);
        result_.fStart_MismatchesPerMatchRatio = static_cast<float>(mismatchesPerPair());
        result_.trafo = start_;
        bestRmse_ = rmse_;
        bestInliers_ = inliers_;
        return true;
    }

    /// One update from the last pass's pairs, then the next pass.
    Step iterate(std::uint32_t i)
    {
        const CTrafo update = fix_.computeTrafoUpdate(config_, flt_, pairs_, current_, inliers_);
        const Ellipsoid before = fix_.GetEllipsoid().Transformed(current_);
        const float movementSq = before.DistanceSq(before.Transformed(update));
        current_ = update * current_;
        if (movementSq > DivergenceFactor * previousMovementSq_) return Step::Diverged;
        const double mismatchLimit = config_.dMaxErrorRatio > 0.0 ? IterationMismatchFactor * config_.dMaxErrorRatio
                                                                  : std::numeric_limits<double>::max();
        if (mismatchesPerPair() > mismatchLimit) {
            result_.iStop_Iterations = ToSigned(i);
            return failIteration(EICPResultType::TooManyMismatchesIterating);
        }
        if (bestRmse_ > rmse_) { // the pose that the last pass's pairs produced
            best_ = current_;
            bestRmse_ = rmse_;
            bestInliers_ = inliers_;
            bestIteration_ = i;
        }
        pairSamples(std::max(minRadiusSq_, largestInlierDistanceSq()));
        if (pairs_.size() < minPairs_) return failIteration(EICPResultType::OverlapTooSmallIterating);
        cutOutliers();
        if (inliers_ < MinInliers) return failIteration(EICPResultType::TooFewInliersIterating);
        previousMovementSq_ = movementSq;
        return Step::Continue;
    }

    /// The acceptance tests in their fixed order.
    bool grade()
    {
        result_.trafo = best_;
        result_.iStop_NumberOfInliers = static_cast<std::int32_t>(bestInliers_);
        result_.fStop_RMSE = bestRmse_;
        result_.iStop_Iterations = ToSigned(bestIteration_);
        if (config_.dMinSmallBigRatio > 0.0) {
            evaluateSmallBig();
            if (config_.dMinSmallBigRatio > static_cast<double>(result_.fStop_SmallBigRatio))
                return fail(EICPResultType::TooManyMismatches);
        }
        evaluateOverlap();
        if (static_cast<double>(result_.fStop_RMSE) > config_.dMaxRMSE) return fail(EICPResultType::RmseTooLarge);
        if (config_.dMinOverlapRatio > static_cast<double>(result_.fStop_OverlapRatio))
            return fail(EICPResultType::OverlapTooSmall);
        if (config_.dMaxErrorRatio > 0.0 &&
            static_cast<double>(result_.fStop_MismatchesPerMatchRatio) > config_.dMaxErrorRatio)
            return fail(EICPResultType::TooManyMismatches);
        if (config_.dMaxRotationDistance > 0.0 &&
            static_cast<double>(reference_.GetRotationDistance(best_)) > config_.dMaxRotationDistance)
            return fail(EICPResultType::TooFarAway);
        if (config_.dMaxMovement > 0.0) {
            const Ellipsoid before = fix_.GetEllipsoid().Transformed(reference_);
            if (std::sqrt(static_cast<double>(before.DistanceSq(before.Transformed(best_)))) > config_.dMaxMovement)
                return fail(EICPResultType::TooFarAway);
        }
        result_.resultType = static_cast<std::int32_t>(EICPResultType::Success);
        result_.ellipsoid = flt_.GetEllipsoid().Transformed(best_);
        return true;
    }

    void evaluateSmallBig()
    {
        std::vector<int> samples(config_.uiNumSamples);
        for (int& sample : samples) sample = randomIndex_();
        const float bigScalingSq = RadiusSq(config_.dSmallBigQueryRadiusScaling);
        const float bigRadiusSq =
            std::min(bigScalingSq, minRadiusSq_) < 0.0F ? FindsNothing : bigScalingSq * minRadiusSq_;
        std::vector<CPointSet::PairWithError> pairs;
        std::uint32_t mismatches = 0;
        fix_.samplePairs(config_, minRadiusSq_, flt_, best_, randomIndex_, pairs, mismatches, &samples, true);
        const auto smallCount = static_cast<float>(pairs.size());
        fix_.samplePairs(config_, bigRadiusSq, flt_, best_, randomIndex_, pairs, mismatches, &samples, false);
        result_.fStop_SmallBigRatio = smallCount / static_cast<float>(pairs.size());
    }

    /// Deliberate: measures the last composed pose, which is not the best one when later iterations brought no
    /// improvement.
    void evaluateOverlap()
    {
        const float radiusSq = RadiusSq(config_.dPositionTolerance);
        std::uint32_t matches = 0;
        std::uint32_t mismatches = 0;
        std::vector<int> within;
        for (std::uint32_t s = 0; s < config_.uiNumSamples; ++s) {
            const auto j = static_cast<std::size_t>(randomIndex_());
            const auto [p, n] = current_.Transform(flt_.points_[j], flt_.normals_[j]);
            fix_.tree_.AllWithin(&p.x, radiusSq, within);
            const int partner = nearestToLine(p, n, within);
            if (partner < 0) continue;
            ++(fix_.normals_[static_cast<std::size_t>(partner)].Dot(n) < 0.0F ? mismatches : matches);
        }
        result_.fStop_OverlapRatio = static_cast<float>(matches) / static_cast<float>(config_.uiNumSamples);
        result_.fStop_MismatchesPerMatchRatio =
            static_cast<float>(static_cast<double>(mismatches) / static_cast<double>(matches));
    }

    /// The candidate nearest to the line through p along n, the first of equally near ones; −1 without candidates.
    [[nodiscard]] int nearestToLine(const Vec3& p, const Vec3& n, const std::vector<int>& candidates) const
    {
        int best = -1;
        float bestSq = std::numeric_limits<float>::infinity();
        for (const int i : candidates) {
            const Vec3& q = fix_.points_[static_cast<std::size_t>(i)];
            const float t = (q - p).Dot(n) / n.NormSq();
            const float distanceSq = (p + t * n - q).NormSq();
            if (!(distanceSq < bestSq)) continue;
            bestSq = distanceSq;
            best = i;
        }
        return best;
    }

    void pairSamples(float radiusSq)
    {
        fix_.samplePairs(config_, radiusSq, flt_, current_, randomIndex_, pairs_, mismatches_, nullptr, true);
    }

    void cutOutliers()
    {
        std::tie(inliers_, rmse_, std::ignore) = CPointSet::computeNumberOfInliers(pairs_, config_.dInlierScaling);
    }

    [[nodiscard]] double mismatchesPerPair() const
    {
        return static_cast<double>(mismatches_) / static_cast<double>(pairs_.size());
    }

    [[nodiscard]] float largestInlierDistanceSq() const
    {
        float largest = 0.0F;
        for (std::size_t i = 0; i < inliers_; ++i) largest = std::max(largest, pairs_[i].distanceSq);
        return largest;
    }

    bool fail(EICPResultType type)
    {
        result_.resultType = static_cast<std::int32_t>(type);
        return false;
    }

    Step failIteration(EICPResultType type)
    {
        fail(type);
        return Step::Failed;
    }

    const ConfigurationICP& config_;
    const CPointSet& fix_;
    const CPointSet& flt_;
    const CTrafo& start_;
    const CTrafo& reference_;
    std::function<int()> randomIndex_; // one stream for the whole run
    ICPResult result_;
    CTrafo current_;
    CTrafo best_;
    float minRadiusSq_;
    std::size_t minPairs_;
    // Of the last pass:
    std::vector<CPointSet::PairWithError> pairs_;
    std::uint32_t mismatches_ = 0;
    std::size_t inliers_ = 0;
    float rmse_ = std::numeric_limits<float>::infinity();
    // Of the best pose:
    float bestRmse_ = std::numeric_limits<float>::infinity();
    std::size_t bestInliers_ = 0;
    std::uint32_t bestIteration_ = 0;
    float previousMovementSq_ = std::numeric_limits<float>::infinity();
};

ICPResult CPointSet::ComputeICPRegistration(const ConfigurationICP& config, const CPointSet& flt, const CTrafo& start,
                                            const CTrafo* reference) const
{
    return CIcpRun(config, *this, flt, start, reference != nullptr ? *reference : start).Run();
}

float CPointSet::samplePairs(const ConfigurationICP& config, float radiusSq, const CPointSet& flt, const CTrafo& pose,
                             const std::function<int()>& randomIndex, std::vector<PairWithError>& pairs,
                             std::uint32_t& mismatches, const std::vector<int>* fixedSamples, bool testNormals) const
{
    static const auto cosMismatch = static_cast<float>(std::cos(35 * RadiansPerDegree));
    const auto cosTolerance = static_cast<float>(std::cos(config.dNormalAngleTolerance));
    pairs.clear();
    pairs.reserve(config.uiNumSamples);
    mismatches = 0;
    if (flt.Empty()) return std::numeric_limits<float>::infinity();
    double sum = 0.0;
    for (std::uint32_t s = 0; s < config.uiNumSamples; ++s) {
        if (fixedSamples != nullptr && s >= fixedSamples->size())
            throw std::out_of_range("invalid vector<T> subscript");
        const int fltIndex = fixedSamples != nullptr ? (*fixedSamples)[s] : randomIndex();
        const auto j = static_cast<std::size_t>(fltIndex);
        const Vec3 p = pose * flt.points_[j];
        float distanceSq = 0.0F;
        const int fixIndex = tree_.Nearest(&p.x, radiusSq, &distanceSq);
        if (fixIndex < 0) continue;
        const Vec3 n = pose.Rotate(flt.normals_[j]);
        const Vec3& partnerNormal = normals_[static_cast<std::size_t>(fixIndex)];
        const float c = n.Dot(partnerNormal);
        if (testNormals && c <= cosTolerance) {
            if (c < cosMismatch) ++mismatches;
            continue;
        }
        const Vec3 d = p - points_[static_cast<std::size_t>(fixIndex)];
        const float toFixPlane = d.Dot(partnerNormal);
        const float toFltPlane = d.Dot(n);
        const float error = std::max(toFixPlane * toFixPlane, toFltPlane * toFltPlane);
        if (!std::isfinite(error)) continue; // a broken normal; NaN has no place in the order of errors
        pairs.push_back({static_cast<std::uint32_t>(fixIndex), fltIndex, distanceSq, error});
        sum += static_cast<double>(error);
    }
    std::sort(pairs.begin(), pairs.end(),
              [](const PairWithError& a, const PairWithError& b) { return a.error < b.error; });
    if (pairs.empty()) return std::numeric_limits<float>::infinity();
    return static_cast<float>(std::sqrt(sum / static_cast<double>(pairs.size())));
}

std::tuple<std::size_t, float, float> CPointSet::computeNumberOfInliers(const std::vector<PairWithError>& pairs,
                                                                        double inlierScaling)
{
    constexpr std::size_t FewPairs = 16;
    const std::size_t n = pairs.size();
    std::size_t k = 0;
    if (n < FewPairs) {
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): the rule is written so
        k = n - static_cast<std::size_t>(std::min(1.0, 0.2 * static_cast<double>(n)) + 0.5);
    } else {
        const float median = n % 2 == 1 ? pairs[n / 2].error : (pairs[n / 2 - 1].error + pairs[n / 2].error) * 0.5F;
        std::vector<float> deviations(n);
        std::transform(pairs.begin(), pairs.end(), deviations.begin(),
                       [median](const PairWithError& pair) { return std::fabs(pair.error - median); });
        const double sigma = MadToSigma * static_cast<double>(Median(deviations));
        const float threshold = std::max(MinInlierError, static_cast<float>(sigma * inlierScaling));
        while (k < n && pairs[k].error <= threshold) ++k;
    }

    double sum = 0.0;
    double mean = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < k; ++i) {
        const auto error = static_cast<double>(pairs[i].error);
        sum += error;
        const double distance = std::sqrt(error);
        const double delta = distance - mean;
        mean += delta / static_cast<double>(i + 1);
        squares += delta * (distance - mean);
    }
    const double rmse = std::sqrt(sum / static_cast<double>(k));
    const double spread = k < 2 ? 0.0 : std::sqrt(squares / static_cast<double>(k - 1));
    return {k, static_cast<float>(rmse), static_cast<float>(spread)};
}

CTrafo CPointSet::computeTrafoUpdate(const ConfigurationICP& config, const CPointSet& flt,
                                     const std::vector<PairWithError>& pairs, const CTrafo& current,
                                     std::size_t k) const
{
    std::vector<double> coordinates(9 * k);
    double* const src = coordinates.data();
    double* const dst = src + 3 * k;
    double* const normals = dst + 3 * k;
    for (std::size_t i = 0; i < k; ++i) {
        const Vec3 p = current * flt.points_[static_cast<std::size_t>(pairs[i].fltIndex)];
        const Vec3& q = points_[pairs[i].fixIndex];
        const Vec3& n = normals_[pairs[i].fixIndex];
        for (std::size_t c = 0; c < 3; ++c) {
            src[3 * i + c] = static_cast<double>(p[c]);
            dst[3 * i + c] = static_cast<double>(q[c]);
            normals[3 * i + c] = static_cast<double>(n[c]);
        }
    }
    const double weight = 1.0 / config.uiNumSamples;
    double rotation[3];
    double translation[3];
    if (!VoAlgo::symsolvers::PointToPlaneUpdateLS(src, dst, normals, &weight, rotation, translation,
                                                  static_cast<int>(k), true))
        return CTrafo();
    const auto toVector = [](const double* v) {
        return Vec3(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
    };
    return CTrafo(toVector(rotation), toVector(translation));
}

} // namespace prereg
