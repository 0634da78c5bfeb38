#include "VoAlgorithms/documents/records.h"
#include "bson/bson_support.h"
#include "fuzz/keep_seed.h"
#include "support/clouds.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

namespace {

using namespace bson_test;
using namespace prereg;
using test_support::Vec3;
using VoAlgo::CTrafo;
using VoAlgo::bson::from_object;
using VoAlgo::bson::to_object;
using object = element::object;

/// "name:type" of the elements, nested ones in parentheses.
std::string Outline(const object& o)
{
    std::string outline;
    for (const element& e : o) {
        outline += outline.empty() ? "" : " ";
        outline += e.name();
        outline += e.type() == element::Object ? "(" + Outline(e.children()) + ")" : ":" + std::to_string(e.type());
    }
    return outline;
}

const std::string VectorOutline = "(x:128 y:128 z:128)";
const std::string PoseOutline = "Rotation(w:128 x:128 y:128 z:128) Translation" + VectorOutline;
const std::string EllipsoidOutline =
    "COG" + VectorOutline + " ExtremePts(pt1" + VectorOutline + " pt2" + VectorOutline + " pt3" + VectorOutline + ")";
const std::string IcpOutline =
    "uiMaxNumIterations:129 dMinQueryRadius:1 dInitialQueryRadiusScaling:1 uiNumSamples:129 dPositionTolerance:1 "
    "dNormalAngleTolerance:1 dMaxErrorRatio:1 dMaxRotationDistance:1 dMaxMovement:1 dMinOverlapRatio:1 dMaxRMSE:1 "
    "dMinOverlapArea:1 dMinSmallBigRatio:1 dSmallBigQueryRadiusScaling:1 dInlierScaling:1";
const std::string FpfhOutline =
    "uiNumPolygons:129 uiNumPolygonVertices:129 uiNumNeighbors:129 dMaxPolygonDiameter:1 dMaxPolygonVertexError:1 "
    "uiMinCurvatureQuality:129 dFeatureRadius:1 dFeatureClusteringBandwidth:1 dTrafoClusteringBandwidth:1 "
    "dOrientationClusteringBandwidth:1 uiTrafoClusteringQuorum:129 icpConfig(" +
    IcpOutline + ")";
const std::string ResultOutline =
    "fStart_OverlapRatio:128 iStart_NumberOfInliers:16 fStart_RMSE:128 fStart_MismatchesPerMatchRatio:128 "
    "fStop_OverlapRatio:128 fStop_OverlapArea:128 iStop_NumberOfInliers:16 fStop_RMSE:128 "
    "fStop_MismatchesPerMatchRatio:128 iStop_Iterations:16 fStop_SmallBigRatio:128 trafo(" +
    PoseOutline + ") ellipsoid(" + EllipsoidOutline + ")";
const std::string SetOutline = "Points:5 Normals:5 FeaturePoints:5 FeatureNormals:5 Features:5";

/// Every field has a different value.
ConfigurationFPFH OddConfiguration()
{
    ConfigurationFPFH c{1, 2, 3, 0.1, 0.2, 4, 0.3, 0.4, 0.5, 0.6, 5, {}};
    c.icpConfig = {6, 1.1, 1.2, 0xFFFFFFFF, 1.3, 1.4, 1.5, 1.6, 1.7, 1.8, 1.9, 2.1, 2.2, 2.3, 1e-300};
    return c;
}

ICPResult OddResult()
{
    ICPResult r;
    r.resultType = 0;
    r.fStart_OverlapRatio = 0.1F;
    r.iStart_NumberOfInliers = 2;
    r.fStart_RMSE = std::numeric_limits<float>::infinity();
    r.fStart_MismatchesPerMatchRatio = 0.4F;
    r.fStop_OverlapRatio = 0.5F;
    r.fStop_OverlapArea = 0.6F;
    r.iStop_NumberOfInliers = 7;
    r.fStop_RMSE = 0.8F;
    r.fStop_MismatchesPerMatchRatio = 0.9F;
    r.iStop_Iterations = 10;
    r.fStop_SmallBigRatio = 1.1F;
    r.trafo = CTrafo(VoAlgo::Quaternion(0.5, 0.5, -0.5, 0.5), {1, 2, 3});
    r.ellipsoid = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}};
    return r;
}

CFPFHPointSet SmallSet(std::size_t n, unsigned seed)
{
    test_support::Random random(seed);
    test_support::Cloud points = test_support::Sphere(n, 10.0F, seed), features;
    std::vector<CPointFeatureHistogram> histograms(n / 2);
    for (CPointFeatureHistogram& h : histograms) {
        features.Add(random.InCube(5.0F), random.Direction());
        for (float& bin : h.bins) bin = random.Uniform(0.0F, 1.0F);
    }
    return {points.points, points.normals, features.points, features.normals, histograms};
}

