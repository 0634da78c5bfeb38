#include "VoAlgorithms/clustering/cdisjointsets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using VoAlgo::CDisjointSets;

/// Holds everything against labels: the smallest member of each element's set.
void ExpectSets(CDisjointSets& sets, const std::vector<std::uint32_t>& labels)
{
    std::vector<std::vector<std::uint32_t>> expected(labels.size());
    for (std::uint32_t i = 0; i < labels.size(); ++i) expected[labels[i]].push_back(i);
    for (std::size_t i = 0; i < labels.size(); ++i) ASSERT_EQ(sets.SizeOf(i), expected[labels[i]].size());
    std::erase_if(expected, [](const auto& members) { return members.empty(); });

    const CDisjointSets::Groups groups = sets.GetGroups();
    const std::vector<std::uint32_t> representatives = sets.GetRepresentatives();
    ASSERT_EQ(sets.NumSets(), expected.size());
    ASSERT_EQ(groups.Size(), expected.size());
    ASSERT_EQ(representatives.size(), expected.size());
    for (std::size_t s = 0; s < expected.size(); ++s) {
        ASSERT_TRUE(std::ranges::equal(groups[s], expected[s]));
        for (const std::uint32_t i : expected[s]) {
            ASSERT_EQ(groups.setOf[i], s);
            ASSERT_EQ(sets.Find(i), representatives[s]);
        }
    }
}

// Lost links, wrong sizes, sets numbered by representative instead of smallest member.
TEST(CDisjointSets, EqualsRelabelling)
{
    for (unsigned seed = 0; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 engine(seed);
        const auto below = [&engine](std::uint32_t n) { return static_cast<std::uint32_t>(engine() % n); };
        const std::uint32_t n = seed < 4 ? seed : 1 + below(60);
        CDisjointSets sets(n);
        std::vector<std::uint32_t> labels(n);
        for (std::uint32_t i = 0; i < n; ++i) labels[i] = i;
        ExpectSets(sets, labels);
        for (unsigned union_ = 0; n > 0 && union_ < n; ++union_) {
            const std::uint32_t a = below(n), b = below(n);
            const std::uint32_t low = std::min(labels[a], labels[b]), high = std::max(labels[a], labels[b]);
            ASSERT_EQ(sets.AreTogether(a, b), low == high);
            ASSERT_EQ(sets.Unite(a, b), low != high);
            std::replace(labels.begin(), labels.end(), high, low);
            if (union_ % 8 == 0) ExpectSets(sets, labels);
        }
        ExpectSets(sets, labels);
    }
}

// Without union by size, or without shortening, these unions and look-ups take hours.
TEST(CDisjointSets, HostileOrdersStayFast)
{
    constexpr std::uint32_t N = 2'000'000;
    for (const bool isUpwards : {true, false}) {
        CDisjointSets sets(N);
        for (std::uint32_t k = 0; k + 1 < N; ++k) {
            const std::uint32_t i = isUpwards ? k : N - 2 - k;
            ASSERT_TRUE(sets.Unite(i + 1, i));
            ASSERT_EQ(sets.Find(0) == sets.Find(N - 1), k + 2 == N);
        }
        EXPECT_EQ(sets.SizeOf(N / 2), N);
    }
}

TEST(CDisjointSets, RefusesWrongUse)
{
    CDisjointSets sets(3);
    EXPECT_THROW(sets.Unite(0, 3), std::out_of_range);
    EXPECT_THROW((void)sets.SizeOf(std::size_t{1} << 32), std::out_of_range); // is no 0
    EXPECT_THROW(CDisjointSets(std::size_t{1} << 31), std::length_error);
    EXPECT_EQ(sets.NumSets(), 3);
    try {
        (void)sets.Find(7);
        FAIL();
    } catch (const std::out_of_range& error) {
        EXPECT_EQ(std::string(error.what()), "CDisjointSets: element 7 of 3");
    }
}

} // namespace
