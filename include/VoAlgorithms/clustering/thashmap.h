#pragma once

#include "VoAlgorithms/export.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <set>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace VoAlgo {

/// Thrown when the pool of a hash container cannot allocate; the message names the pool's type.
class VOALGO_API CbException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A pool of storage for elements of one size, allocated in blocks of 16 elements and aligned for any type up to 16
/// bytes. Freed elements are used again; the blocks are given back with the pool.
class CbPlexManager {
public:
    /// Elements allocated at a time.
    static constexpr std::size_t BlockElements = 16;

    /// elementSize: bytes of one element, rounded up to a multiple of 16; nothing is allocated yet.
    explicit CbPlexManager(std::size_t elementSize)
        : elementSize_((elementSize + Alignment - 1) / Alignment * Alignment)
    {
    }
    CbPlexManager(const CbPlexManager&) = delete;
    /// The new pool has the blocks, the old one none.
    CbPlexManager(CbPlexManager&& other) noexcept : elementSize_(other.elementSize_) { Swap(other); }
    CbPlexManager& operator=(const CbPlexManager&) = delete;
    /// Exchanges the blocks; the old ones go with `other`.
    CbPlexManager& operator=(CbPlexManager&& other) noexcept
    {
        Swap(other);
        return *this;
    }
    ~CbPlexManager()
    {
        while (blocks_ != nullptr)
            ::operator delete (std::exchange(blocks_, blocks_->next), std::align_val_t{Alignment});
    }

    /// Storage of one element, uninitialised. Throws CbException.
    void* Allocate()
    {
        if (free_ == nullptr) addBlock();
        return std::exchange(free_, free_->next);
    }
    /// Takes back an element of this pool; its destructor is not run.
    void Free(void* element) noexcept { free_ = new (element) Link{free_}; }

    /// Exchanges element size and storage.
    void Swap(CbPlexManager& other) noexcept
    {
        std::swap(elementSize_, other.elementSize_);
        std::swap(blocks_, other.blocks_);
        std::swap(free_, other.free_);
    }

private:
    static constexpr std::size_t Alignment = 16;
    struct Link {
        Link* next;
    };

    void addBlock()
    {
        // A block starts with the link to the block before it.
        constexpr std::size_t Most = (std::numeric_limits<std::size_t>::max() - Alignment) / BlockElements;
        void* memory =
            elementSize_ == 0 || elementSize_ > Most
                ? nullptr
                : ::operator new (Alignment + BlockElements * elementSize_, std::align_val_t{Alignment}, std::nothrow);
        if (memory == nullptr) throw CbException("CbPlexManager: memory allocation failed");
        blocks_ = new (memory) Link{blocks_};
        for (std::size_t i = BlockElements; i-- > 0;)
            Free(static_cast<unsigned char*>(memory) + Alignment + i * elementSize_);
    }

    std::size_t elementSize_;
    Link* blocks_ = nullptr;
    Link* free_ = nullptr;
};

/// The hash of the standard library with all but its four lowest bits mixed: integers in any regular spacing spread
/// evenly, and those that follow each other lie side by side.
template <class Key>
struct THash {
    /// 32 evenly spread bits.
    std::uint32_t operator()(const Key& key) const
    {
        const auto h = static_cast<std::uint64_t>(std::hash<Key>()(key));
        const std::uint64_t mixed = ((h >> 4) ^ (h >> 36)) * 0xD6E8FEB86659FD93ULL;
        return static_cast<std::uint32_t>(mixed >> 36 << 4 | (h & 15));
    }
};

/// Equality of keys and, for types that have one, their order.
template <class Key>
struct TKeyCompare {
    /// a == b.
    bool operator()(const Key& a, const Key& b) const { return a == b; }
    /// Whether a comes before b.
    bool IsBefore(const Key& a, const Key& b) const requires std::totally_ordered<Key>
    {
        return std::compare_weak_order_fallback(a, b) < 0;
    }
};

/// Hash map with chained elements out of a block pool. Elements never move: references to them stay valid until they
/// are erased. A walk meets them in the order of their insertion. Expected constant time a call.
///
/// Hash gives 32 evenly spread bits, of which the lowest four choose among neighbouring buckets; Compare tells whether
/// two keys are the same. A Compare that also has IsBefore(a, b), a strict weak order in which exactly the same keys
/// have none before the other, keeps the time of a call within O(log n) whatever the keys and however bad the hash:
/// when a chain is full, further elements of its bucket go into a balanced tree. Without IsBefore, keys of one hash
/// cost time proportional to their number. A key that does not equal itself, such as NaN, is never found.
///
/// Throws CbException when the pool cannot allocate; a call that throws changes nothing, EraseIf excepted.
template <class Key, class Value, class Hash = THash<Key>, class Compare = TKeyCompare<Key>>
class THashMap {
    struct Element;
    template <class Reference>
    class TIterator;

public:
    /// What a walk meets.
    struct Entry {
        const Key key;                     ///< fixed
        [[no_unique_address]] Value value; ///< free to change
    };
    /// Forward iterator; valid until an element is added or erased.
    using Iterator = TIterator<Entry&>;
    /// The same over elements that may not change.
    using ConstIterator = TIterator<const Entry&>;

