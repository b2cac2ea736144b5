// The count of live host objects and of creations, and the creation that must fail (the host is
// single-threaded: see HostObject.h).
#include "host/collections/HostObject.h"

namespace {
int32_t gLiveObjects = 0;
int64_t gCreations = 0;
int64_t gFailingCreation = 0;  // 0: none
}  // namespace

void HOSTObjectCreated() { ++gLiveObjects; }
void HOSTObjectDestroyed() { --gLiveObjects; }
int32_t HOSTLiveObjects() { return gLiveObjects; }

void HOSTFailCreation(int64_t n) {
    gCreations = 0;
    gFailingCreation = n > 0 ? n : 0;
}

int64_t HOSTCreationCount() { return gCreations; }

bool HOSTMayCreate() { return ++gCreations != gFailingCreation; }
