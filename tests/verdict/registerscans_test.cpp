#include "VoAlgorithms/verdict/registerscans.h"

#include "support/clouds.h"

#include <gmock/gmock.h>

#include <cstring>
#include <stdexcept>

namespace prereg {
namespace {

using test_support::Random;
using VoAlgo::CTrafo;
using Vec3 = kdtree::Vector<3>;

// Where the best of 600 random starts of a trimmed ICP met, refined from point to plane; no pose was published.
const CTrafo SampleTruth({0.733095445F, 0.0144436232F, -0.679972389F}, {-0.0467721201F, 0.998478209F, -0.0292170468F},
                         {0.678515613F, 0.0532226342F, 0.732655385F}, {-10.4898119F, -0.448751659F, -3.74867268F});

Scan SampleScan(int number, const CTrafo& pose = CTrafo())
{
    const auto cloud = test_support::Moved(
        test_support::ReadSampleScan(VOALGO_SOURCE_DIR "/examples/data/hippo" + std::to_string(number) + ".ply"), pose);
    return {cloud.points, cloud.normals};
}

Scan ToScan(const test_support::Cloud& cloud)
{
    return {cloud.points, cloud.normals};
}

template <class T>
std::vector<T> Packed(const std::vector<Vec3>& vectors)
{
    std::vector<T> packed;
    for (const Vec3& v : vectors) packed.insert(packed.end(), {T{v.x}, T{v.y}, T{v.z}});
    return packed;
}

bool SameBits(const Registration& a, const Registration& b)
{
    return a.refusal.code == b.refusal.code && a.results.size() == b.results.size() &&
           std::memcmp(&a.Best().trafo, &b.Best().trafo, sizeof(CTrafo)) == 0 &&
           a.Best().fStop_RMSE == b.Best().fStop_RMSE;
}

// What a host has: normals or none, floats or doubles, any pose. A poor orientation of estimated normals would end in a
// refusal, a wrong conversion in other bits.
TEST(RegisterScans, ServesEveryHost)
{
    for (unsigned seed = 0; seed < 3; ++seed) {
        SCOPED_TRACE(seed);
        const CTrafo turn = Random(seed).Pose(static_cast<float>(seed), 50.0F);
        Scan fix = SampleScan(1), flt = SampleScan(2, turn);
        const Registration found = RegisterScans(fix, flt);
        const auto points = Packed<double>(flt.points), normals = Packed<double>(flt.normals);
        EXPECT_TRUE(SameBits(found, RegisterScans(fix, Scan::From(points.data(), flt.points.size(), normals.data()))));
        const auto single = Packed<float>(flt.points), singleNormals = Packed<float>(flt.normals);
        EXPECT_TRUE(
            SameBits(found, RegisterScans(fix, Scan::From(single.data(), flt.points.size(), singleNormals.data()))));
        fix.normals.clear();
        flt.normals.clear();
        for (const Registration& r : {found, RegisterScans(fix, flt)}) {
            ASSERT_TRUE(r) << r.Reason();
            const CTrafo pose = CTrafo(r.Pose()) * turn;
            EXPECT_LT(pose.GetRotationDistance(SampleTruth), 0.01745F);
            for (const Vec3& p : SampleScan(2).points) ASSERT_LT((pose * p - SampleTruth * p).Norm(), 1.2F);
        }
    }
}

// A pose that is handed out has passed every test, of every stage; its refined neighbours agree with the search.
TEST(RegisterScans, ExplainsWhatItHandsOut)
{
    const Registration r = RegisterScans(SampleScan(1), SampleScan(2));
    ASSERT_TRUE(r) << r.Reason();
    EXPECT_STREQ(CodeOf(r.refusal.code), "");
    std::vector<EStage> stages;
    for (const AcceptanceTest& test : r.Best().tests) {
        EXPECT_EQ(test.outcome, EOutcome::Passed) << InfoOf(test.test).name;
        EXPECT_FALSE(InfoOf(test.test).isAtMost ? test.value > test.limit : test.value < test.limit);
        if (stages.empty() || stages.back() != test.stage) stages.push_back(test.stage);
    }
    EXPECT_THAT(stages,
                testing::ElementsAre(EStage::Search, EStage::Verification, EStage::Grading, EStage::AllResults));
    EXPECT_GT(r.statistics.uiNumProposals, 0U);
    EXPECT_FALSE(r.isRefinement);
}

/// The sample scan as doubles, each coordinate moved by `shift`.
std::vector<double> MovedCoordinates(int number, const CTrafo& pose, double shift)
{
    std::vector<double> packed = Packed<double>(SampleScan(number, pose).points);
    for (double& v : packed) v += shift;
    return packed;
}

// Wherever the scans lie, floats at 20 m or doubles at 500 km: the same answer and the same pose, in the coordinates
// that came in. flt moves the other way, so that the pose has a long lever.
TEST(RegisterScans, HoldsAnywhere)
{
    const CTrafo turn = Random(8).Pose(2.0F, 30.0F);
    const Scan fix = SampleScan(1), flt = SampleScan(2, turn);
    const VoAlgo::CbMatrix4Rd home = RegisterScans(fix, flt).Pose();
    const auto normals = Packed<double>(flt.normals), fixNormals = Packed<double>(fix.normals);
    for (const double shift : {2e4, 1e7, 123456.789, 5e8}) {
        SCOPED_TRACE(shift);
        const auto a = MovedCoordinates(1, CTrafo(), shift), b = MovedCoordinates(2, turn, -shift);
        Scan movedFix = Scan::From(a.data(), fix.points.size(), fixNormals.data());
        Scan movedFlt = Scan::From(b.data(), flt.points.size(), normals.data());
        if (shift == 2e4) { // as single precision stores it
            for (std::size_t i = 0; i < fix.points.size(); ++i)
                movedFix.points[i] = fix.points[i] + Vec3(2e4F, 2e4F, 2e4F);
            for (std::size_t i = 0; i < flt.points.size(); ++i)
                movedFlt.points[i] = flt.points[i] - Vec3(2e4F, 2e4F, 2e4F);
            movedFix.origin = movedFlt.origin = {};
        }
        const Registration r = RegisterScans(movedFix, movedFlt);
        ASSERT_TRUE(r) << r.Reason();
        const VoAlgo::CbMatrix4Rd pose = r.Pose();
        RegistrationOptions options;
        options.start = pose;
        const Registration again = RegisterScans(movedFix, movedFlt, options);
        ASSERT_TRUE(again) << again.Reason();
        double largest = 0.0, refined = 0.0;
        for (std::size_t i = 0; i < flt.points.size(); ++i)
            for (unsigned k = 0; k < 3; ++k) {
                const auto at = [k](const VoAlgo::CbMatrix4Rd& m, double x, double y, double z) {
                    return m(k, 0) * x + m(k, 1) * y + m(k, 2) * z + m(k, 3);
                };
                const Vec3& p = flt.points[i];
                const double there = at(pose, b[3 * i], b[3 * i + 1], b[3 * i + 2]);
                largest = std::max(largest, std::abs(there - shift - at(home, p.x, p.y, p.z)));
                refined = std::max(refined, std::abs(there - at(again.Pose(), b[3 * i], b[3 * i + 1], b[3 * i + 2])));
            }
        EXPECT_LT(largest, shift == 2e4 ? 4e-3 : 1e-3) << "there, floats are 2e-3 mm apart";
        EXPECT_LT(refined, 0.05);
    }
}

TEST(RegisterScans, ThreadsDoNotChangeABit)
{
    RegistrationOptions options;
    options.threads = 1;
    const Registration alone = RegisterScans(SampleScan(1), SampleScan(2), options);
    options.threads = 4;
    EXPECT_TRUE(SameBits(alone, RegisterScans(SampleScan(1), SampleScan(2), options)));
}

TEST(RegisterScans, RefinesAStartingPose)
{
    RegistrationOptions options;
    options.start = CTrafo(Random(4).Pose(0.03F, 0.5F)) * SampleTruth;
    const Registration r = RegisterScans(SampleScan(1), SampleScan(2), options);
    ASSERT_TRUE(r) << r.Reason();
    EXPECT_TRUE(r.isRefinement);
    EXPECT_LT(r.Best().trafo.GetRotationDistance(SampleTruth), 0.01F);

    options.start = CTrafo();
    const Registration wrong = RegisterScans(SampleScan(1), SampleScan(2), options);
    ASSERT_EQ(wrong.refused.size(), 1U);
    EXPECT_EQ(wrong.refusal.code, wrong.refused[0].objection.code);
    EXPECT_NE(wrong.refusal.code, ERefusal::None);
    EXPECT_THROW((void)wrong.Pose(), std::logic_error);
}

/// A body that half a turn about z maps onto itself: its radius depends on even powers of x and y only.
Scan SymmetricBody(unsigned sampling)
{
    test_support::Cloud cloud;
    test_support::ForSphere(6000, sampling, [&](const Vec3& u) {
        const float r = 40.0F * (1.0F + 0.2F * std::sin(4.0F * u.x * u.x + 3.0F * u.x * u.y + 1.0F) +
                                 0.1F * std::cos(5.0F * u.z) + 0.15F * std::sin(3.0F * u.z) * (u.x * u.x - u.y * u.y));
        cloud.Add(r * u, {});
    });
    return {cloud.points, {}};
}

struct RefusedCase {
    const char* name;
    ERefusal code; // None: whichever
    Scan fix, flt;
};

/// Lets gtest name a case.
void PrintTo(const RefusedCase& c, std::ostream* out)
{
    *out << c.name;
}

Scan FromPoints(std::size_t n, const std::function<Vec3(Random&)>& at)
{
    Random random(9);
    Scan scan;
    for (std::size_t i = 0; i < n; ++i) scan.points.push_back(at(random));
    return scan;
}

Scan Scaled(Scan scan, float factor)
{
    for (Vec3& p : scan.points) p *= factor;
    return scan;
}

std::vector<RefusedCase> RefusedCases()
{
    const float nan = std::nanf("");
    const auto inSquare = [](Random& r) { return Vec3(r.Uniform(0, 9), r.Uniform(0, 9), 2.0F); };
    const Scan good = SampleScan(1);
    return {
        {"NoPoints", ERefusal::NoFinitePoints, {}, good},
        {"NaN", ERefusal::NoFinitePoints, good, FromPoints(900, [=](Random&) { return Vec3(nan, 0, 0); })},
        {"OnePlace", ERefusal::PointsCoincide, FromPoints(900, [](Random&) { return Vec3(1, 2, 3); }), good},
        {"Line", ERefusal::PointsCollinear, FromPoints(900, [](Random& r) { return r.Uniform(0, 9) * Vec3(1, 2, 3); }),
         good},
        {"Plane", ERefusal::PointsCoplanar, good, FromPoints(900, inSquare)},
        {"Huge", ERefusal::ImplausibleExtent, Scaled(good, 1e9F), good},
        {"Few", ERefusal::TooFewPoints, good, FromPoints(200, [](Random& r) { return r.InCube(20.0F); })},
        {"Metres", ERefusal::UnitsDiffer, good, Scaled(good, 0.001F)},
        {"TooCoarse", ERefusal::TooFewFeaturesInFlt, ToScan(test_support::Sphere(9000, 500.0F)), good},
        {"OtherBody", ERefusal::None, good, Scaled(ToScan(test_support::Body(9000, 5, 2)), 3.0F)},
        {"Symmetric", ERefusal::Ambiguous, SymmetricBody(1), SymmetricBody(2)},
    };
}

class RefusedScans : public testing::TestWithParam<RefusedCase> {};

// Bad scans and pairs without an answer are values with a stable code and a sentence, never a pose or an exception.
TEST_P(RefusedScans, HaveACodeAndASentence)
{
    const Registration r = RegisterScans(GetParam().fix, GetParam().flt);
    EXPECT_FALSE(r);
    if (GetParam().code != ERefusal::None) {
        EXPECT_EQ(r.refusal.code, GetParam().code) << r.Reason();
    }
    EXPECT_EQ(IsFaultOfScans(r.refusal.code), r.fix == nullptr);
    EXPECT_THAT(r.Reason(), testing::Not(testing::IsEmpty()));
    EXPECT_THROW((void)r.Best(), std::logic_error);
}
INSTANTIATE_TEST_SUITE_P(Pairs, RefusedScans, testing::ValuesIn(RefusedCases()),
                         [](const auto& tested) { return tested.param.name; });

// The host's limits hold for search and verification alike; meaningless ones are the host's fault.
TEST(RegisterScans, ObeysAdjustedSettings)
{
    RegistrationOptions options;
    options.adjust = [](ConfigurationFPFH& c) { c.icpConfig.dMinOverlapRatio = 0.95; };
    const Registration r = RegisterScans(SampleScan(1), SampleScan(2), options);
    EXPECT_FALSE(r);
    EXPECT_EQ(r.settings.verification.icp.dMinOverlapRatio, 0.95);
    options.adjust = [](ConfigurationFPFH& c) { c.dFeatureRadius = -1.0; };
    EXPECT_THROW((void)RegisterScans(SampleScan(1), SampleScan(2), options), std::invalid_argument);
    Scan broken = SampleScan(1);
    broken.normals.pop_back();
    EXPECT_THROW((void)RegisterScans(broken, SampleScan(2)), std::invalid_argument);
}

TEST(RegisterScans, CanBeCancelledBetweenSteps)
{
    for (const int step : {0, 1, 2}) { // before and after the features, and when the search begins
        int shows = 0;
        VoAlgo::CFunctionProgressMeter meter([&](const std::string&, double) { return shows++ < step; });
        RegistrationOptions options;
        options.progress = &meter;
        const Registration r = RegisterScans(SampleScan(1), SampleScan(2), options);
        EXPECT_FALSE(r);
        EXPECT_STREQ(CodeOf(r.refusal.code), "cancelled");
        EXPECT_EQ(shows, step + 1);
        EXPECT_EQ(r.statistics.uiNumProposals, 0U);
    }
}

} // namespace
} // namespace prereg
