// Memory for host objects that are made and destroyed on every line a host handles (strings,
// variants, parameter collections, text streams): short free lists of blocks by size in front of
// the general allocator. The lists live in CollectionsEx.so, so that a block freed by code inlined
// into another binary comes back to the same list. The host is single-threaded (see HostObject.h):
// no lock.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

#include "host/collections/HostObject.h"

// The free lists: blocks of up to kHOSTRecycledBuckets * 16 bytes, by size in steps of 16, at most
// kHOSTKept of each size. Taking and giving back a block is inline, since every string and variant
// of every line comes and goes through here. Sanitized builds keep nothing, so that a use after
// free is still caught by the allocator.
struct HOSTFreeBlock {
    HOSTFreeBlock* next;
};
struct HOSTBucket {
    HOSTFreeBlock* free = nullptr;
    int kept = 0;
};
constexpr std::size_t kHOSTRecycledBuckets = 16;
constexpr int kHOSTKept = 64;
extern HOST_API HOSTBucket gHOSTBuckets[kHOSTRecycledBuckets];

// The bucket of a size (a constant where it is inlined), or null when blocks of that size are not kept.
inline HOSTBucket* HOSTBucketOf(std::size_t size) noexcept {
#if defined(WKS_SANITIZED)
    (void)size;
    return nullptr;
#else
    const std::size_t index = (size + 15) / 16;
    return index > 0 && index <= kHOSTRecycledBuckets ? &gHOSTBuckets[index - 1] : nullptr;
#endif
}

// A new block of at least `size` bytes from the allocator, or null.
HOST_API void* HOSTAllocateBlock(std::size_t size) noexcept;

// A block of at least `size` bytes, or null.
inline void* HOSTTakeBlock(std::size_t size) noexcept {
    if (HOSTBucket* bucket = HOSTBucketOf(size)) {
        if (HOSTFreeBlock* block = bucket->free) {
            bucket->free = block->next;
            --bucket->kept;
            return block;
        }
    }
    return HOSTAllocateBlock(size);
}

// Gives back a block taken with the same size.
inline void HOSTGiveBlock(void* block, std::size_t size) noexcept {
    if (block == nullptr) return;
    HOSTBucket* bucket = HOSTBucketOf(size);
    if (bucket == nullptr || bucket->kept >= kHOSTKept) {
        std::free(block);
        return;
    }
    HOSTFreeBlock* kept = static_cast<HOSTFreeBlock*>(block);
    kept->next = bucket->free;
    bucket->free = kept;
    ++bucket->kept;
}

// An allocator whose small blocks come from the free lists: for what host objects hold and drop
// with them on every line (a parameter collection's entries).
template <class T>
struct HOSTRecycling {
    using value_type = T;
    HOSTRecycling() noexcept = default;
    template <class U>
    HOSTRecycling(const HOSTRecycling<U>&) noexcept {}
    T* allocate(std::size_t n) {
        if (n > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
        if (void* block = HOSTTakeBlock(n * sizeof(T))) return static_cast<T*>(block);
        throw std::bad_alloc();
    }
    void deallocate(T* block, std::size_t n) noexcept { HOSTGiveBlock(block, n * sizeof(T)); }
    template <class U>
    bool operator==(const HOSTRecycling<U>&) const noexcept { return true; }
    template <class U>
    bool operator!=(const HOSTRecycling<U>&) const noexcept { return false; }
};

// The base of a host object whose memory is recycled, in place of CHostObject<T>: its allocation
// functions hide CHostObject's and count the creation the same way. T is final, so every block
// allocated through here has T's size.
template <class T>
class CHostRecycled : public CHostObject<T> {
public:
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
        return HOSTMayCreate() ? HOSTTakeBlock(size) : nullptr;
    }
    static void* operator new(std::size_t size) {
        if (!HOSTMayCreate()) throw std::bad_alloc();
        if (void* block = HOSTTakeBlock(size)) return block;
        throw std::bad_alloc();
    }
    static void operator delete(void* block, std::size_t size) noexcept { HOSTGiveBlock(block, size); }
    static void operator delete(void* block, const std::nothrow_t&) noexcept { HOSTGiveBlock(block, sizeof(T)); }
};
