#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

struct Cloud {
    std::vector<kdtree::Vector<3>> points; ///< millimetres
    std::vector<kdtree::Vector<3>> normals;
};

/// A wavy square of side × side points about 0.6 mm apart with a scanner's noise, in random order. Another seed is
/// another sampling of the same surface.
inline Cloud WavySurface(std::size_t side, unsigned seed = 1)
{
    constexpr float Spacing = 0.6F;
    constexpr float Height = 5.0F;
    constexpr float WaveX = 0.1F;
    constexpr float WaveY = 0.13F;
    std::mt19937 engine(seed);
    std::normal_distribution<float> noise;
    std::vector<std::size_t> places(side * side);
    for (std::size_t i = 0; i < places.size(); ++i) places[i] = i;
    std::shuffle(places.begin(), places.end(), engine);
    Cloud cloud;
    for (const std::size_t place : places) {
        const float x = Spacing * (static_cast<float>(place % side) + 0.2F * noise(engine));
        const float y = Spacing * (static_cast<float>(place / side) + 0.2F * noise(engine));
        const float z = Height * std::sin(WaveX * x) * std::cos(WaveY * y) + 0.05F * noise(engine);
        const kdtree::Vector<3> n(-Height * WaveX * std::cos(WaveX * x) * std::cos(WaveY * y) + 0.05F * noise(engine),
                                  Height * WaveY * std::sin(WaveX * x) * std::sin(WaveY * y) + 0.05F * noise(engine),
                                  1.0F);
        cloud.points.emplace_back(x, y, z);
        cloud.normals.push_back(n / n.Norm());
    }
    return cloud;
}

/// Reads the binary little-endian PLY files of examples/data: x y z nx ny nz as floats.
inline Cloud ReadExample(const std::string& name)
{
    const std::string path = VOALGO_SOURCE_DIR "/examples/data/" + name;
    std::ifstream file(path, std::ios::binary);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line) && line != "end_header";)
        if (line.starts_with("element vertex ")) count = std::stoul(line.substr(15));
    std::vector<float> values(6 * count);
    file.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(float)));
    if (!file || count == 0) throw std::runtime_error("cannot read " + path);
    Cloud cloud;
    for (const float* v = values.data(); v != values.data() + values.size(); v += 6) {
        cloud.points.emplace_back(v[0], v[1], v[2]);
        cloud.normals.emplace_back(v[3], v[4], v[5]);
    }
    return cloud;
}

/// Seconds per unit of work, printed with its prefix ("8.9ns").
inline benchmark::Counter PerUnit(double unitsPerIteration)
{
    return {unitsPerIteration, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert};
}

/// Other work on the machine only ever adds time: the quickest of several repetitions is shown beside their median.
inline void Repeat(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Repetitions(7)->DisplayAggregatesOnly()->ComputeStatistics(
        "min", [](const std::vector<double>& values) { return *std::min_element(values.begin(), values.end()); });
}

} // namespace bench
