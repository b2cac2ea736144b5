// "StringTable": the strings that components show to people, kept by component name and
// number. Built in: component "WKSProtocol", entries 1 and 2: the captions of its two settings
// ("Use Prompt", "Return Style"), which name them in saved files; entry 102: the choices of its
// "ReturnStyle" setting.
#pragma once

#include "host/collections/HostObject.h"

// Sets (or, with null text, removes) entry `number` of `component`.
HOST_API void HOSTSetComponentString(const wchar_t* component, int number, const wchar_t* text);
