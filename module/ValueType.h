// The value type code: the low four bits of a parameter's or a property item's flags, naming
// the kind of value it holds. Shared by the module and its hosts.
#pragma once

#include <cstdint>

enum WKSValueType : int32_t {
    VALUE_UINT8 = 1,   // unsigned 8-bit integer
    VALUE_INT16 = 2,   // signed 16-bit integer
    VALUE_INT32 = 3,   // signed 32-bit integer
    VALUE_FLOAT = 4,   // single-precision real
    VALUE_DOUBLE = 5,  // double-precision real
    VALUE_STRING = 6,  // text
    VALUE_OBJECT = 7,  // an object
    VALUE_NONE = 8,    // no value
};

constexpr int32_t VALUE_TYPE_MASK = 0x0F;

inline int32_t ValueTypeOf(int32_t flags) { return flags & VALUE_TYPE_MASK; }
