#include "VoAlgorithms/clustering/thashmap.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <string>

namespace {

using VoAlgo::CbException;
using VoAlgo::CbPlexManager;

// Only 64 hashes, so that chains are long.
struct Hash {
    std::uint32_t operator()(int key) const { return static_cast<std::uint32_t>(key & 63) << 26; }
};
struct Compare {
    bool operator()(int a, int b) const { return a == b; }
};
using Map = VoAlgo::THashMap<int, std::string, Hash, Compare>; // leaks and double frees show under sanitizers

std::map<int, std::string> Content(Map& map)
{
    std::map<int, std::string> content;
    map.ForEach([&](int key, std::string& value) { EXPECT_TRUE(content.emplace(key, value).second); });
    EXPECT_EQ(content.size(), map.Size());
    return content;
}

std::string ValueOf(int key)
{
    return std::string(30, 'x') + std::to_string(key);
}

TEST(THashMap, BehavesLikeAnOrderedMap)
{
    std::mt19937 engine(1);
    Map map;
    EXPECT_EQ(map.NumBuckets(), 17U);
    std::map<int, std::string> expected;
    for (int step = 0; step < 20000; ++step) {
        const auto key = static_cast<int>(engine() % 700);
        if (const auto action = engine() % 4; action == 0) {
            ASSERT_EQ(map.Erase(key), expected.erase(key) == 1);
        } else if (action == 1) {
            const std::string* found = map.Find(key);
            ASSERT_EQ(found != nullptr, expected.contains(key));
            ASSERT_TRUE(found == nullptr || *found == expected[key]);
        } else {
            std::string& value = map[key];
            ASSERT_EQ(value, expected[key]);
            value = expected[key] = ValueOf(step);
        }
        ASSERT_EQ(map.Size(), expected.size());
    }
    EXPECT_GT(map.NumBuckets(), 17U);
    EXPECT_EQ(Content(map), expected);

    const std::size_t erased = map.EraseIf([](int key, const std::string&) { return key % 3 != 0; });
    EXPECT_EQ(erased, std::erase_if(expected, [](const auto& entry) { return entry.first % 3 != 0; }));
    EXPECT_EQ(Content(map), expected);
    map.Clear();
    EXPECT_TRUE(map.Empty());
    EXPECT_EQ(map.NumBuckets(), 17U);
    EXPECT_EQ(map.Find(3), nullptr);
}

TEST(THashMap, CopiesAreIndependentAndKeepTheOrderOfTheWalk)
{
    Map map;
    for (int key = 0; key < 100; ++key) map[key * 7] = ValueOf(key);
    Map copy = map;
    std::string walks[2];
    map.ForEach([&](int, std::string& value) { walks[0] += value; });
    copy.ForEach([&](int, std::string& value) { walks[1] += value; });
    EXPECT_EQ(walks[0], walks[1]);

    const auto content = Content(map);
    copy[7] = "changed";
    copy.Erase(14);
    EXPECT_EQ(Content(map), content);
    Map moved = std::move(map);
    EXPECT_EQ(Content(moved), content);
    map = copy; // a moved-from map can be used again
    moved = std::move(copy);
    EXPECT_EQ(Content(moved), Content(map));
    EXPECT_EQ(map[7], "changed");
}

TEST(CbPlexManager, ReusesElementsAndNamesItselfWhenMemoryEnds)
{
    CbPlexManager pool(24);
    void* first = pool.Allocate();
    void* second = pool.Allocate();
    EXPECT_GE(static_cast<char*>(second) - static_cast<char*>(first), 24);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(second) % 16, 0U);
    pool.Free(first);
    EXPECT_EQ(pool.Allocate(), first);

    using Limits = std::numeric_limits<std::size_t>;
    for (const std::size_t size : {Limits::max() / 16, Limits::max()})
        EXPECT_THAT([size] { CbPlexManager(size).Allocate(); },
                    testing::ThrowsMessage<CbException>(testing::HasSubstr("CbPlexManager")));
}

} // namespace
