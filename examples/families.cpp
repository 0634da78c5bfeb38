// A short use of every family; the reference shows these parts. Exits with 0 when every result is as expected. Run it
// from the root of the sources, where it finds the sample scans.
#include <VoAlgorithms/VoAlgorithms.h>

#include "sample_scan.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

void Expect(bool isTrue, const char* what)
{
    if (!isTrue) throw std::runtime_error(std::string(what) + " gave a wrong result");
}

void Registration()
{
    const prereg::PreparedScan fix = prereg::PrepareScan(ReadSample("examples/data/hippo1.ply"));
    const prereg::PreparedScan flt = prereg::PrepareScan(ReadSample("examples/data/hippo2.ply"));
    // [adjust]
    prereg::RegistrationOptions options;
    options.adjust = [](prereg::ConfigurationFPFH& c) { c.icpConfig.dMinOverlapRatio = 0.3; };
    const prereg::Registration r = prereg::RegisterScans(fix, flt, options); // other settings follow from the scans
    // [adjust]
    Expect(r && r.settings.verification.icp.dMinOverlapRatio == 0.3, "the registration");

    // [driver]
    const prereg::ConfigurationFPFH config = prereg::DeriveSettings(fix.scan, flt.scan).config;
    prereg::CFPFHDataSource fixSource(config.dFeatureRadius, config.uiMinCurvatureQuality, 2, false); // 2 threads
    prereg::CFPFHDataSource fltSource = fixSource;
    fixSource.Update(fix.scan.points, fix.scan.normals);
    fltSource.Update(flt.scan.points, flt.scan.normals);

    const prereg::CFPFHPointSet fixSet(fixSource), fltSet(fltSource);
    prereg::CFPFHPreRegistration driver(fixSet, fltSet, config, false);
    driver.Compute();
    const prereg::ICPResult best = driver.GetNextResult(); // type 0: accepted; trafo maps flt into the frame of fix
    // [driver]
    Expect(best.resultType == 0 && best.trafo.GetRotationDistance(r.Best().trafo) < 0.01F, "the driver");
}

void Platform()
{
    // [platform]
    Logging::SetLevel(Logging::ELogLevel::Info);
    Logging::SetSink([](const Logging::Message& message) {
        std::fprintf(stderr, "%s: %ls\n", message.channel, message.text.c_str());
    });
    // [platform]
    Expect(Logging::GetLogger("Example").IsLogLevelEnabled(Logging::ELogLevel::Info), "logging");
    Logging::SetSink({});
}

void KdTree()
{
    // [kdtree]
    const std::vector<kdtree::Vector<3>> points = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}};
    const kdtree::TKdTree<3, 48> tree(&points[0].x, points.size(), 4); // a point every four floats

    const kdtree::Vector<3> place(0.9F, 0.1F, 0);
    float distanceSq = 0;
    const int nearest = tree.Nearest(&place.x, 0.5F * 0.5F, &distanceSq); // 1, at √0.02 mm
    std::vector<int> around;
    tree.AllWithin(&place.x, 1.0F * 1.0F, around); // 0 and 1, in the tree's order
    // [kdtree]
    Expect(nearest == 1 && std::abs(distanceSq - 0.02F) < 1e-6F && around.size() == 2, "the tree");
}

void Numerics()
{
    // [least squares]
    // The straight line y = x₀ + x₁·t through four measurements at t = 0, 1, 2, 3.
    VoAlgo::TMatrix<double> a = {{1, 0}, {1, 1}, {1, 2}, {1, 3}}; // destroyed by the solve
    const VoAlgo::TVector<double> y = {1, 3, 5, 7};
    VoAlgo::TVector<double> x(2);
    const bool isSolved = VoAlgo::lapack::lssolve(a, y, x); // x = (1, 2)
    // [least squares]
    Expect(isSolved && std::abs(x[0] - 1) < 1e-12 && std::abs(x[1] - 2) < 1e-12, "the least-squares solve");

    // [poses]
    using Vector = kdtree::Vector<3>;
    const VoAlgo::CTrafo pose(Vector(0, 0, 1.5707963F), Vector(10, 0, 0)); // a quarter turn about z, then 10 mm along x
    const Vector from[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};
    const Vector to[] = {pose * from[0], pose * from[1], pose * from[2], pose * from[3]};

    const VoAlgo::CTrafo fit = VoAlgo::CTrafo::LeastSquaresFit(from, to, 4); // false when the points are degenerate
    const VoAlgo::CTrafo error = fit.GetInverse() * pose;                    // applies pose first, then the inverse
    const float angle = error.GetRotationDistance(VoAlgo::CTrafo::Identity()), shift = error.GetTranslation().Norm();
    // [poses]
    Expect(fit && angle < 1e-3F && shift < 1e-4F, "the pose fit");
}

