#pragma once

#include "VoAlgorithms/verdict/scan.h"

#include "VoAlgorithms/numerics/ctrafo.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace voalgo {

/// What a page shows of a cloud: at most so many of its points, drawn at random but always the same ones.
std::vector<std::uint32_t> ShownPoints(std::size_t numPoints, std::size_t most);

/// The points in 16 bits a coordinate over their bounding box, the normals in 8 bits a component, in base64, with what
/// it takes to read them: position = low + code / 65535 × size (mm), normal = code / 127.
nlohmann::ordered_json PackCloud(const prereg::Scan& cloud, const std::vector<std::uint32_t>& shown);

/// What belongs together in a comparison of both clouds.
struct Nearness {
    double radius;           ///< mm, farther points do not
    double angle;            ///< rad, points whose normals differ by more do not
    prereg::Scan const& fix; ///< borrowed
    prereg::Scan const& flt; ///< borrowed
};

constexpr float NoDistance = 1e30F;

/// For each of flt's chosen points, moved by the pose, the signed distance (mm) to the tangent plane of its nearest
/// point of fix, positive on the side that fix's normal points to; NoDistance where none is near.
std::vector<float> SignedDistances(const Nearness& near, const std::vector<std::uint32_t>& chosen,
                                   const VoAlgo::CTrafo& pose);

/// The distances in 16 bits, in base64: distance = code / 32767 × largest (mm), −32768 for none.
std::string PackDistances(const std::vector<float>& distances, double largest);

std::string Base64(const std::vector<unsigned char>& bytes);

} // namespace voalgo
