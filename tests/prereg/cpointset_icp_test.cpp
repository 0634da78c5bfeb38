#include "VoAlgorithms/numerics/symsolvers.h"
#include "VoAlgorithms/prereg/cpointset.h"

#include "support/clouds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace prereg;
using namespace test_support;
using VoAlgo::CTrafo;

class Surfels : public prereg::CPointSet {
public:
    explicit Surfels(const Cloud& cloud) : CPointSet(cloud.points, cloud.normals) {}
};

/// The registration written down plainly: linear searches over all points, one straight function, nothing shared with
/// the library but poses, ellipsoids and the six-dimensional solver.
class PlainIcp {
public:
    PlainIcp(const ConfigurationICP& config, const Surfels& fix, const Surfels& flt)
        : c_(config), fix_(fix), flt_(flt), engine_(47110815), uniform_(0, static_cast<int>(flt.Size()) - 1)
    {
    }

    ICPResult Run(const CTrafo& start, const CTrafo& reference)
    {
        ICPResult r;
        const auto samples = static_cast<float>(c_.uiNumSamples);
        const float rMin = static_cast<float>(c_.dMinQueryRadius);
        const double mismatchLimit =
            c_.dMaxErrorRatio > 0 ? 100 * c_.dMaxErrorRatio : std::numeric_limits<double>::max();
        auto m = static_cast<std::size_t>(c_.uiNumSamples * 0.01);
        if (m < 6) m = 5;

        const auto r0 = static_cast<float>(c_.dInitialQueryRadiusScaling * c_.dPositionTolerance);
        Pass pass = sample(r0 * r0, start, nullptr, true);
        r.fStart_OverlapRatio = static_cast<float>(pass.pairs.size()) / samples;
        if (pass.pairs.size() < m) return typed(r, 1);
        auto [k, rmse] = inliers(pass.pairs);
        r.iStart_NumberOfInliers = static_cast<int>(k);
        r.fStart_RMSE = rmse;
        if (k < 5) return typed(r, 2);
        r.fStart_MismatchesPerMatchRatio =
            static_cast<float>(static_cast<double>(pass.mismatches) / static_cast<double>(pass.pairs.size()));
        r.trafo = start;

        CTrafo current = start, best = start;
        float bestRmse = rmse, previous = std::numeric_limits<float>::infinity();
        std::size_t bestInliers = k;
        unsigned bestIteration = 0;
        for (unsigned i = 1; i <= c_.uiMaxNumIterations; ++i) {
            const CTrafo update = solve(pass.pairs, current, k);
            const Ellipsoid e1 = fix_.GetEllipsoid().Transformed(current);
            const float d = e1.DistanceSq(e1.Transformed(update));
            current = update * current;
            if (d > 16.0F * previous) break;
            if (static_cast<double>(pass.mismatches) / static_cast<double>(pass.pairs.size()) > mismatchLimit) {
                r.iStop_Iterations = static_cast<int>(i);
                return typed(r, 3);
            }
            if (bestRmse > rmse) {
                best = current;
                bestRmse = rmse;
                bestIteration = i;
                bestInliers = k;
            }
            float radiusSq = rMin * rMin;
            for (std::size_t p = 0; p < k; ++p) radiusSq = std::max(radiusSq, pass.pairs[p].distanceSq);
            pass = sample(radiusSq, current, nullptr, true);
            if (pass.pairs.size() < m) return typed(r, 4);
            std::tie(k, rmse) = inliers(pass.pairs);
            if (k < 5) return typed(r, 5);
            previous = d;
        }

        r.trafo = best;
        r.iStop_NumberOfInliers = static_cast<int>(bestInliers);
        r.fStop_RMSE = bestRmse;
        r.iStop_Iterations = static_cast<int>(bestIteration);
        if (c_.dMinSmallBigRatio > 0) {
            std::vector<int> list;
            for (unsigned s = 0; s < c_.uiNumSamples; ++s) list.push_back(uniform_(engine_));
            const auto scale = static_cast<float>(c_.dSmallBigQueryRadiusScaling);
            const auto small = static_cast<float>(sample(rMin * rMin, best, &list, true).pairs.size());
            const auto big = static_cast<float>(sample(scale * scale * (rMin * rMin), best, &list, false).pairs.size());
            r.fStop_SmallBigRatio = small / big;
            if (c_.dMinSmallBigRatio > static_cast<double>(r.fStop_SmallBigRatio)) return typed(r, 7);
        }
        const auto [matches, mismatches] = overlap(current); // deliberate: the last pose, not the best
        r.fStop_OverlapRatio = static_cast<float>(matches) / samples;
        r.fStop_MismatchesPerMatchRatio = static_cast<float>(mismatches / matches);
        if (static_cast<double>(r.fStop_RMSE) > c_.dMaxRMSE) return typed(r, 9);
        if (c_.dMinOverlapRatio > static_cast<double>(r.fStop_OverlapRatio)) return typed(r, 8);
        if (c_.dMaxErrorRatio > 0 && static_cast<double>(r.fStop_MismatchesPerMatchRatio) > c_.dMaxErrorRatio)
            return typed(r, 7);
        if (c_.dMaxRotationDistance > 0 &&
            static_cast<double>(reference.GetRotationDistance(best)) > c_.dMaxRotationDistance)
            return typed(r, 6);
        const Ellipsoid e1 = fix_.GetEllipsoid().Transformed(reference);
        if (c_.dMaxMovement > 0 &&
            std::sqrt(static_cast<double>(e1.DistanceSq(e1.Transformed(best)))) > c_.dMaxMovement)
            return typed(r, 6);
        r.ellipsoid = flt_.GetEllipsoid().Transformed(best);
        return typed(r, 0);
    }

private:
    struct Pair {
        std::size_t fix, flt;
        float distanceSq, error;
    };
    struct Pass {
        std::vector<Pair> pairs;
        unsigned mismatches = 0;
    };

