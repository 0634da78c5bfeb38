#pragma once

#include "VoAlgorithms/clustering/thashmap.h"

#include <cstddef>

namespace VoAlgo {

/// Set of keys that never move, with the storage, the order of a walk, the promises and the errors of THashMap.
template <class Key, class Hash = THash<Key>, class Compare = TKeyCompare<Key>>
class THashSet {
public:
    /// Number of keys.
    [[nodiscard]] std::size_t Size() const { return map_.Size(); }
    /// Whether there is no key.
    [[nodiscard]] bool Empty() const { return map_.Empty(); }
    /// Whether the key is there.
    [[nodiscard]] bool Contains(const Key& key) const { return map_.Find(key) != nullptr; }
    /// Adds a key; whether it is new.
    bool Insert(const Key& key) { return map_.Insert(key, {}).second; }
    /// Whether there was such a key.
    bool Erase(const Key& key) { return map_.Erase(key); }
    /// Erases the keys for which condition(key) holds; returns their number.
    template <class Condition>
    std::size_t EraseIf(const Condition& condition)
    {
        return map_.EraseIf([&](const Key& key, Nothing) { return condition(key); });
    }
    /// Gives back all memory.
    void Clear() { map_.Clear(); }
    /// Exchanges all keys; references to them stay valid.
    void Swap(THashSet& other) noexcept { map_.Swap(other.map_); }

    /// Calls visit(key) for every key, in the order of their insertion.
    template <class Visit>
    void ForEach(const Visit& visit) const
    {
        map_.ForEach([&](const Key& key, Nothing) { visit(key); });
    }

private:
    struct Nothing {};
    THashMap<Key, Nothing, Hash, Compare> map_;
};

} // namespace VoAlgo
