#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
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

/// Hash map with chained elements out of a block pool. Hash gives 32 evenly spread bits, Compare tells whether two keys
/// are the same. Elements never move: pointers to values stay valid until the element is erased. The order of a walk
/// depends only on the operations so far, not on addresses. Throws CbException when the pool cannot allocate.
template <class Key, class Value, class Hash, class Compare>
class THashMap {
public:
    /// Empty; allocates nothing.
    THashMap() = default;
    ///@{
    /// A copy has its own elements and is walked in the same order; a moved-from map is empty.
    THashMap(const THashMap& other) : buckets_(other.buckets_.size(), nullptr)
    {
        try {
            for (std::size_t b = 0; b < buckets_.size(); ++b) copyChain(other.buckets_[b], &buckets_[b]);
        } catch (...) {
            destroyElements();
            throw;
        }
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
    ~THashMap() { destroyElements(); }

    /// Number of elements.
    [[nodiscard]] std::size_t Size() const { return size_; }
    /// Whether there is no element.
    [[nodiscard]] bool Empty() const { return size_ == 0; }
    /// Number of hash chains; grows fourfold when there are as many elements.
    [[nodiscard]] std::size_t NumBuckets() const { return buckets_.empty() ? InitialBuckets : buckets_.size(); }

    ///@{
    /// The value of the key, null when there is none.
    [[nodiscard]] Value* Find(const Key& key) { return find(key, Hash()(key)); }
    [[nodiscard]] const Value* Find(const Key& key) const { return find(key, Hash()(key)); }
    ///@}

    /// The value of the key; a new one is Value().
    Value& operator[](const Key& key)
    {
        const std::uint32_t hash = Hash()(key);
        if (Value* found = find(key, hash)) return *found;
        if (size_ >= buckets_.size()) grow();
        Element*& head = buckets_[bucketOf(hash)];
        void* memory = pool_.Allocate();
        try {
            head = new (memory) Element{key, Value(), hash, head};
        } catch (...) {
            pool_.Free(memory);
            throw;
        }
        ++size_;
        return head->value;
    }

    /// Erases the elements for which condition(key, value) holds, which may change the values; returns their number.
    template <class Condition>
    std::size_t EraseIf(const Condition& condition)
    {
        const std::size_t before = size_;
        for (Element*& head : buckets_) eraseInChain(&head, condition);
        return before - size_;
    }
    /// Whether there was such an element.
    bool Erase(const Key& key)
    {
        if (buckets_.empty()) return false;
        const std::size_t before = size_;
        eraseInChain(&buckets_[bucketOf(Hash()(key))],
                     [&](const Key& other, const Value&) { return Compare()(key, other); });
        return size_ < before;
    }
    /// Gives back all memory.
    void Clear() { *this = THashMap(); }

    /// Calls visit(key, value) for every element.
    template <class Visit>
    void ForEach(const Visit& visit)
    {
        for (Element* head : buckets_)
            for (Element* e = head; e != nullptr; e = e->next) visit(std::as_const(e->key), e->value);
    }

    /// Exchanges all elements; pointers to values stay valid.
    void Swap(THashMap& other) noexcept
    {
        buckets_.swap(other.buckets_);
        pool_.Swap(other.pool_);
        std::swap(size_, other.size_);
    }

private:
    static constexpr std::size_t InitialBuckets = 17;

    struct Element {
        Key key;
        Value value;
        std::uint32_t hash;
        Element* next;
    };
    static_assert(alignof(Element) <= 16);

    [[nodiscard]] std::size_t bucketOf(std::uint32_t hash) const
    {
        return static_cast<std::size_t>(static_cast<std::uint64_t>(hash) * buckets_.size() >> 32);
    }

    [[nodiscard]] Value* find(const Key& key, std::uint32_t hash) const
    {
        if (buckets_.empty()) return nullptr;
        for (Element* e = buckets_[bucketOf(hash)]; e != nullptr; e = e->next)
            if (e->hash == hash && Compare()(e->key, key)) return &e->value;
        return nullptr;
    }

    void grow()
    {
        std::vector<Element*> old(buckets_.empty() ? InitialBuckets : 4 * buckets_.size() + 1, nullptr);
        buckets_.swap(old);
        for (Element* head : old)
            while (head != nullptr) {
                Element* e = std::exchange(head, head->next);
                Element*& target = buckets_[bucketOf(e->hash)];
                e->next = std::exchange(target, e);
            }
    }

    void copyChain(const Element* from, Element** to)
    {
        for (; from != nullptr; from = from->next) {
            void* memory = pool_.Allocate();
            try {
                *to = new (memory) Element{from->key, from->value, from->hash, nullptr};
            } catch (...) {
                pool_.Free(memory);
                throw;
            }
            to = &(*to)->next;
            ++size_;
        }
    }

    template <class Condition>
    void eraseInChain(Element** link, const Condition& condition)
    {
        while (*link != nullptr) {
            Element* e = *link;
            if (!condition(std::as_const(e->key), e->value)) {
                link = &e->next;
                continue;
            }
            *link = e->next;
            e->~Element();
            pool_.Free(e);
            --size_;
        }
    }

    void destroyElements() noexcept
    {
        if constexpr (std::is_trivially_destructible_v<Element>) return;
        for (Element* head : buckets_)
            while (head != nullptr) std::exchange(head, head->next)->~Element();
    }

    std::vector<Element*> buckets_; // empty until the first element comes
    CbPlexManager pool_{sizeof(Element)};
    std::size_t size_ = 0;
};

} // namespace VoAlgo
