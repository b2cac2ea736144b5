// Host text and value objects.
#pragma once

#include <cwchar>

#include "module/interfaces/Unknown.h"

class IString : public IUnknown {
public:
    virtual HRESULT GetText(wchar_t** text, int32_t* length) = 0;         // slot 3, zero-terminated
    virtual HRESULT SetText(int32_t length, const wchar_t* text) = 0;     // slot 4
    virtual HRESULT AppendText(int32_t count, const wchar_t* chars) = 0;  // slot 5
};

// What the string factory asks for; used as an IString.
class ICreatableString : public IString {};

class IVariant : public IUnknown {
public:
    virtual int16_t get_NumberType() = 0;              // slot 3: 0 not a number, 1 integer, other real
    virtual double get_Double() = 0;                   // slot 4
    virtual int32_t get_Integer() = 0;                 // slot 5
    virtual HRESULT put_Integer(int32_t value) = 0;    // slot 6
    virtual HRESULT put_Double(double value) = 0;      // slot 7
    virtual int16_t IsObject() = 0;                    // slot 8
    virtual HRESULT get_Object(IUnknown** object) = 0; // slot 9
    virtual HRESULT put_Object(IUnknown* object) = 0;  // slot 10: an object, a string, a variant, or null
    virtual int16_t IsString() = 0;                    // slot 11
    virtual HRESULT get_String(IString** text) = 0;    // slot 12
    virtual HRESULT put_String(IString* text) = 0;     // slot 13
};
