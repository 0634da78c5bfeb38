#pragma once

#include "VoAlgorithms/bson/element.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace bson_test {

using VoAlgo::bson::element;
using Bytes = std::vector<unsigned char>;

inline Bytes::const_iterator At(const Bytes& bytes, std::size_t n)
{
    return bytes.begin() + static_cast<std::ptrdiff_t>(n);
}

inline Bytes BytesOf(const element& e)
{
    const auto [data, size] = e.freeze();
    return {data, data + size};
}
inline Bytes BytesOf(const element::object& o)
{
    const auto [data, size] = o.freeze();
    return {data.get(), data.get() + size};
}

inline std::string NamesOf(const element::object& o)
{
    std::string names;
    for (const element& e : o) names += e.name();
    return names;
}

/// Whether the call throws std::invalid_argument "parse error".
bool IsParseError(auto call)
{
    try {
        (void)call();
    } catch (const std::invalid_argument& e) {
        return std::string(e.what()) == "parse error";
    }
    return false;
}

/// A document that fuzzing may start from goes where VOALGO_CORPUS says.
inline void KeepSeed(const std::string& target, const std::string& name, const Bytes& bytes)
{
    const char* const corpus = std::getenv("VOALGO_CORPUS");
    if (corpus == nullptr) return;
    const std::filesystem::path folder = std::filesystem::path(corpus) / target;
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

} // namespace bson_test
