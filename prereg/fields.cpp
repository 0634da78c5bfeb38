#include "VoAlgorithms/prereg/fields.h"

#include <algorithm>
#include <stdexcept>

namespace prereg {
namespace {

/// Number of single-character changes that turn a into b, upper and lower case taken as equal.
std::size_t EditDistance(const std::string& a, const std::string& b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : int{c}; }; // whatever the locale
    const auto differ = [&](char x, char y) { return lower(x) != lower(y); };
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (differ(a[i - 1], b[j - 1]) ? 1 : 0);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

} // namespace

std::string NearestKey(const std::string& wrong, const std::vector<std::string>& known)
{
    const auto nearest = std::min_element(known.begin(), known.end(), [&](const auto& a, const auto& b) {
        return EditDistance(wrong, a) < EditDistance(wrong, b);
    });
    return nearest == known.end() ? std::string() : *nearest;
}

void RequireRanges(const ConfigurationFPFH& c)
{
    const auto require = [](bool holds, const char* key, const char* what) {
        if (!holds) throw std::invalid_argument(std::string("\"") + key + "\": must be " + what);
    };
    require(c.dFeatureRadius > 0.0, "dFeatureRadius", "greater than 0");
    require(c.uiNumPolygonVertices >= 3, "uiNumPolygonVertices", "at least 3");
    require(c.uiNumNeighbors >= 1, "uiNumNeighbors", "at least 1");
    require(c.uiMinCurvatureQuality <= 100, "uiMinCurvatureQuality", "at most 100");
    require(c.icpConfig.uiNumSamples >= 1, "icpConfig.uiNumSamples", "at least 1");
}

} // namespace prereg
