#include "host/collections/HostRecycled.h"

HOSTBucket gHOSTBuckets[kHOSTRecycledBuckets];

// Rounded up to the bucket's size, so that any block of the bucket serves any size in it.
void* HOSTAllocateBlock(std::size_t size) noexcept {
    return std::malloc(HOSTBucketOf(size) != nullptr ? (size + 15) / 16 * 16 : size);
}
