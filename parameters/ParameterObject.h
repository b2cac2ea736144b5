// One entry of a parameter collection.
#pragma once

#include "module/SmartPtr.h"
#include "module/interfaces/Strings.h"

// Each holder is one pointer wide, so the entry keeps the layout of four plain fields.
struct PARAMETEROBJECT {
    SmartPtr<IString> Name;         // may be null
    SmartPtr<IUnknown> Item;        // always a variant once the entry exists
    SmartPtr<IUnknown> Descriptor;  // an input binding, a self-persisting object, or null
    int32_t Flags = 0;              // caller-defined bits, stored and returned unchanged
};
static_assert(sizeof(PARAMETEROBJECT) == 4 * sizeof(void*), "an entry is three pointers and the flags");
