// Registers every pair of a list, flt turned by fixed random rotations first, and compares with the known poses.
//
//   registration_eval PAIRS.csv [TURNS [PRESET]]
//
// PAIRS.csv has a header and, per line: name, fix, flt (files relative to the list), then the 16 numbers, row by row,
// of the pose that maps flt into fix, mm; without them, or with nan, the pair must be refused. Further fields are
// ignored. Prints a line per pair and the totals; exits with 1 when a pose is wrong or a pair is accepted that must be
// refused.

#include "VoAlgorithms/verdict/localframes.h"
#include "VoAlgorithms/verdict/registerscans.h"
#include "exchange/files/read_cloud.h"
#include "platform/clock.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using prereg::PreparedScan;
using prereg::Scan;
using VoAlgo::CTrafo;

constexpr double MaxTurn = 1.0;            // degrees from the truth
constexpr double MaxShiftInSpacings = 2.0; // of the middle of flt

struct Pair {
    std::string name;
    PreparedScan fix;
    PreparedScan flt;
    std::optional<CTrafo> truth; // between the frames of the prepared scans
};

std::vector<Pair> ReadPairs(const std::string& path)
{
    std::ifstream in(path);
    if (!in) throw std::runtime_error(path + ": cannot be read");
    const auto folder = std::filesystem::path(path).parent_path();
    const auto read = [&folder](const std::string& name) {
        Scan scan = voalgo::ReadCloud((folder / name).string());
        scan.name = name;
        return prereg::PrepareScan(std::move(scan));
    };
    std::vector<Pair> pairs;
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        std::stringstream row(line);
        std::vector<std::string> fields;
        for (std::string field; std::getline(row, field, ',');) fields.push_back(field);
        if (fields.size() < 3)
            throw std::runtime_error((path + ": a line with fewer than three fields: ").append(line));
        Pair pair{fields[0], read(fields[1]), read(fields[2]), {}};
        if (fields.size() >= 19 && !std::isnan(std::stod(fields[3]))) {
            VoAlgo::CbMatrix4Rd m;
            for (unsigned i = 0; i < 16; ++i) m(i / 4, i % 4) = std::stod(fields[3 + i]);
            pair.truth = prereg::LocalPose(m, pair.fix.scan.origin, pair.flt.scan.origin);
        }
        pairs.push_back(std::move(pair));
    }
    return pairs;
}

CTrafo RandomTurn(unsigned seed)
{
    std::mt19937 engine(seed);
    std::normal_distribution<double> normal;
    const double w = normal(engine);
    const double x = normal(engine);
    const double y = normal(engine);
    const double z = normal(engine);
    return {VoAlgo::Quaternion(w, x, y, z).GetNormalized(), kdtree::Vector<3>()};
}

Scan Moved(const Scan& scan, const CTrafo& pose)
{
    Scan moved = scan;
    for (auto& p : moved.points) p = pose * p;
    for (auto& n : moved.normals) n = pose.Rotate(n);
    return moved;
}

kdtree::Vector<3> Middle(const Scan& scan)
{
    kdtree::Vector<3> sum;
    for (const auto& p : scan.points) sum += p / static_cast<float>(scan.points.size());
    return sum;
}

struct Totals {
    unsigned right = 0;
    unsigned wrong = 0;
    unsigned missed = 0;
    unsigned refused = 0;
    unsigned accepted = 0; // though it must be refused
    std::vector<double> seconds;
};

void Evaluate(const Pair& pair, unsigned turn, const prereg::RegistrationOptions& options, Totals& totals)
{
    const CTrafo turned = RandomTurn(100 + turn);
    const Scan moved = Moved(pair.flt.scan, turned);
    const PreparedScan flt = prereg::PrepareScan(moved);
    const VoAlgo::CStopwatch watch;
    const prereg::Registration registration = RegisterScans(pair.fix, flt, options);
    const double seconds = watch.Seconds();
    std::printf("%-18s turn %u  %.3f s  ", pair.name.c_str(), turn, seconds);
    if (!registration) {
        ++(pair.truth ? totals.missed : totals.refused);
        std::printf("refused: %s (%s)\n", registration.Reason().c_str(), registration.statistics.ToString().c_str());
    } else {
        const prereg::JudgedTrafo& best = registration.Best();
        double degrees = 0.0;
        double shift = 0.0;
        if (pair.truth) {
            const CTrafo truth = *pair.truth * turned.GetInverse(true);
            const double spacing = std::max(pair.fix.spacing, pair.flt.spacing);
            const kdtree::Vector<3> middle = Middle(moved);
            const CTrafo pose = prereg::LocalPose(registration.Pose(), pair.fix.scan.origin, moved.origin);
            degrees = static_cast<double>(pose.GetRotationDistance(truth)) * 57.29577951308232;
            shift = static_cast<double>((pose * middle - truth * middle).Norm());
            ++(degrees <= MaxTurn && shift <= MaxShiftInSpacings * spacing ? totals.right : totals.wrong);
        } else {
            ++totals.accepted;
        }
        std::printf("accepted  %.2f deg %.2f mm  overlap %.3f  RMSE %.4f  small/big %.3f  cluster %u\n", degrees, shift,
                    static_cast<double>(best.fStop_OverlapRatio), static_cast<double>(best.fStop_RMSE),
                    static_cast<double>(best.fStop_SmallBigRatio), best.clusterSize);
    }
    if (pair.truth) totals.seconds.push_back(seconds);
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 2) throw std::runtime_error("usage: registration_eval PAIRS.csv [TURNS [PRESET]]");
    const unsigned turns = argc > 2 ? static_cast<unsigned>(std::stoul(argv[2])) : 1;
    prereg::RegistrationOptions options;
    if (argc > 3) {
        const std::optional<prereg::EPreset> preset = prereg::PresetOf(argv[3]);
        if (!preset) throw std::runtime_error(std::string(argv[3]) + ": unknown preset");
        options.preset = *preset;
    }
    Totals totals;
    for (const Pair& pair : ReadPairs(argv[1]))
        for (unsigned turn = 0; turn < turns; ++turn) Evaluate(pair, turn, options, totals);
    std::sort(totals.seconds.begin(), totals.seconds.end());
    std::printf("right %u, wrong %u, missed %u; to be refused: %u refused, %u accepted\n", totals.right, totals.wrong,
                totals.missed, totals.refused, totals.accepted);
    if (!totals.seconds.empty())
        std::printf("seconds a pair with a truth: median %.3f, largest %.3f\n",
                    totals.seconds[totals.seconds.size() / 2], totals.seconds.back());
    return totals.wrong + totals.accepted == 0 ? 0 : 1;
} catch (const std::exception& e) {
    std::fprintf(stderr, "registration_eval: %s\n", e.what());
    return 3;
}
