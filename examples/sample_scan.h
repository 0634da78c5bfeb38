#pragma once

// Reads the sample scans: binary little-endian PLY, six floats (x y z nx ny nz) per vertex.
#include <VoAlgorithms/verdict/scan.h>

#include <fstream>
#include <stdexcept>
#include <string>

inline prereg::Scan ReadSample(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line) && line != "end_header";)
        if (line.rfind("element vertex ", 0) == 0) count = std::stoul(line.substr(15));
    prereg::Scan scan;
    scan.name = path;
    for (float v[6]; count > 0 && file.read(reinterpret_cast<char*>(v), sizeof v); --count) {
        scan.points.emplace_back(v[0], v[1], v[2]);
        scan.normals.emplace_back(v[3], v[4], v[5]);
    }
    if (count != 0 || scan.points.empty()) throw std::runtime_error("cannot read " + path);
    return scan;
}
