#include "VoAlgorithms/clustering/cdisjointsets.h"

#include <limits>
#include <stdexcept>
#include <string>

namespace VoAlgo {
namespace {

std::size_t Checked(std::size_t n)
{
    if (n > std::numeric_limits<std::int32_t>::max())
        throw std::length_error("CDisjointSets: " + std::to_string(n) + " elements; at most 2147483647 are possible");
    return n;
}

} // namespace

CDisjointSets::CDisjointSets(std::size_t n) : links_(Checked(n), -1), numSets_(n) {}

void CDisjointSets::throwOutOfRange(std::size_t i) const
{
    throw std::out_of_range("CDisjointSets: element " + std::to_string(i) + " of " + std::to_string(links_.size()));
}

std::vector<std::uint32_t> CDisjointSets::GetRepresentatives()
{
    std::vector<std::uint32_t> representatives;
    representatives.reserve(numSets_);
    std::vector<bool> isListed(Size());
    for (std::size_t i = 0; i < Size(); ++i) {
        const std::uint32_t representative = Find(i);
        if (isListed[representative]) continue;
        isListed[representative] = true;
        representatives.push_back(representative);
    }
    return representatives;
}

CDisjointSets::Groups CDisjointSets::GetGroups()
{
    const std::vector<std::uint32_t> representatives = GetRepresentatives();
    Groups groups{std::vector<std::uint32_t>(Size()), std::vector<std::uint32_t>(Size()), {0}};
    groups.begin.reserve(numSets_ + 1);
    for (std::uint32_t set = 0; set < representatives.size(); ++set) {
        groups.setOf[representatives[set]] = set;
        groups.begin.push_back(groups.begin.back() + SizeOf(representatives[set]));
    }
    // A representative's own number is written already and does not change.
    std::vector<std::size_t> next(groups.begin.begin(), groups.begin.end() - 1);
    for (std::uint32_t i = 0; i < Size(); ++i) {
        groups.setOf[i] = groups.setOf[Find(i)];
        groups.members[next[groups.setOf[i]]++] = i;
    }
    return groups;
}

} // namespace VoAlgo
