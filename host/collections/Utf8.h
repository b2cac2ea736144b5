// UTF-8 and the host's wide text (one wchar_t per code point). Files, command lines and the
// network carry UTF-8; host strings hold wide text.
#pragma once

#include <string>
#include <string_view>

#include "host/collections/HostObject.h"

// Decodes `utf8` into `out`. False (and `out` unspecified) on bytes that are not UTF-8: a bad
// lead or continuation byte, a cut sequence, an overlong form, a surrogate or a code point above
// U+10FFFF.
HOST_API bool HOSTDecodeUtf8(std::string_view utf8, std::wstring& out);
// The offset of the first byte of `utf8` that does not decode (as HOSTDecodeUtf8 would refuse it),
// or npos when all of it does.
HOST_API size_t HOSTFindBadUtf8(std::string_view utf8);
// Like HOSTDecodeUtf8, but every byte that does not decode becomes U+FFFD: for text that must be
// shown whatever it holds (program paths, messages).
HOST_API std::wstring HOSTWidenUtf8(std::string_view utf8);
// Encodes `text` into `out`. False (and `out` unspecified) when it holds a value that is not a
// code point: a surrogate, or beyond U+10FFFF.
HOST_API bool HOSTEncodeUtf8(std::wstring_view text, std::string& out);
// Encodes wide text; a value that is not a code point (a surrogate, beyond U+10FFFF) becomes U+FFFD.
HOST_API std::string HOSTNarrowUtf8(std::wstring_view text);
