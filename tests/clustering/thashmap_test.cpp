#include "VoAlgorithms/clustering/thashset.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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

// Against a list in order of insertion. Hostile: all keys have one hash, and chains overflow.
template <class Map>
void CompareWithAList(int numKeys)
{
    std::mt19937 engine(2);
    Map map;
    std::list<std::pair<int, int>> expected;
    std::map<int, const int*> addresses;
    for (int step = 0; step < 30000; ++step) {
        const auto key = static_cast<int>(engine() % static_cast<unsigned>(numKeys));
        const auto place =
            std::find_if(expected.begin(), expected.end(), [&](const auto& e) { return e.first == key; });
        const bool isThere = place != expected.end();
        if (step / 3000 % 2 == 0 ? engine() % 4 == 0 : engine() % 4 != 0) { // grows and shrinks
            ASSERT_EQ(map.Erase(key), isThere);
            if (isThere) expected.erase(place);
        } else {
            const auto [value, isNew] = map.Insert(key, step);
            ASSERT_EQ(isNew, !isThere);
            if (isNew) {
                expected.emplace_back(key, step);
                addresses[key] = value;
            }
        }
        const int* found = std::as_const(map).Find(key);
        const bool isExpected =
            std::any_of(expected.begin(), expected.end(), [&](const auto& e) { return e.first == key; });
        ASSERT_EQ(found != nullptr, isExpected);
        ASSERT_TRUE(found == nullptr || found == addresses[key]) << "moved";
        if (step % 500 == 0) {
            Map copy = map;
            if (step % 1000 == 0) {
                const auto isOdd = [](int k, int) { return k % 2 != 0; };
                ASSERT_EQ(copy.EraseIf(isOdd), map.EraseIf(isOdd));
                std::erase_if(expected, [&](const auto& e) { return isOdd(e.first, 0); });
            }
            for (Map* walked : {&map, &copy}) {
                std::list<std::pair<int, int>> walk;
                for (const auto& [k, v] : *walked) walk.emplace_back(k, v);
                ASSERT_EQ(walk, expected);
            }
        }
    }
}
struct OneHash {
    std::uint32_t operator()(int) const { return 0xFFFFFFFF; }
};

TEST(THashMap, WalksInTheOrderOfInsertionAndNeverMoves)
{
    CompareWithAList<VoAlgo::THashMap<int, int>>(300);
    CompareWithAList<VoAlgo::THashMap<int, int, OneHash>>(300);
    CompareWithAList<VoAlgo::THashMap<int, int, OneHash, Compare>>(60);
}

struct Counted {
    int value;
    static inline std::size_t comparisons = 0;
    bool operator==(const Counted& other) const { return ++comparisons, value == other.value; }
    auto operator<=>(const Counted& other) const { return ++comparisons, value <=> other.value; }
};
template <std::uint32_t Spread>
struct Collide { // few hashes, close together: every bucket but a few stays empty, however the table grows
    std::uint32_t operator()(const Counted& key) const { return static_cast<std::uint32_t>(key.value) % Spread; }
};

template <class Map>
double ComparisonsPerCall()
{
    constexpr int NumKeys = 20000;
    Map map;
    Counted::comparisons = 0;
    for (int i = 0; i < NumKeys; ++i) map[Counted{i * 7919 % NumKeys}] = i;
    for (int i = 0; i < NumKeys; ++i) EXPECT_NE(map.Find(Counted{i}), nullptr);
    for (int i = 0; i < NumKeys; ++i) EXPECT_TRUE(map.Erase(Counted{i}));
    EXPECT_TRUE(map.Empty());
    return static_cast<double>(Counted::comparisons) / (3 * NumKeys);
}

TEST(THashMap, HostileKeysCostALogarithm)
{
    EXPECT_LT((ComparisonsPerCall<VoAlgo::THashMap<Counted, int, Collide<1>>>()), 100.0);
    EXPECT_LT((ComparisonsPerCall<VoAlgo::THashMap<Counted, int, Collide<50>>>()), 100.0);

    VoAlgo::THashMap<double, int> odd; // NaN is never found, but counted, walked and erased
    for (int i = 0; i < 1000; ++i) odd[i % 2 == 0 ? std::nan("") : static_cast<double>(i)] = i;
    EXPECT_EQ(odd.Size(), 1000U);
    EXPECT_EQ(odd.Find(std::nan("")), nullptr);
    EXPECT_EQ(*odd.Find(501.0), 501);
    EXPECT_EQ(odd.EraseIf([](double key, int value) { return std::isnan(key) && value % 4 == 0; }), 250U);
    EXPECT_EQ(odd.EraseIf([](double, int) { return true; }), 750U);
}

TEST(THashMap, RegularKeysFillTheBucketsEvenly)
{
    for (const std::uint64_t step : {1ULL, 3ULL, 16ULL, 1000ULL, 1ULL << 20, 1ULL << 32, 1ULL << 44}) {
        std::vector<int> load(1024);
        for (std::uint64_t i = 0; i < 1024 * 16; ++i) ++load[VoAlgo::THash<std::uint64_t>()(i * step) >> 22];
        EXPECT_LT(*std::max_element(load.begin(), load.end()), 80) << step;
    }
}

// The element that could not be made leaves nothing behind.
TEST(THashMap, AThrowingValueChangesNothing)
{
    struct Bomb {
        std::shared_ptr<int> held;
        explicit Bomb(std::shared_ptr<int> h) : held(std::move(h)) {}
        Bomb(const Bomb& other) : held(other.held)
        {
            if (*held == 13) throw std::runtime_error("13");
        }
    };
    VoAlgo::THashMap<int, Bomb> map;
    for (int i = 0; i < 40; ++i) {
        Bomb bomb(std::make_shared<int>(i));
        if (i != 13) map.Insert(i, bomb);
    }
    *map.Find(20)->held = 13;
    EXPECT_THROW((void)decltype(map)(map), std::runtime_error);
    const auto thirteen = std::make_shared<int>(12);
    EXPECT_THROW(
        {
            Bomb bomb(thirteen);
            *thirteen = 13;
            map.Insert(13, bomb);
        },
        std::runtime_error);
    EXPECT_EQ(map.Find(13), nullptr);
    EXPECT_EQ(map.Size(), 39U);
}

TEST(THashSet, HoldsEachKeyOnceInOrder)
{
    VoAlgo::THashSet<std::string> set;
    for (const char* word : {"fix", "flt", "fix", "pose"}) set.Insert(word);
    EXPECT_FALSE(set.Insert("pose"));
    EXPECT_TRUE(set.Erase("fix"));
    EXPECT_TRUE(set.Insert("fix"));
    EXPECT_TRUE(set.Contains("flt"));
    EXPECT_FALSE(set.Contains("scan"));
    std::string walk;
    set.ForEach([&](const std::string& key) { walk += key + ' '; });
    EXPECT_EQ(walk, "flt pose fix ");
    EXPECT_EQ(set.EraseIf([](const std::string& key) { return key[0] == 'f'; }), 2U);
    EXPECT_EQ(set.Size(), 1U);
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