void ExpectSameSet(const CFPFHPointSet& a, const CFPFHPointSet& b)
{
    EXPECT_EQ(BytesOf(to_object(a)), BytesOf(to_object(b)));
    EXPECT_EQ(a.GetPointsKdTree().Size(), b.GetPointsKdTree().Size());
    EXPECT_EQ(a.GetFeatureKdTree().Size(), b.GetFeatureKdTree().Size());
}

TEST(Records, RecordsHaveTheirKeysInOrder)
{
    EXPECT_EQ(Outline(to_object(CTrafo())), PoseOutline);
    EXPECT_EQ(Outline(to_object(VoAlgo::CbMatrix4Rd())), PoseOutline);
    EXPECT_EQ(Outline(to_object(VoAlgo::CbMatrix4Rf())), PoseOutline);
    EXPECT_EQ(Outline(to_object(Ellipsoid())), EllipsoidOutline);
    EXPECT_EQ(Outline(to_object(ConfigurationICP())), IcpOutline);
    EXPECT_EQ(Outline(to_object(ConfigurationFPFH())), FpfhOutline);
    EXPECT_EQ(Outline(to_object(ICPResult())), ResultOutline);
    EXPECT_EQ(Outline(to_object(SmallSet(4, 1))), SetOutline);
    CFPFHPreRegistration registration(SmallSet(4, 1), SmallSet(4, 2), {}, true);
    registration.InjectICPResult(OddResult());
    registration.InjectICPResult(ICPResult());
    EXPECT_EQ(Outline(to_object(registration)), "FixPointSet(" + SetOutline + ") FltPointSet(" + SetOutline +
                                                    ") Configuration(" + FpfhOutline + ") Transforms(0(" +
                                                    ResultOutline + ") 1(" + ResultOutline + "))");
}

TEST(Records, RecordsComeBackExactly)
{
    EXPECT_EQ(from_object<ConfigurationFPFH>(to_object(OddConfiguration())), OddConfiguration());
    EXPECT_EQ(from_object<ConfigurationICP>(to_object(OddConfiguration().icpConfig)), OddConfiguration().icpConfig);
    const ICPResult written = OddResult();
    ICPResult read = from_object<ICPResult>(to_object(written)); // all but three fields
    EXPECT_EQ(read.resultType, -1);
    EXPECT_EQ(read.fStart_OverlapRatio, written.fStop_OverlapRatio);
    EXPECT_EQ(read.fStop_OverlapRatio, ICPResult().fStop_OverlapRatio);
    read.fStart_OverlapRatio = written.fStart_OverlapRatio;
    read.fStop_OverlapRatio = written.fStop_OverlapRatio;
    EXPECT_EQ(BytesOf(to_object(read)), BytesOf(to_object(written)));
    for (unsigned seed = 0; seed < 50; ++seed) {
        const CTrafo pose = test_support::Random(seed).Pose(3.0F, 100.0F), back = from_object<CTrafo>(to_object(pose));
        EXPECT_LT(pose.GetRotationDistance(back), 1e-3F);
        for (unsigned row = 0; row < 3; ++row)
            EXPECT_LT((pose.GetRow(row) - back.GetRow(row)).Norm(), 1e-6F) << "seed " << seed;
        EXPECT_EQ(pose.GetTranslation(), back.GetTranslation());
        const VoAlgo::CbMatrix4Rd matrix = from_object<VoAlgo::CbMatrix4Rd>(to_object(VoAlgo::CbMatrix4Rf(pose)));
        EXPECT_EQ(CTrafo(matrix), back);
    }
    EXPECT_FALSE(from_object<CTrafo>(to_object(CTrafo::Invalid())));
}

TEST(Records, ReadingFollowsTheKeys)
{
    EXPECT_EQ(from_object<ConfigurationFPFH>(object()), ConfigurationFPFH());
    EXPECT_EQ(from_object<CTrafo>(object()), CTrafo());
    const object odd((element("unknown", "skipped"), element("UINUMPOLYGONS", 3), element("uiNumPolygons", 7U),
                      element("uiNumPolygons", 8U), element("icpConfig", object(element("uiNumSamples", 9U)))));
    ConfigurationFPFH expected;
    expected.uiNumPolygons = 8;
    expected.icpConfig.uiNumSamples = 9;
    EXPECT_EQ(from_object<ConfigurationFPFH>(odd), expected);
    const element start("fStart_OverlapRatio", 0.25F), stop("fStop_OverlapRatio", 0.75F);
    EXPECT_EQ(from_object<ICPResult>((start, stop)).fStart_OverlapRatio, 0.75F);
    EXPECT_EQ(from_object<ICPResult>((stop, start)).fStart_OverlapRatio, 0.25F);
    const object onlyX(element("Rotation", (element("w", 0.0F), element("x", 1.0F))));
    EXPECT_EQ(from_object<CTrafo>(onlyX), CTrafo({1, 0, 0}, {0, -1, 0}, {0, 0, -1}, {}));
}

