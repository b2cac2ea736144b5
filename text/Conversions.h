// Host strings and variants made from plain values and text; numbers formatted as text and
// text read as numbers. The only way the module converts between numbers and text.
#pragma once

#include <cstddef>

#include "module/interfaces/Strings.h"
#include "text/RefString.h"

// vswprintf into at most `capacity` wide characters, terminated after the characters written.
// Returns their count, or a negative value when formatting failed (then nothing is terminated).
int _swprintf(wchar_t* buffer, size_t capacity, const wchar_t* format, ...);

// Every ISCreate / IVCreate returns a new object with one reference for the caller, or null when
// the host's factory is unavailable.
IString* ISCreate(const wchar_t* text);            // the terminated text; empty for null
IString* ISCreate(const tagREFString& view);       // the view's characters
IString* ISCreate(const char* bytes, int count);   // multibyte bytes decoded in the locale
IString* ISCreate(int value);                      // "%i"
IString* ISCreate(double value);                   // "%f", or "%e" when that would not fit
// The variant's string, or its number: "%d" for integers (or any number with precision 0),
// a fixed number of decimals for precision > 0, the fewest decimals (at most 9) for precision < 0.
// A real whose fixed-point text would not fit 255 characters is written in exponent notation:
// with the same decimals, or for precision < 0 with the fewest mantissa decimals (at most 9).
// Null for a null variant or one that holds neither text nor a number.
IString* ISCreate(IVariant* value, short precision);
IString* ISCreateHex(int value);                   // "#%06X" up to 0xFFFFFF (signed), else "#%X"

IVariant* IVCreate(int value);
IVariant* IVCreate(double value);
IVariant* IVCreate(IString* value);  // the variant takes its own reference

// Text to integer: optional "-", "+" or "#" (base 16), then digits of `base`; wraps on overflow.
int _IS2Integer(CREFString text, int base);
// Text to real: "#" hexadecimal, else sign, digits, one ".", at most 18 fraction digits (further
// ones are ignored); no exponent. The integer part wraps modulo 2^64 and is read as a signed
// 64-bit number.
double _IS2Double(CREFString text);
// Classifies the text as an integer, a real or a text and makes the matching variant; a real
// is read as _IS2Double reads it. Drops leading white space and
// control characters from the caller's view.
IVariant* IVCreateConvert(CREFString& text);