void Clustering()
{
    std::size_t members = 0;
    // [clustering]
    const std::vector<std::array<float, 3>> points = {{0, 0, 0}, {5, 0, 0}, {0.2F, 0, 0}, {5, 0.1F, 0}, {0, 0.1F, 0}};
    VoAlgo::CMeanShiftClusterer3D clusterer(points, 1.0F); // bandwidth, mm
    if (clusterer.Run())
        for (unsigned c = 0; c < clusterer.GetNumClusters(); ++c)
            for (auto member = clusterer.GetClusterIterator(c); member; ++member)
                members += points.at(member.GetIndex())[0] < 2.5F; // two clusters: points 0, 2, 4 and 1, 3
    // [clustering]
    Expect(clusterer.GetNumClusters() == 2 && members == 3, "the clustering");

    // [sets]
    VoAlgo::CDisjointSets sets(5); // five scans; which ones overlap, directly or by way of others?
    sets.Unite(0, 3);
    sets.Unite(3, 4);
    const VoAlgo::CDisjointSets::Groups groups = sets.GetGroups(); // {0, 3, 4}, {1}, {2}
    // [sets]
    Expect(groups.Size() == 3 && groups[0].size() == 3 && groups[0][2] == 4, "the sets");
}

void Documents()
{
    // [bson]
    using VoAlgo::bson::element;
    const element::object document = (element("part", "bracket"), element("scans", 2),
                                      element("settings", VoAlgo::bson::to_object(prereg::ConfigurationFPFH())));
    const auto [bytes, size] = document.freeze();

    const element::object read = element::object::unfreeze(bytes.get(), size); // throws if the bytes are not a document
    const int scans = read.child("scans").as_int32();                          // throws if the type differs
    const double radius = read.query("settings/dFeatureRadius").as_double();
    const auto settings = VoAlgo::bson::from_object<prereg::ConfigurationFPFH>(read.child("settings").as_object());
    // [bson]
    Expect(scans == 2 && radius == 1.5 && settings == prereg::ConfigurationFPFH(), "the document");
}

// [problem]
// The decay a·exp(−b·t), measured at t = 0, 1, 2, 3.
class Decay : public VoAlgo::CNLSObjectiveFunction {
public:
    Decay() : CNLSObjectiveFunction(2, 4) { AddBounds(1, 0, 10); } // 0 ≤ b ≤ 10

    VoAlgo::TVector<double> Error(const VoAlgo::TVector<double>& params) override
    {
        const VoAlgo::TVector<double> measured = {8, 4, 2, 1};
        VoAlgo::TVector<double> residuals(4);
        for (int t = 0; t < 4; ++t) residuals[t] = params[0] * std::exp(-params[1] * t) - measured[t];
        return residuals;
    }
};
// [problem]