    /// Empty; allocates nothing.
    THashMap() = default;
    ///@{
    /// A copy has its own elements and is walked in the same order; a moved-from map is empty.
    THashMap(const THashMap& other) : THashMap()
    {
        buckets_.resize(other.buckets_.size(), nullptr);
        order_.reserve(other.size_);
        for (const auto& [key, value] : other) add(Hash()(key), key, value);
    }
    THashMap(THashMap&& other) noexcept { Swap(other); }
    THashMap& operator=(const THashMap& other)
    {
        THashMap(other).Swap(*this);
        return *this;
    }
    THashMap& operator=(THashMap&& other) noexcept
    {
        THashMap(std::move(other)).Swap(*this);
        return *this;
    }
    ///@}
    ~THashMap()
    {
        if constexpr (!std::is_trivially_destructible_v<Element>)
            for (Element* e : order_)
                if (e != nullptr) e->~Element();
    }

    /// Number of elements.
    [[nodiscard]] std::size_t Size() const { return size_; }
    /// Whether there is no element.
    [[nodiscard]] bool Empty() const { return size_ == 0; }
    /// Number of hash chains; grows fourfold when there are as many elements.
    [[nodiscard]] std::size_t NumBuckets() const { return buckets_.empty() ? InitialBuckets : buckets_.size(); }

    ///@{
    /// The value of the key, null when there is none.
    [[nodiscard]] Value* Find(const Key& key) { return valueOf(find(key, Hash()(key))); }
    [[nodiscard]] const Value* Find(const Key& key) const { return valueOf(find(key, Hash()(key))); }
    ///@}

    /// The value of the key; a new one is Value().
    Value& operator[](const Key& key)
    {
        const std::uint32_t hash = Hash()(key);
        if (Element* found = find(key, hash)) return found->entry.value;
        return add(hash, key)->entry.value;
    }
    /// Adds a key with its value unless there is one; the value that the map then has, and whether it is new.
    std::pair<Value*, bool> Insert(const Key& key, Value value)
    {
        const std::uint32_t hash = Hash()(key);
        if (Element* found = find(key, hash)) return {&found->entry.value, false};
        return {&add(hash, key, std::move(value))->entry.value, true};
    }

    /// Erases the elements for which condition(key, value) holds, which may change the values; returns their number.
    template <class Condition>
    std::size_t EraseIf(const Condition& condition)
    {
        const std::size_t before = size_;
        for (std::size_t i = 0; i < order_.size(); ++i)
            if (Element* e = order_[i]; e != nullptr && condition(std::as_const(e->entry.key), e->entry.value))
                remove(e);
        closeGaps();
        return before - size_;
    }
    /// Whether there was such an element.
    bool Erase(const Key& key)
    {
        Element* found = find(key, Hash()(key));
        if (found == nullptr) return false;
        remove(found);
        closeGaps();
        return true;
    }
    /// Gives back all memory.
    void Clear() { *this = THashMap(); }

    ///@{
    /// Calls visit(key, value) for every element.
    template <class Visit>
    void ForEach(const Visit& visit)
    {
        for (auto& [key, value] : *this) visit(key, value);
    }
    template <class Visit>
    void ForEach(const Visit& visit) const
    {
        for (auto& [key, value] : *this) visit(key, value);
    }
    ///@}
    ///@{
    /// The walk as a range of Entry.
    [[nodiscard]] Iterator begin() { return {order_.data(), order_.data() + order_.size()}; }
    [[nodiscard]] Iterator end() { return {order_.data() + order_.size(), order_.data() + order_.size()}; }
    [[nodiscard]] ConstIterator begin() const { return {order_.data(), order_.data() + order_.size()}; }
    [[nodiscard]] ConstIterator end() const { return {order_.data() + order_.size(), order_.data() + order_.size()}; }
    ///@}

    /// Exchanges all elements; references to them stay valid.
    void Swap(THashMap& other) noexcept
    {
        buckets_.swap(other.buckets_);
        overflow_.swap(other.overflow_);
        order_.swap(other.order_);
        pool_.Swap(other.pool_);
        std::swap(size_, other.size_);
    }

private:
    static constexpr std::size_t InitialBuckets = 17;
    // Evenly spread, one chain in 10¹⁵ would get longer.
    static constexpr std::size_t FullChain = 16;
    static constexpr bool IsOrdered = requires(const Compare& compare, const Key& key)
    {
        {
            compare.IsBefore(key, key)
            } -> std::convertible_to<bool>;
    };

    struct Element {
        Element* next; // in the chain; itself in the overflow
        std::uint32_t hash;
        std::uint32_t place; // in the order
        Entry entry;
    };
    static_assert(alignof(Element) <= 16);

    template <class Reference>
    class TIterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using reference = Reference;
        using pointer = std::remove_reference_t<Reference>*;