    static ICPResult typed(ICPResult r, int type)
    {
        r.resultType = type;
        return r;
    }

    Pass sample(float radiusSq, const CTrafo& pose, const std::vector<int>* list, bool testNormals)
    {
        const auto cosTolerance = static_cast<float>(std::cos(c_.dNormalAngleTolerance));
        const auto cosMismatch = static_cast<float>(std::cos(35 * 0.0174532925199433));
        Pass pass;
        for (unsigned s = 0; s < c_.uiNumSamples; ++s) {
            const auto j = static_cast<std::size_t>(list != nullptr ? (*list)[s] : uniform_(engine_));
            const Vec3 p = pose * flt_.GetPoint(j);
            std::size_t i = fix_.Size();
            float nearest = radiusSq;
            for (std::size_t q = 0; q < fix_.Size(); ++q) {
                const float d = (fix_.GetPoint(q) - p).NormSq();
                if (d < nearest) {
                    nearest = d;
                    i = q;
                }
            }
            if (i == fix_.Size()) continue;
            const Vec3 n = pose.Rotate(flt_.GetNormal(j));
            const float c = n.Dot(fix_.GetNormal(i));
            if (testNormals && c <= cosTolerance) {
                if (c < cosMismatch) ++pass.mismatches;
                continue;
            }
            const float a = (p - fix_.GetPoint(i)).Dot(fix_.GetNormal(i));
            const float b = (fix_.GetPoint(i) - p).Dot(n);
            pass.pairs.push_back({i, j, nearest, std::max(a * a, b * b)});
        }
        std::stable_sort(pass.pairs.begin(), pass.pairs.end(),
                         [](const Pair& a, const Pair& b) { return a.error < b.error; });
        return pass;
    }

    [[nodiscard]] std::pair<std::size_t, float> inliers(const std::vector<Pair>& pairs) const
    {
        const std::size_t n = pairs.size();
        std::size_t k = 0;
        if (n < 16) {
            k = n >= 3 ? n - 1 : n;
        } else {
            const auto median = [](std::vector<float> v) {
                std::sort(v.begin(), v.end());
                return v.size() % 2 == 1 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2.0F;
            };
            std::vector<float> errors, deviations;
            for (const Pair& p : pairs) errors.push_back(p.error);
            const float middle = median(errors);
            for (const float e : errors) deviations.push_back(std::fabs(e - middle));
            const double sigma = 1.4826 * static_cast<double>(median(deviations));
            const float threshold = std::max(0.001F, static_cast<float>(sigma * c_.dInlierScaling));
            while (k < n && errors[k] <= threshold) ++k;
        }
        double sum = 0.0;
        for (std::size_t i = 0; i < k; ++i) sum += static_cast<double>(pairs[i].error);
        return {k, static_cast<float>(std::sqrt(sum / static_cast<double>(k)))};
    }

