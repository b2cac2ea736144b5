// The count of live host objects and of creations, and the creation that must fail (the host is
// single-threaded: see HostObject.h).
#include "host/collections/HostObject.h"

HOSTCounts gHOSTCounts;

int32_t HOSTLiveObjects() { return gHOSTCounts.live; }

void HOSTFailCreation(int64_t n) {
    gHOSTCounts.creations = 0;
    gHOSTCounts.failing = n > 0 ? n : 0;
}

int64_t HOSTCreationCount() { return gHOSTCounts.creations; }
