// Hash maps beside those of the standard library and, where its headers are installed, Boost: time per element.
#include "VoAlgorithms/clustering/thashmap.h"

#include "bench_data.h"

#if __has_include(<boost/unordered_map.hpp>)
#include <boost/unordered_map.hpp>
#endif

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <random>
#include <unordered_map>
#include <vector>

namespace {

using Key = std::uint64_t;
using Ours = VoAlgo::THashMap<Key, std::uint64_t>;

bool Has(const Ours& map, Key key)
{
    return map.Find(key) != nullptr;
}
void Remove(Ours& map, Key key)
{
    map.Erase(key);
}
template <class Map>
bool Has(const Map& map, Key key)
{
    return map.find(key) != map.end();
}
template <class Map>
void Remove(Map& map, Key key)
{
    map.erase(key);
}

/// n different keys: the numbers up to n, or numbers without any order.
std::vector<Key> Keys(std::size_t n, bool isRandom)
{
    std::mt19937_64 engine(1);
    std::vector<Key> keys(n);
    for (std::size_t i = 0; i < n; ++i) keys[i] = isRandom ? engine() : i;
    return keys;
}

template <class Map>
void Fill(Map& map, const std::vector<Key>& keys)
{
    for (const Key key : keys) map[key] = key;
}

enum Action { Insert, Find, Miss, Iterate, Erase };

/// Every action runs over all keys; finding and erasing go through them in another order than they were inserted.
template <class Map, Action Kind>
void BM_Map(benchmark::State& state)
{
    const auto n = static_cast<std::size_t>(state.range(0));
    const std::vector<Key> keys = Keys(n, state.range(1) != 0);
    std::vector<Key> shuffled = keys;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937_64(2));
    const std::size_t maps = std::max<std::size_t>(1, 100'000 / n); // so that the clock is read rarely
    std::vector<Map> filled(Kind == Insert || Kind == Erase ? maps : 1);
    if (Kind != Insert && Kind != Erase) Fill(filled[0], keys);
    std::uint64_t sum = 0;
    for (auto _ : state) {
        if constexpr (Kind == Insert || Kind == Erase)
            for (Map& map : filled) {
                map = Map();
                if (Kind == Erase) Fill(map, keys);
            }
        const std::clock_t start = std::clock(); // of the processor: the machine may be busy with other work
        for (std::size_t i = 0; i < maps; ++i) {
            Map& map = filled[i % filled.size()];
            if constexpr (Kind == Insert) Fill(map, keys);
            if constexpr (Kind == Find)
                for (const Key key : shuffled) sum += Has(map, key);
            if constexpr (Kind == Miss)
                for (const Key key : shuffled) sum += Has(map, ~key);
            if constexpr (Kind == Iterate)
                for (const auto& [key, value] : map) sum += value;
            if constexpr (Kind == Erase)
                for (const Key key : shuffled) Remove(map, key);
        }
        state.SetIterationTime(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    benchmark::DoNotOptimize(sum);
    state.counters["element"] = bench::PerUnit(static_cast<double>(maps * n));
}

void Sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"n", "random"})->UseManualTime()->Unit(benchmark::kMillisecond);
    for (const int isRandom : {1, 0})
        for (const int n : {1'000, 10'000, 100'000, 1'000'000, 10'000'000}) benchmark->Args({n, isRandom});
}

#define VOALGO_BENCH_MAP(Map)                                                                                          \
    BENCHMARK_TEMPLATE(BM_Map, Map, Insert)->Apply(Sizes);                                                             \
    BENCHMARK_TEMPLATE(BM_Map, Map, Find)->Apply(Sizes);                                                               \
    BENCHMARK_TEMPLATE(BM_Map, Map, Miss)->Apply(Sizes);                                                               \
    BENCHMARK_TEMPLATE(BM_Map, Map, Iterate)->Apply(Sizes);                                                            \
    BENCHMARK_TEMPLATE(BM_Map, Map, Erase)->Apply(Sizes)

using Standard = std::unordered_map<Key, std::uint64_t>;
VOALGO_BENCH_MAP(Ours);
VOALGO_BENCH_MAP(Standard);
#if __has_include(<boost/unordered_map.hpp>)
using Boost = boost::unordered_map<Key, std::uint64_t>;
VOALGO_BENCH_MAP(Boost);
#endif

} // namespace