        TIterator() = default;
        TIterator(Element* const* at, Element* const* end) : at_(at), end_(end) { skipGaps(); }
        Reference operator*() const { return (*at_)->entry; }
        pointer operator->() const { return &(*at_)->entry; }
        TIterator& operator++()
        {
            ++at_;
            skipGaps();
            return *this;
        }
        TIterator operator++(int)
        {
            const TIterator old = *this;
            ++*this;
            return old;
        }
        bool operator==(const TIterator&) const = default;

    private:
        void skipGaps()
        {
            while (at_ != end_ && *at_ == nullptr) ++at_;
        }

        Element* const* at_ = nullptr;
        Element* const* end_ = nullptr;
    };

    /// What the overflow is ordered by.
    struct Rank {
        std::uint32_t hash;
        const Key& key;
        std::uint32_t place; // tells keys apart that do not equal themselves

        Rank(std::uint32_t h, const Key& k) : hash(h), key(k), place(0) {}
        Rank(const Element* e) : hash(e->hash), key(e->entry.key), place(e->place) {} // NOLINT
    };
    struct ByRank {
        using is_transparent = void;

        bool operator()(const Rank& a, const Rank& b) const
        {
            if (a.hash != b.hash) return a.hash < b.hash;
            if (Compare().IsBefore(a.key, b.key)) return true;
            return a.place < b.place && !Compare().IsBefore(b.key, a.key);
        }
    };

    static Value* valueOf(Element* e) { return e == nullptr ? nullptr : &e->entry.value; }

    [[nodiscard]] std::size_t bucketOf(std::uint32_t hash) const
    {
        return static_cast<std::size_t>((hash >> 4) * static_cast<std::uint64_t>(buckets_.size() - 15) >> 28) +
               (hash & 15);
    }

    [[nodiscard]] Element* find(const Key& key, std::uint32_t hash) const
    {
        if (buckets_.empty()) return nullptr;
        const auto isIt = [&](const Element* e) { return e->hash == hash && Compare()(e->entry.key, key); };
        for (Element* e = buckets_[bucketOf(hash)]; e != nullptr; e = e->next)
            if (isIt(e)) return e;
        if constexpr (IsOrdered) {
            if (overflow_.empty()) return nullptr;
            const auto found = overflow_.lower_bound(Rank(hash, key));
            if (found != overflow_.end() && isIt(*found)) return *found;
        }
        return nullptr;
    }

    /// Adds an element whose key is new; without a value, one with Value().
    template <class... Values>
    Element* add(std::uint32_t hash, const Key& key, Values&&... value)
    {
        if (size_ >= buckets_.size()) grow();
        if (order_.size() > std::numeric_limits<std::uint32_t>::max()) throw CbException("THashMap: too many elements");
        order_.push_back(nullptr);
        void* memory = nullptr;
        Element* e = nullptr;
        try {
            memory = pool_.Allocate();
            const auto place = static_cast<std::uint32_t>(order_.size() - 1);
            e = new (memory) Element{nullptr, hash, place, {key, Value(std::forward<Values>(value)...)}};
            putIntoBucket(e);
        } catch (...) {
            order_.pop_back();
            if (e != nullptr) e->~Element();
            if (memory != nullptr) pool_.Free(memory);
            throw;
        }
        order_.back() = e;
        ++size_;
        return e;
    }

    void putIntoBucket(Element* e)
    {
        Element*& head = buckets_[bucketOf(e->hash)];
        if constexpr (IsOrdered) {
            std::size_t length = 0;
            for (const Element* other = head; other != nullptr; other = other->next) ++length;
            if (length >= FullChain) {
                overflow_.insert(e);
                e->next = e;
                return;
            }
        }
        e->next = std::exchange(head, e);
    }

    /// What is in the overflow stays there. A new chain takes from at most two old ones.
    void grow()
    {
        std::vector<Element*>(buckets_.empty() ? InitialBuckets : 4 * buckets_.size() + 1, nullptr).swap(buckets_);
        for (Element* e : order_)
            if (e != nullptr && e->next != e) e->next = std::exchange(buckets_[bucketOf(e->hash)], e);
    }

    void remove(Element* e) noexcept
    {
        if (e->next != e) {
            Element** link = &buckets_[bucketOf(e->hash)];
            while (*link != e) link = &(*link)->next;
            *link = e->next;
        } else if constexpr (IsOrdered) {
            overflow_.erase(e);
        }
        order_[e->place] = nullptr;
        e->~Element();
        pool_.Free(e);
        --size_;
    }

    /// Keeps a walk proportional to the number of elements.
    void closeGaps() noexcept
    {
        if (order_.size() <= 2 * size_ + InitialBuckets) return;
        std::uint32_t place = 0;
        for (Element* e : order_)
            if (e != nullptr) order_[e->place = place++] = e;
        order_.resize(size_);
    }

    std::vector<Element*> buckets_;       // empty until the first element comes
    std::set<Element*, ByRank> overflow_; // elements whose chain is full
    std::vector<Element*> order_;         // of insertion; null where an element was erased
    CbPlexManager pool_{sizeof(Element)};
    std::size_t size_ = 0;
};

} // namespace VoAlgo