    [[nodiscard]] CTrafo solve(const std::vector<Pair>& pairs, const CTrafo& current, std::size_t k) const
    {
        std::vector<double> src, dst, normals;
        const auto append = [](std::vector<double>& to, const Vec3& v) { to.insert(to.end(), {v.x, v.y, v.z}); };
        for (std::size_t i = 0; i < k; ++i) {
            append(src, current * flt_.GetPoint(pairs[i].flt));
            append(dst, fix_.GetPoint(pairs[i].fix));
            append(normals, fix_.GetNormal(pairs[i].fix));
        }
        const double weight = 1.0 / c_.uiNumSamples;
        double w[3], t[3];
        if (!VoAlgo::symsolvers::PointToPlaneUpdateLS(src.data(), dst.data(), normals.data(), &weight, w, t,
                                                      static_cast<int>(k), true))
            return {};
        const auto vec = [](const double* v) {
            return Vec3(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
        };
        return {vec(w), vec(t)};
    }

    std::pair<double, double> overlap(const CTrafo& last)
    {
        const auto r = static_cast<float>(c_.dPositionTolerance);
        double matches = 0, mismatches = 0;
        for (unsigned s = 0; s < c_.uiNumSamples; ++s) {
            const auto j = static_cast<std::size_t>(uniform_(engine_));
            const Vec3 p = last * flt_.GetPoint(j);
            const Vec3 n = last.Rotate(flt_.GetNormal(j));
            std::optional<std::size_t> best;
            float bestSq = std::numeric_limits<float>::infinity();
            for (std::size_t q = 0; q < fix_.Size(); ++q) {
                const Vec3 v = fix_.GetPoint(q) - p;
                if (v.NormSq() > r * r) continue;
                const float distanceSq = (p + (v.Dot(n) / n.Dot(n)) * n - fix_.GetPoint(q)).NormSq();
                if (!(distanceSq < bestSq)) continue;
                bestSq = distanceSq;
                best = q;
            }
            if (best) (fix_.GetNormal(*best).Dot(n) < 0.0F ? mismatches : matches) += 1;
        }
        return {matches, mismatches};
    }

    const ConfigurationICP& c_;
    const Surfels& fix_;
    const Surfels& flt_;
    std::mt19937 engine_;
    std::uniform_int_distribution<int> uniform_;
};

/// Every bit of a result.
std::string Bits(const ICPResult& r)
{
    static_assert(sizeof(r) == 48 + sizeof(r.trafo) + sizeof(r.ellipsoid)); // no padding
    return {reinterpret_cast<const char*>(&r), sizeof(r)};
}

// Runs the library twice and the plain rendering once; all three must agree in every bit.
ICPResult RunBoth(const ConfigurationICP& config, const Cloud& fixCloud, const Cloud& fltCloud,
                  const CTrafo& start = CTrafo(), const CTrafo* reference = nullptr)
{
    const Surfels fix(fixCloud), flt(fltCloud);
    const ICPResult result = fix.ComputeICPRegistration(config, flt, start, reference);
    EXPECT_EQ(Bits(result), Bits(fix.ComputeICPRegistration(config, flt, start, reference)));
    EXPECT_EQ(Bits(result), Bits(PlainIcp(config, fix, flt).Run(start, reference != nullptr ? *reference : start)));
    return result;
}

// Both halves of a body, overlapping by a good half.
const Cloud Left = Body(2500, 5, 1, [](const Vec3& p) { return p.x < 4.0F; });
const Cloud Right = Body(2500, 5, 2, [](const Vec3& p) { return p.x > -4.0F; });

/// Settings for the bodies, changed by `change`.
template <class Change>
ConfigurationICP Config(const Change& change)
{
    ConfigurationICP config;
    config.dMinQueryRadius = 0.8;
    config.dMinSmallBigRatio = 0.5;
    change(config);
    return config;
}

const ConfigurationICP Usual = Config([](auto&) {});

CTrafo Turned(float angle, const Vec3& shift)
{
    return {Vec3(0.3F * angle, -0.5F * angle, 0.8F * angle), shift};
}

const CTrafo Near = Turned(0.02F, {0.1F, 0.0F, 0.1F});

// Catches a draw out of order, a radius, a comparison or a precision that differs from the stated steps.
TEST(Icp, EqualsThePlainRendering)
{
    Random random(3);
    int accepted = 0;
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        const CTrafo truth = random.Pose(0.7F, 20.0F);
        const Cloud flt = Moved(Right, truth.GetInverse());
        const CTrafo start = random.Pose(0.03F * static_cast<float>(round), 0.15F * static_cast<float>(round)) * truth;
        const ConfigurationICP config = Config([round](ConfigurationICP& c) {
            c.uiNumSamples = round % 3 == 0 ? 500 : (round % 3 == 1 ? 123 : 600); // 123: odd, the floor of 5 pairs
            if (round % 4 == 1) c.dInlierScaling = 1.0;
            if (round % 4 == 2) c.dMinSmallBigRatio = -1.0;
            if (round % 5 == 3) c.dMaxErrorRatio = -1.0;
        });
        const ICPResult result = RunBoth(config, Left, flt, start);
        if (result.resultType != 0) continue;
        ++accepted;
        EXPECT_LT(result.trafo.GetRotationDistance(truth), 0.01F);
        EXPECT_LT((result.trafo * flt.points[0] - truth * flt.points[0]).Norm(), 0.1F);
        EXPECT_NEAR(result.GetTransformedFltEllipsoid()[0].x, Surfels(Right).GetEllipsoid()[0].x, 0.1F);
    }
    EXPECT_GE(accepted, 4);
}

