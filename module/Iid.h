// Interface identifiers: 16 bytes, compared whole, derived from interface names.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/InterfaceList.h"
#include "module/Result.h"

struct IID {
    unsigned char bytes[16];
};

inline bool operator==(const IID& a, const IID& b) { return std::memcmp(a.bytes, b.bytes, 16) == 0; }
inline bool operator!=(const IID& a, const IID& b) { return !(a == b); }

// Packs the first 25 bytes of `name` into 5-bit codes at bit 5k: letters 1..26 (case-insensitive),
// '0'..'4' 28..32, everything else 27. The code of '4' is 32: its sixth bit lands on the lowest bit
// of the next character's field, exactly as every other module computes it. One pass, no allocation.
WKS_EXPORT IID __IIDOfc(const char* name);

// {00000000-0000-0000-C000-000000000046}: the one identifier that is assigned, not derived.
extern WKS_EXPORT const IID IID_IUnknown;
extern WKS_EXPORT const IID IID_NULL;

#define WKS_DECLARE_IID(name) extern WKS_EXPORT IID IID_##name;
WKS_INTERFACE_LIST(WKS_DECLARE_IID)
#undef WKS_DECLARE_IID
