// Memory for host objects that are made and destroyed on every line a host handles (strings,
// variants): short free lists of blocks by size in front of the general allocator. The lists live
// in CollectionsEx.so, so that a block freed by code inlined into another binary comes back to the
// same list. The host is single-threaded (see HostObject.h): no lock.
#pragma once

#include <cstddef>
#include <new>

#include "host/collections/HostObject.h"

// A block of at least `size` bytes, or null.
HOST_API void* HOSTTakeBlock(std::size_t size) noexcept;
// Gives back a block taken with the same size.
HOST_API void HOSTGiveBlock(void* block, std::size_t size) noexcept;

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