// A known key with a value of another type, for every key of every record, nested ones too.
TEST(Records, OtherTypesAreBadCasts)
{
    const auto check = []<class Record>(const Record& record, const char* nested = nullptr) {
        const object document = to_object(record);
        for (const element& e : nested == nullptr ? document : document.child(nested).children()) {
            const object wrong(element::make_int64(e.name(), 1));
            const object whole = nested == nullptr ? wrong : object({nested, wrong});
            EXPECT_THROW((void)from_object<Record>(whole), VoAlgo::bson::bad_cast) << e.name();
        }
    };
    for (const char* nested : {static_cast<const char*>(nullptr), "trafo", "ellipsoid"}) check(ICPResult(), nested);
    check(ConfigurationFPFH());
    check(ConfigurationFPFH(), "icpConfig");
    check(SmallSet(4, 1));
    check(CFPFHPreRegistration());
    const object transforms({"Transforms", object({"0", 1.0F})});
    EXPECT_THROW((void)from_object<CFPFHPreRegistration>(transforms), std::bad_cast);
}

TEST(Records, PointSetsAreTheirBytes)
{
    const CFPFHPointSet set = SmallSet(40, 3);
    const object document = to_object(set);
    const auto [points, size, subtype] = document.child("Points").as_binary();
    ASSERT_EQ(size, 40 * 16U);
    EXPECT_EQ(std::memcmp(points, set.GetPoints().data(), size), 0);
    EXPECT_EQ(static_cast<int>(subtype), 0);
    EXPECT_EQ(std::get<1>(document.child("Features").as_binary()), 20 * 132U);
    Bytes bytes = BytesOf(document);
    ExpectSameSet(from_object<CFPFHPointSet>(object::unfreeze(bytes.data(), bytes.size())), set);
    // The fourth lane of a point is read as 0, whatever the document says. This is the first point, after count and
    // head.
    bytes[4 + 1 + 7 + 5 + 12] = 1;
    ExpectSameSet(from_object<CFPFHPointSet>(object::unfreeze(bytes.data(), bytes.size())), set);
}

TEST(Records, BrokenPointSetsAreRefused)
{
    test_support::LogCapture log;
    const object document = to_object(SmallSet(8, 3));
    for (const element& e : document) {
        const auto [data, size, type] = e.as_binary();
        object rest;
        for (const element& other : document)
            if (other != e) rest.append(other);
        for (const unsigned less : {1U, 4U, 15U, 16U, 132U}) {
            if (size < less) continue;
            const object broken = (object(rest), element(e.name(), data, size - less));
            EXPECT_THROW((void)from_object<CFPFHPointSet>(broken), std::invalid_argument) << e.name() << " " << less;
        }
        EXPECT_TRUE(from_object<CFPFHPointSet>(rest).Empty()) << e.name(); // a missing key is never an error
    }
}

TEST(Records, CasesComeBack)
{
    const CFPFHPointSet fix = SmallSet(40, 1), flt = SmallSet(30, 2);
    CFPFHPreRegistration written(fix, flt, OddConfiguration(), false);
    for (const float ratio : {0.3F, 0.9F, 0.6F}) {
        ICPResult result = OddResult();
        result.fStop_SmallBigRatio = ratio;
        written.InjectICPResult(result);
    }
    const CFPFHPreRegistration read = from_object<CFPFHPreRegistration>(to_object(written));
    ExpectSameSet(read.GetFixPointSet(), fix);
    ExpectSameSet(read.GetFltPointSet(), flt);
    EXPECT_EQ(read.GetMatchingConfig(), OddConfiguration());
    std::vector<float> ratios;
    for (const auto& result : read.GetVerifiedTrafos()) {
        ratios.push_back(result.fStop_SmallBigRatio);
        EXPECT_EQ(result.clusterSize, 1U);
    }
    EXPECT_EQ(ratios, (std::vector{0.9F, 0.6F, 0.3F}));

    const CFPFHPreRegistration empty = from_object<CFPFHPreRegistration>(object({"Transforms", object()}));
    EXPECT_FALSE(empty.HasMoreResults());
    EXPECT_TRUE(empty.GetFixPointSet().Empty() && empty.GetFltPointSet().Empty());
    EXPECT_EQ(empty.GetMatchingConfig(), ConfigurationFPFH());

    const CFPFHPreRegistration small(SmallSet(4, 1), SmallSet(2, 2), {}, true);
    KeepSeed("object", "case", BytesOf(to_object(small)));
    const std::pair<const char*, object> seeds[] = {{"case", to_object(small)},
                                                    {"large", to_object(written)},
                                                    {"set", to_object(SmallSet(4, 5))},
                                                    {"result", to_object(OddResult())},
                                                    {"config", to_object(OddConfiguration())}};
    for (const auto& [name, document] : seeds) KeepSeed("pointset", name, BytesOf(document));
}

} // namespace
