#include "exchange/report/packed_cloud.h"

#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/runtime/base64.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace voalgo {

namespace {

using Vec3 = kdtree::Vector<3>;

void AppendLittleEndian(std::vector<unsigned char>& bytes, unsigned value)
{
    bytes.push_back(static_cast<unsigned char>(value & 0xFFU));
    bytes.push_back(static_cast<unsigned char>(value >> 8U & 0xFFU));
}

} // namespace

std::vector<std::uint32_t> ShownPoints(std::size_t numPoints, std::size_t most)
{
    std::vector<std::uint32_t> shown;
    shown.reserve(std::min(numPoints, most));
    std::mt19937 engine;                          // NOLINT(cert-msc32-c,cert-msc51-cpp): the same points every time
    for (std::size_t i = 0; i < numPoints; ++i) { // each set of `most` points is equally likely
        const std::size_t wanted = most - shown.size();
        const std::size_t left = numPoints - i;
        if (wanted >= left || engine() % left < wanted) shown.push_back(static_cast<std::uint32_t>(i));
    }
    return shown;
}

nlohmann::ordered_json PackCloud(const prereg::Scan& cloud, const std::vector<std::uint32_t>& shown)
{
    Vec3 low = cloud.points.at(shown.at(0));
    Vec3 high = low;
    for (const std::uint32_t i : shown)
        for (unsigned k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], cloud.points[i][k]);
            high[k] = std::max(high[k], cloud.points[i][k]);
        }
    std::vector<unsigned char> positions;
    std::vector<unsigned char> normals;
    positions.reserve(6 * shown.size());
    normals.reserve(3 * shown.size());
    for (const std::uint32_t i : shown)
        for (unsigned k = 0; k < 3; ++k) {
            const double size = double{high[k]} - double{low[k]};
            const double share = size > 0.0 ? (double{cloud.points[i][k]} - double{low[k]}) / size : 0.0;
            AppendLittleEndian(positions, static_cast<unsigned>(std::lround(share * 65535.0)));
            const long code = std::clamp(std::lround(cloud.normals[i][k] * 127.0F), -127L, 127L);
            normals.push_back(static_cast<unsigned char>(code & 0xFF));
        }
    const auto corner = [](const Vec3& v) { return nlohmann::ordered_json{v.x, v.y, v.z}; };
    return {{"low", corner(low)},
            {"size", corner(high - low)},
            {"positions", VoAlgo::Base64::Encode(positions)},
            {"normals", VoAlgo::Base64::Encode(normals)}};
}

std::vector<float> SignedDistances(const Pairing& pairing, const std::vector<std::uint32_t>& chosen,
                                   const VoAlgo::CTrafo& pose)
{
    const kdtree::TKdTree<3, 48> tree(&pairing.fix.points.at(0).x, pairing.fix.points.size(), 4);
    const auto radiusSq = static_cast<float>(pairing.radius * pairing.radius);
    const auto minCosine = static_cast<float>(std::cos(pairing.angle));
    std::vector<float> distances;
    distances.reserve(chosen.size());
    for (const std::uint32_t i : chosen) {
        const Vec3 p = pose * pairing.flt.points[i];
        const int nearest = tree.Nearest(&p.x, radiusSq);
        float distance = NoDistance;
        if (nearest >= 0) {
            const auto q = static_cast<std::size_t>(nearest);
            const Vec3& normal = pairing.fix.normals[q];
            if (normal.Dot(pose.Rotate(pairing.flt.normals[i])) > minCosine)
                distance = (p - pairing.fix.points[q]).Dot(normal);
        }
        distances.push_back(distance);
    }
    return distances;
}

std::string PackDistances(const std::vector<float>& distances, double largest)
{
    std::vector<unsigned char> bytes;
    bytes.reserve(2 * distances.size());
    for (const float distance : distances) {
        const double share = std::clamp(static_cast<double>(distance) / largest, -1.0, 1.0);
        const long code = distance == NoDistance ? -32768L : std::lround(share * 32767.0);
        AppendLittleEndian(bytes, static_cast<unsigned>(code) & 0xFFFFU);
    }
    return VoAlgo::Base64::Encode(bytes);
}

} // namespace voalgo
