#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

/// Saves bytes as a seed of the fuzz target in the folder VOALGO_CORPUS, if that is set.
inline void KeepSeed(const std::string& target, const std::string& name, const std::vector<unsigned char>& bytes)
{
    const char* const corpus = std::getenv("VOALGO_CORPUS");
    if (corpus == nullptr) return;
    const std::filesystem::path folder = std::filesystem::path(corpus) / target;
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
