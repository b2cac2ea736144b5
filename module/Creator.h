// The creator of a component: what a module's CreateFunction hands out and what a host's
// component collection calls to make an object by name.
#pragma once

#include "module/Iid.h"

// Outer object (not used: no aggregation), interface wanted, place for the new object.
typedef HRESULT (*CREATORFUNCTION)(void* outer, IID* iid, void** object);