// Two planes, 1 mm apart, `near` of every 1000 points of the second on the first.
Cloud Raised(int near)
{
    Cloud cloud = Plane(40, 0.5F);
    for (std::size_t i = 0; i < cloud.Size(); ++i)
        cloud.points[i].z = static_cast<int>(i * 7919 % 1000) < near ? 0.0F : 1.0F;
    return cloud;
}

// Every outcome from an input made for it, in agreement with the plain rendering. The turn counts from the reference
// pose, when there is one; the movement is that of the final pose itself, applied to the ellipsoid as the reference
// pose places it.
TEST(Icp, EveryResultType)
{
    const Cloud plane = Plane(60, 0.43F);
    Cloud flipped = Right;
    for (std::size_t i = 0; i < flipped.Size(); i += 5) flipped.normals[i] = -flipped.normals[i];
    const CTrafo shift(Vec3(), Vec3(5.0F, 0.0F, 0.0F)), far = Turned(0.5F, {});
    const Cloud shifted = Moved(Right, shift.GetInverse());
    const auto raised = [](unsigned samples) {
        return Config([samples](auto& c) { c.dMinQueryRadius = 0.2, c.uiNumSamples = samples; });
    };
    const auto turn = [](double limit) { return Config([=](auto& c) { c.dMaxRotationDistance = limit; }); };
    const auto movement = [](double limit) { return Config([=](auto& c) { c.dMaxMovement = limit; }); };
    unsigned forType5 = 300; // samples with five near points in the second pass, of which the rule keeps four
    while (Surfels(plane).ComputeICPRegistration(raised(forType5), Surfels(Raised(14)), {}).resultType != 5)
        ASSERT_LT(forType5 += 7, 599U);
    const struct {
        int type;
        ConfigurationICP config;
        const Cloud& fix;
        Cloud flt;
        CTrafo start;
        const CTrafo* reference = nullptr;
    } rows[] = {
        {0, Usual, Left, Right, Near},
        {1, Usual, Left, Right, Turned(0.0F, {100.0F, 0.0F, 0.0F})},
        {2, raised(500), plane, Raised(0), {}}, // all errors equal: none is below the least threshold
        {3, Config([](auto& c) { c.dMaxErrorRatio = 0.001; }), Left, flipped, Near},
        {4, raised(1000), plane, Raised(9), {}}, // few near points cut the radius down to themselves
        {5, raised(forType5), plane, Raised(14), {}},
        {6, turn(0.001), Left, Right, Near},
        {0, turn(0.05), Left, Right, Near},
        {6, turn(0.05), Left, Right, Near, &far},
        {6, movement(4.0), Left, shifted, Near * shift},
        {0, movement(6.0), Left, shifted, Near * shift},
        {0, movement(6.0), Left, shifted, Near * shift, &far},
        {7, Config([](auto& c) { c.dMinSmallBigRatio = 1.01; }), Left, Right, Near},
        {7, Config([](auto& c) { c.dMaxErrorRatio = 0.1; }), Left, flipped, Near},
        {8, Config([](auto& c) { c.dMinOverlapRatio = 0.99; }), Left, Right, Near},
        {9, Config([](auto& c) { c.dMaxRMSE = 1e-6; }), Left, Right, Near},
        // Without iterations the figures of the first pass and the starting pose go to the final evaluation.
        {0, Config([](auto& c) { c.uiMaxNumIterations = 0; }), Left, Right, Turned(0.001F, {0.01F, 0.0F, 0.0F})},
        {0, Usual, Left, Left, {}}, // the RMSE is 0 from the start: no later one is strictly better
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        const ICPResult result = RunBoth(row.config, row.fix, row.flt, row.start, row.reference);
        EXPECT_EQ(result.resultType, row.type) << result.ToString(false);
    }
}

// Sets without points, samples or usable normals end as a failure type, not as a crash or an unordered sort.
TEST(Icp, NothingToPairIsNoOverlap)
{
    Cloud noNormals = Right;
    for (Vec3& n : noNormals.normals) n *= std::numeric_limits<float>::quiet_NaN();
    const auto expectType = [](int type, const Cloud& fix, const Cloud& flt, const ConfigurationICP& config = Usual,
                               const CTrafo& start = CTrafo()) {
        EXPECT_EQ(Surfels(fix).ComputeICPRegistration(config, Surfels(flt), start).resultType, type);
    };
    expectType(1, {}, Left);
    expectType(1, Left, {});
    expectType(1, {}, {});
    expectType(8, Left, noNormals); // no line, no match
    expectType(1, noNormals, Left);
    expectType(1, Left, Left, Usual, CTrafo::Invalid());
    expectType(1, Left, Left, Config([](auto& c) { c.uiNumSamples = 0; }));
}

} // namespace
