// The plain record behind every text view: a count of wide characters and a pointer to them.
// Passed by value (two machine words) or by pointer; owns nothing.
#pragma once

#include <cstdint>

struct tagREFString {
    int32_t length;       // number of characters; 0 for an empty view, never negative
    const wchar_t* text;  // first character; may be null when length is 0; need not be terminated
};
