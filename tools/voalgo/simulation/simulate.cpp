#include "simulation/simulate.h"

#include "VoAlgorithms/verdict/estimatenormals.h"
#include "VoAlgorithms/verdict/sampling.h"
#include "exchange/files/input_error.h"
#include "simulation/free_form.h"
#include "simulation/overlap.h"
#include "simulation/scanner.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <optional>

namespace voalgo {

namespace {

/// Random streams of one simulation, one for each purpose, so that changing one choice leaves the others alone.
enum Stream : unsigned { Views, GridOfFix, GridOfFlt, ClutterOfFix, ClutterOfFlt, Pose };

std::mt19937 Engine(unsigned seed, Stream stream)
{
    return std::mt19937(seed * 64 + stream);
}

double BoundingRadius(const Mesh& mesh)
{
    float radiusSq = 0.0F;
    for (const auto& v : mesh.vertices) radiusSq = std::max(radiusSq, v.NormSq());
    return std::sqrt(static_cast<double>(radiusSq));
}

/// Both views of one simulation.
class Stage {
public:
    Stage(const Mesh& object, const SimulationSettings& settings) : object_(object), settings_(settings)
    {
        const double radius = BoundingRadius(object);
        if (!(radius > 0.0) || object.triangles.empty()) throw InputError("the object has no surface to scan");
        scanner_.distance = 8.0 * radius;
        scanner_.reach = 1.3 * radius;
        scanner_.noise = settings.noise;
        scanner_.correlation = settings.correlation;
        scanner_.warp = settings.warp;
        scanner_.quantum = settings.quantum;
        scanner_.smear = settings.smear;
        scanner_.holes = settings.holes;
        auto engine = Engine(settings.seed, Views);
        std::uniform_real_distribution<double> turn(0.0, 2.0 * std::numbers::pi);
        direction_ = RandomDirection(engine);
        rollOfFix_ = turn(engine);
        rollOfFlt_ = turn(engine);
        const Frame around = FrameAlong(direction_, turn(engine));
        sideways_ = around.axis[0];
        choosePitch(radius);
    }

    [[nodiscard]] const Scanner& GetScanner() const { return scanner_; }
    [[nodiscard]] Frame EyeOfFix() const { return ScannerFrame(scanner_, direction_, rollOfFix_); }
    [[nodiscard]] Frame EyeOfFlt(double angle) const
    {
        Frame::Axis view{};
        for (unsigned i = 0; i < 3; ++i) view[i] = std::cos(angle) * direction_[i] + std::sin(angle) * sideways_[i];
        return ScannerFrame(scanner_, view, rollOfFlt_);
    }
    [[nodiscard]] prereg::Scan ScanFix() const { return scanFrom(EyeOfFix(), GridOfFix); }
    [[nodiscard]] prereg::Scan ScanFlt(double angle) const { return scanFrom(EyeOfFlt(angle), GridOfFlt); }

private:
    [[nodiscard]] prereg::Scan scanFrom(const Frame& eye, Stream stream) const
    {
        auto engine = Engine(settings_.seed, stream);
        return ScanMesh(object_, scanner_, eye, engine);
    }

    /// The number of points is proportional to 1 ÷ pitch²; a coarse scan gives the factor.
    void choosePitch(double radius)
    {
        scanner_.pitch = radius / 40.0;
        for (int pass = 0; pass < 2; ++pass) {
            const std::size_t count = ScanFix().points.size();
            if (count == 0) throw InputError("the scanner does not see the object");
            scanner_.pitch *= std::sqrt(static_cast<double>(count) / settings_.points);
        }
    }

