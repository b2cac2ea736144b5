// One entry of a parameter collection.
#pragma once

#include "module/interfaces/Strings.h"

struct PARAMETEROBJECT {
    IString* Name;         // owning; may be null
    IUnknown* Item;        // owning; always a variant once the entry exists
    IUnknown* Descriptor;  // owning; an input binding, a self-persisting object, or null
    int32_t Flags;         // caller-defined bits, stored and returned unchanged
};
