#pragma once

#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/verdict/scan.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace voalgo {

/// The points of a cloud that a page shows: at most `most` of them, drawn at random but always the same ones.
std::vector<std::uint32_t> ShownPoints(std::size_t numPoints, std::size_t most);

/// The points with 16 bits per coordinate over their bounding box and the normals with 8 bits per component, in base64,
/// and the box: position = low + code / 65535 × size (mm), normal = code / 127.
nlohmann::ordered_json PackCloud(const prereg::Scan& cloud, const std::vector<std::uint32_t>& shown);

/// Two clouds and the limits within which their points pair up.
struct Pairing {
    double radius;           ///< mm, of the distance between the points
    double angle;            ///< rad, between their normals
    prereg::Scan const& fix; ///< borrowed
    prereg::Scan const& flt; ///< borrowed
};

constexpr float NoDistance = 1e30F;

/// For each chosen point of flt, moved by the pose, the signed distance (mm) to the tangent plane of its nearest point
/// of fix, positive on the side that fix's normal points to; NoDistance where there is no pair.
std::vector<float> SignedDistances(const Pairing& pairing, const std::vector<std::uint32_t>& chosen,
                                   const VoAlgo::CTrafo& pose);

/// The distances with 16 bits each, in base64: distance = code / 32767 × largest (mm), −32768 for NoDistance.
std::string PackDistances(const std::vector<float>& distances, double largest);

} // namespace voalgo