    const Mesh& object_;
    const SimulationSettings& settings_;
    Scanner scanner_;
    Frame::Axis direction_ = {}, sideways_ = {};
    double rollOfFix_ = 0.0, rollOfFlt_ = 0.0;
};

double LargerSpacing(const prereg::Scan& a, const prereg::Scan& b)
{
    return std::max(prereg::MeasureSampling(a).spacing, prereg::MeasureSampling(b).spacing);
}

double SmallerOverlap(const prereg::Scan& fix, const prereg::Scan& flt)
{
    const double radius = 2.0 * LargerSpacing(fix, flt);
    return std::min(OverlapShare(fix, flt, radius), OverlapShare(flt, fix, radius));
}

/// The angle between the views (rad) that gives the overlap, which falls as the angle grows.
double SearchAngle(const Stage& stage, double wantedOverlap)
{
    const prereg::Scan fix = stage.ScanFix();
    double low = 0.0, high = std::numbers::pi;
    for (int step = 0; step < 10; ++step) {
        const double middle = 0.5 * (low + high);
        (SmallerOverlap(fix, stage.ScanFlt(middle)) > wantedOverlap ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

/// Adds a patch of `count` points of another object beside the scanned one.
void AddForeignPatch(prereg::Scan& cloud, std::size_t count, const Scanner& scanner, const Frame& eye,
                     std::mt19937& engine)
{
    const double radius = scanner.reach / 1.3;
    Mesh other = FreeFormObject(static_cast<unsigned>(engine()), 1.2 * radius, 60000);
    std::uniform_real_distribution<double> turn(0.0, 2.0 * std::numbers::pi);
    const double angle = turn(engine);
    const Frame::Axis shift = eye.Turn({0.7 * radius * std::cos(angle), 0.7 * radius * std::sin(angle), 0.5 * radius});
    for (auto& v : other.vertices) v += ToFloat(shift);
    const prereg::Scan patch = ScanMesh(other, scanner, eye, engine);
    if (patch.points.empty()) return;
    const kdtree::Vector<3> middle = patch.points[engine() % patch.points.size()];
    std::vector<std::size_t> order(patch.points.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return (patch.points[a] - middle).NormSq() < (patch.points[b] - middle).NormSq();
    });
    order.resize(std::min(order.size(), count));
    std::sort(order.begin(), order.end());
    for (const std::size_t i : order) cloud.points.push_back(patch.points[i]);
}

/// Adds clutter: half of it a patch of another object, half of it stray points around the object.
void AddClutter(prereg::Scan& cloud, double share, const Scanner& scanner, const Frame& eye, std::mt19937 engine)
{
    if (share <= 0.0) return;
    const auto count = static_cast<std::size_t>(share / (1.0 - share) * static_cast<double>(cloud.points.size()));
    AddForeignPatch(cloud, count / 2, scanner, eye, engine);
    const double radius = scanner.reach / 1.3;
    std::uniform_real_distribution<double> place(-radius, radius);
    for (std::size_t i = count / 2; i < count; ++i) {
        const double x = place(engine), y = place(engine), z = place(engine);
        cloud.points.push_back(ToFloat({x, y, z}));
    }
}

Frame RandomPose(std::mt19937 engine, double reach)
{
    std::uniform_real_distribution<double> turn(0.0, 2.0 * std::numbers::pi), shift(-reach, reach);
    const Frame::Axis direction = RandomDirection(engine);
    Frame pose = FrameAlong(direction, turn(engine));
    for (double& t : pose.origin) t = shift(engine);
    return pose;
}

} // namespace

Simulation Simulate(const Mesh& object, const SimulationSettings& settings)
{
    const Stage stage(object, settings);
    const double angle = SearchAngle(stage, settings.overlap);
    const Frame eyeOfFix = stage.EyeOfFix(), eyeOfFlt = stage.EyeOfFlt(angle);
    Simulation result;
    result.angle = angle * 180.0 / std::numbers::pi;
    result.fix = stage.ScanFix();
    result.flt = stage.ScanFlt(angle);
    result.spacing = LargerSpacing(result.fix, result.flt);
    AddClutter(result.fix, settings.clutter, stage.GetScanner(), eyeOfFix, Engine(settings.seed, ClutterOfFix));
    AddClutter(result.flt, settings.clutter, stage.GetScanner(), eyeOfFlt, Engine(settings.seed, ClutterOfFlt));
    result.fix.normals = prereg::EstimateNormals(result.fix.points, ToFloat(eyeOfFix.origin));
    result.flt.normals = prereg::EstimateNormals(result.flt.points, ToFloat(eyeOfFlt.origin));
    result.overlapFix = OverlapShare(result.fix, result.flt, 2.0 * result.spacing);
    result.overlapFlt = OverlapShare(result.flt, result.fix, 2.0 * result.spacing);

    result.truth = RandomPose(Engine(settings.seed, Pose), stage.GetScanner().reach);
    for (auto& p : result.flt.points) p = ToFloat(result.truth.ToLocal(ToDouble(p)));
    for (auto& n : result.flt.normals) n = ToFloat(result.truth.TurnBack(ToDouble(n)));
    return result;
}

} // namespace voalgo
