#include "host/collections/HostRecycled.h"

#include <cstdlib>

namespace {

constexpr std::size_t kStep = 16;
constexpr int kKept = 64;  // per size; the rest go back to the allocator at once

struct Block {
    Block* next;
};
struct Bucket {
    Block* free = nullptr;
    int kept = 0;
};

// The bucket of a size, or null when blocks of that size are not kept. Sanitized builds keep
// nothing, so that a use after free is still caught by the allocator.
#if defined(WKS_SANITIZED)
Bucket* BucketOf(std::size_t) { return nullptr; }
#else
constexpr std::size_t kBuckets = 16;  // blocks up to 256 bytes are kept
Bucket gBuckets[kBuckets];

Bucket* BucketOf(std::size_t size) {
    const std::size_t index = (size + kStep - 1) / kStep;
    return index > 0 && index <= kBuckets ? &gBuckets[index - 1] : nullptr;
}
#endif

}  // namespace

void* HOSTTakeBlock(std::size_t size) noexcept {
    Bucket* bucket = BucketOf(size);
    if (bucket == nullptr) return std::malloc(size);
    if (Block* block = bucket->free) {
        bucket->free = block->next;
        --bucket->kept;
        return block;
    }
    // Rounded up to the bucket's size, so that any block of the bucket serves any size in it.
    return std::malloc((size + kStep - 1) / kStep * kStep);
}

void HOSTGiveBlock(void* block, std::size_t size) noexcept {
    if (block == nullptr) return;
    Bucket* bucket = BucketOf(size);
    if (bucket == nullptr || bucket->kept >= kKept) {
        std::free(block);
        return;
    }
    Block* kept = static_cast<Block*>(block);
    kept->next = bucket->free;
    bucket->free = kept;
    ++bucket->kept;
}