void Solvers()
{
    // [fit]
    Decay decay;
    VoAlgo::CNLSSolver solver(decay, false, 0);
    solver.SetLogging(false);
    solver.SetRefinement(true);              // may leave a bound where the plain iteration stops
    VoAlgo::TVector<double> params = {1, 1}; // the start
    double rmse = 0;
    solver.Run(params, rmse, 100, 1e-3, 0, VoAlgo::CNLSSolver::Gibbs); // a = 8, b = ln 2
    const VoAlgo::TMatrix<double> covariance = decay.GetCovariance(params, rmse);
    // [fit]
    Expect(std::abs(params[0] - 8) < 1e-6 && std::abs(params[1] - std::log(2.0)) < 1e-6 && covariance.Rows() == 2,
           "the fit");

    // [programme]
    // The largest x + y with x + 2·y ≤ 4, 3·x + y ≤ 6, x ≥ 0 and y ≥ 0.
    VoAlgo::CLPSolver programme({{1, 2}, {3, 1}, {-1, 0}, {0, -1}}, {4, 6, 0, 0}, {1, 1});
    const bool hasOptimum = programme.Run();
    const VoAlgo::TVector<double> corner = programme.GetSolution(); // (1.6, 1.2)
    // [programme]
    Expect(hasOptimum && std::abs(corner[0] - 1.6) < 1e-12 && std::abs(corner[1] - 1.2) < 1e-12, "the programme");

    // [spline]
    const std::vector<double> x = {0, 1, 2.5, 4}, heights = {0, 2, -1, 0}; // a measured profile, mm
    const VoAlgo::CNaturalSpline profile(x, heights);
    const double height = profile(1.5), slope = profile.Derivative(1.5, 1), area = profile.Integral(0, 4);
    const auto extrema = profile.Extrema(0, 4);              // a maximum, then a minimum
    const std::vector<double> zeros = profile.Roots(0.5, 3); // where it crosses height 0
    // [spline]
    Expect(height > 0 && slope < 0 && area > 0 && extrema.size() == 2 && extrema[0].isMaximum && zeros.size() == 1,
           "the spline");

    // [curve]
    const VoAlgo::TMatrix<double> corners = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
    const VoAlgo::CNaturalSplineCurve outline(corners, true);                             // closed; parameter 0 to 40
    const VoAlgo::TVector<double> place = outline(5), tangent = outline.Derivative(5, 1); // below the middle of a side
    // [curve]
    Expect(std::abs(place[0] - 5) < 1e-12 && place[1] < -1 && std::abs(tangent[1]) < 1e-12, "the curve");

    // [polynomial]
    const VoAlgo::CPolynomial cubic({4, 0, -3, 1});                                   // 4 − 3·x² + x³
    const std::vector<double> roots = cubic.RealRoots();                              // −1, 2, 2
    const auto [quotient, remainder] = cubic.DividedBy(VoAlgo::CPolynomial({-2, 1})); // −2 − x + x² and 0
    // [polynomial]
    Expect(roots == std::vector<double>{-1, 2, 2} && quotient.Degree() == 2 && remainder.Degree() == -1, "the roots");
}

void Colour()
{
    // [colour]
    namespace cs = VoAlgo::cs;
    const cs::Lab ivory(cs::XYZ::FromSRGB({229, 214, 186})), sand(cs::XYZ::FromSRGB({212, 190, 150}));
    const double difference = std::sqrt(ivory.DistanceSq_CIEDE2000(sand)); // about 1 is just noticeable

    auto curve = cs::Lab::CreateColorTransferCurve(3); // three control points per channel
    const bool isMoved = curve.Channel(0).MovePoint(1, {50, 60});
    const cs::Lab brighter = curve(sand);
    // [colour]
    Expect(difference > 6 && difference < 8 && isMoved && brighter.L > sand.L, "the colours");
}

void Runtime()
{
    // [run length]
    const std::vector<unsigned char> mask(10000, 7);
    std::vector<unsigned char> coded(1 + 2 * mask.size()); // worst case
    coded.resize(VoAlgo::RLE::Compress(mask.data(), coded.data(), mask.size(), -1));

    std::vector<unsigned char> decoded(mask.size());
    const auto result = VoAlgo::RLE::UncompressChecked(coded.data(), decoded.data(), coded.size(), decoded.size());
    // [run length]
    Expect(result.end == VoAlgo::RLE::EDecoded::Whole && decoded == mask && coded.size() < 10, "the coding");

    // [pipe]
    VoAlgo::CSharedMemoryPipe receiver = VoAlgo::CSharedMemoryPipe::Create(L"VoAlgorithmsExample", 65536);
    VoAlgo::CSharedMemoryPipe sender = VoAlgo::CSharedMemoryPipe::Open(L"VoAlgorithmsExample", 65536); // other process
    sender.Send(coded);
    const std::vector<unsigned char> message = receiver.Receive(); // waits for a message
    // [pipe]
    Expect(message == coded, "the pipe");
}

int main()
try {
    Registration();
    Platform();
    KdTree();
    Numerics();
    Clustering();
    Documents();
    Solvers();
    Colour();
    Runtime();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
