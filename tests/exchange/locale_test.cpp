#include "VoAlgorithms/VoAlgorithms.h"
#include "exchange/files/read_cloud.h"
#include "exchange/files/write_ply.h"
#include "exchange/report/config_json.h"
#include "exchange/report/short_number.h"
#include "platform/log.h"
#include "support/cerr_capture.h"
#include "support/foreign_locale.h"

#include <gmock/gmock.h>

#include <bit>
#include <charconv>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

namespace voalgo {
namespace {

std::string FileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The path of a file with this content.
std::string Written(const std::string& name, const std::string& text)
{
    std::string path = testing::TempDir() + "locale_test_" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

template <class T>
std::string Bytes(const std::vector<T>& values)
{
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

std::string Bytes(const prereg::Scan& scan)
{
    return Bytes(scan.points) + Bytes(scan.normals) +
           Bytes(std::vector<double>(scan.origin.begin(), scan.origin.end()));
}

struct Line : VoAlgo::CNLSObjectiveFunction {
    Line() : CNLSObjectiveFunction(1, 2) {}
    VoAlgo::TVector<double> Error(const VoAlgo::TVector<double>& p) override
    {
        return {p[0] - 1234.5, 2 * p[0] - 0.25};
    }
};

std::map<std::string, std::string> WhatIsWritten()
{
    std::map<std::string, std::string> all;
    Logging::SetSink([](const Logging::Message&) {});
    const std::vector<kdtree::Vector<3>> points = {{1234.5F, -0.1F, 1e-7F}, {0.3F, 7654321.0F, 2.0F}},
                                         normals = {{0, 0.6F, 0.8F}, {1, 0, 0}};
    const prereg::CFPFHPointSet set(
        points, normals, points, normals,
        std::vector<prereg::CPointFeatureHistogram>(2, prereg::CPointFeatureHistogram::Identity()));
    const std::string file = Written("out.xyz", "");
    set.SaveXYZN(file, 0xFF8000);
    all["points"] = FileText(file);
    set.SaveFeaturePointsXYZN(file, 0xFFFFFFFF);
    all["features"] = FileText(file);
    set.GetEllipsoid().SaveXYZNC(file);
    all["ellipsoid"] = FileText(file);
    WritePly(file, prereg::Scan{points, normals}, {});
    all["ply"] = FileText(file);

    prereg::ICPResult result;
    result.fStop_RMSE = 1234.5F;
    all["result"] = result.ToString(false);
    all["settings"] = ToJson(prereg::ConfigurationFPFH()).dump();
    all["number"] = nlohmann::json(ShortNumber(0.1F)).dump();
    all["document"] = (VoAlgo::bson::element("a", 1234.5), VoAlgo::bson::element("b", 0.1)).to_json();
    Logging::SetSink([&](const Logging::Message& m) { all["log"] += std::string(m.text.begin(), m.text.end()); });
    VOALGO_LOG(Logging::GetLogger("a"), Warn, "f", L"%g %.3f %d %ls", 1234.5, 0.25, 1234567, L"wide");
    Logging::SetSink(nullptr);

    testing::internal::CaptureStdout();
    VoAlgo::CTrafo().Dump();
    VoAlgo::Quaternion(0.5, 0.5, 0.5, 0.5).Dump();
    all["dumps"] = testing::internal::GetCapturedStdout();
    {
        const CerrCapture capture;
        Line problem;
        VoAlgo::TVector<double> params{7654321.5};
        double rmse = 0;
        VoAlgo::CNLSSolver(problem, false, 0).Run(params, rmse, 100, 1e-3, 0, VoAlgo::CNLSSolver::Gibbs);
        all["fit"] = capture.Text();
    }
    testing::internal::CaptureStderr();
    VoAlgo::TMatrix<double> candidates(3, 2);
    for (unsigned i = 0; i < 6; ++i) candidates(i / 2, i % 2) = i * i + 0.5;
    VoAlgo::TVector<int> chosen;
    EXPECT_TRUE(VoAlgo::CDOptimalDesign(candidates).Run(2, chosen));
    all["design"] = testing::internal::GetCapturedStderr();
    return all;
}

std::map<std::string, std::string> WhatIsRead()
{
    const std::string plyHeader = "ply\nformat ascii 1.0\nelement vertex 4\nproperty double x\nproperty double y\n"
                                  "property double z\n";
    const std::string rows = "1234.5 -0.1 1e-7\n1.000 2.25 3\n7654321 1 0\n0 0.5 0.25\n";
    const std::map<std::string, std::string> files = {
        {"a.xyz", rows},
        {"comma.xyz", "1234,5 -0,1 1e-7\n1,000 2 3,25\n"},
        {"thousands.xyz", "1.234 7.654 3.210\n"},
        {"points.ply", plyHeader + "end_header\n" + rows},
        {"mesh.ply",
         plyHeader + "element face 1\nproperty list int int vertex_indices\nend_header\n" + rows + "4 0 1 2 3\n"},
        {"points.obj", "v 1234.5 -0.1 1e-7\nv 1.000 2.25 3\n"},
        {"mesh.obj", "v 1234.5 -0.1 1e-7\nv 1.000 2.25 3\nv 0 0.5 0.25\nf 1 2 3\n"},
        {"mesh.stl",
         "solid s\nfacet normal 0 0 0\nouter loop\nvertex 1234.5 -0.1 1e-7\nvertex 1.000 2.25 3\nvertex 0 0.5 "
         "0.25\nendloop\nendfacet\nendsolid s\n"},
    };
    std::map<std::string, std::string> all;
    for (const auto& [name, text] : files) all[name] = Bytes(ReadCloud(Written(name, text), 10.0));
    prereg::ConfigurationFPFH config;
    ReadConfigFile(Written("config.json", R"({"dFeatureRadius": 1234.5, "icpConfig": {"dPositionTolerance": 0.25}})"))(
        config);
    all["config"] = ToJson(config).dump();
    return all;
}

// A host may write 1.234,5 for 1234.5, in C++ and in C. Nothing that the library writes, reads or says depends on it.
TEST(Locale, NothingDependsOnTheHosts)
{
    const auto written = WhatIsWritten(), read = WhatIsRead();
    const ForeignLocale foreign;
    std::ostringstream check;
    check << 1234.5;
    ASSERT_EQ(check.str(), "1.234,5");
    EXPECT_EQ(WhatIsWritten(), written);
    EXPECT_EQ(WhatIsRead(), read);
    EXPECT_EQ(written.at("log"), "1234.5 0.250 1234567 wide");
    EXPECT_THAT(written.at("fit"), testing::HasSubstr("(NLS) "));
    EXPECT_THAT(written.at("design"), testing::HasSubstr("(NLS OED) det best="));
    if (!ForeignLocale::IsInForceForC()) GTEST_SKIP() << "de_DE.UTF-8 is missing: C++ alone was tested";
}

// The digits that are written give the same bits back.
TEST(Locale, PointsReadBackToTheSameBits)
{
    std::mt19937 engine(1);
    std::vector<kdtree::Vector<3>> points;
    while (points.size() < 20000) {
        kdtree::Vector<3> p;
        for (unsigned k = 0; k < 3; ++k) p[k] = std::bit_cast<float>(static_cast<std::uint32_t>(engine()));
        if (p.IsValid() && p.Norm() < 1e18F) points.push_back(p);
    }
    const std::string file = Written("bits.xyz", "");
    const struct Set : prereg::CPointSet {
        explicit Set(const std::vector<kdtree::Vector<3>>& p) : CPointSet(p, p) {}
    } set(points);
    set.SaveXYZN(file);
    const std::string text = FileText(file);
    const char* at = text.data();
    for (std::size_t i = 0; i < set.Size(); ++i)
        for (unsigned k = 0; k < 6; ++k) {
            double value = 0.0; // as the readers do: doubles, which floats follow
            at = std::from_chars(at, text.data() + text.size(), value).ptr + 1;
            EXPECT_EQ(std::bit_cast<std::uint32_t>(static_cast<float>(value)),
                      std::bit_cast<std::uint32_t>(k < 3 ? set.GetPoints()[i][k] : set.GetNormals()[i][k - 3]));
        }
    EXPECT_EQ(at, text.data() + text.size());
}

} // namespace
} // namespace voalgo
