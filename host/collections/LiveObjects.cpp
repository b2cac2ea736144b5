// The count of live host objects (the host is single-threaded: see HostObject.h).
#include "host/collections/HostObject.h"

namespace {
int32_t gLiveObjects = 0;
}  // namespace

void HOSTObjectCreated() { ++gLiveObjects; }
void HOSTObjectDestroyed() { --gLiveObjects; }
int32_t HOSTLiveObjects() { return gLiveObjects; }
