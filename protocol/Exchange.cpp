// The message exchange: the host hands over a message as bytes, then asks for replies, one line
// of the message per call.
#include <cwchar>

#include "protocol/WKSProtocol.h"

namespace {

constexpr int32_t kLineBudget = 11;  // lines of one message that are executed
// Left to us: a byte sequence that does not decode stands for U+FFFD, the replacement character,
// and decoding goes on at the next byte.
constexpr wchar_t kUndecodable = 0xFFFD;
constexpr wchar_t kBreak[] = L"Break";

}  // namespace

HRESULT CWKSProtocol::RecievedMessage(unsigned char* message, int32_t length) {
    m_Locale.Refresh();  // the locale of the moment, for decoding, trimming and the break test
    SmartPtr<IString> text(CREFString::CreateString());
    if (text && length > 0 && message != nullptr) {
        const char* bytes = reinterpret_cast<const char*>(message);
        const bool asciiItself = m_Locale.AsciiDecodesItself();
        IString* target = text.get();
        mbstate_t state{};
        for (int32_t p = 0; p < length;) {
            wchar_t c = 0;
            const unsigned char b = message[p];
            if (asciiItself && b - 1u < 0x7Fu) {  // 0x01 to 0x7F, each a character of its own code
                c = b;
                ++p;
            } else {
                const int used = m_Locale.Decode(&c, bytes + p, static_cast<size_t>(length - p), state);
                if (used < 0) c = kUndecodable;
                p += used > 0 ? used : 1;
            }
            target->AppendText(1, &c);
        }
    }
    m_Message = std::move(text);  // the previous message is released
    m_Text = CREFString();
    wchar_t* chars = nullptr;
    int32_t count = 0;
    if (m_Message && m_Message->GetText(&chars, &count) >= 0 && count > 0) m_Text = CREFString(chars, count);
    m_Locale.Trim(m_Text, CLocaleCache::kBoth);
    m_ResponseLength = 0;
    m_State = 0;
    m_LineCount = 0;

    // A non-empty beginning of "Break", or a text beginning with it, in any case.
    const int32_t n = m_Text.length < 5 ? m_Text.length : 5;
    bool isBreak = n > 0;
    for (int32_t i = 0; i < n && isBreak; ++i) isBreak = m_Locale.Lower(m_Text.text[i]) == m_Locale.Lower(kBreak[i]);
    if (isBreak) return E_BREAK;
    m_State = 2;
    return S_OK;
}

HRESULT CWKSProtocol::GetResponse(unsigned char** response, int32_t* length) {
    if (m_State != 2 || m_Text.length == 0 || m_LineCount >= kLineBudget) {
        m_State = 0;
        return S_FALSE;  // nothing to hand out: the outputs are never touched, null or not
    }
    if (response == nullptr || length == nullptr) return E_POINTER;  // a host's error: nothing is consumed
    ++m_LineCount;

    SmartPtr<IUnknown> bound;
    if (m_InputParameters) m_InputParameters->get_InputObject(0, bound.Out());
    SmartPtr<IRunningObjectTableEx> table = QueryAs<IRunningObjectTableEx>(bound.get(), IID_IRunningObjectTableEx);
    m_ResponseLength = 0;

    // The line runs up to the first carriage return or line feed, which stays in the text.
    int32_t end = 0;
    while (end < m_Text.length && m_Text.text[end] != L'\r' && m_Text.text[end] != L'\n') ++end;
    const tagREFString line{end, m_Text.text};
    m_Text.text += end;
    m_Text.length -= end;

    const HRESULT hr = ParseCommand(line, table.get());
    if (hr < 0) {
        *response = &m_ErrorResponse;
        *length = 1;
    } else if (m_ResponseLength != 0) {
        *response = m_Response;
        *length = m_ResponseLength;
    }
    // Blank lines never reach the parser and do not count against the line budget: this trim
    // consumes the line end, any blank lines after it and the next line's leading blanks.
    m_Locale.Trim(m_Text, CLocaleCache::kFront);
    if (m_Text.length != 0) return S_OK;
    m_State = 0;
    return S_FALSE;
}

HRESULT CWKSProtocol::GetInitialResponse(unsigned char**, int32_t*) { return S_FALSE; }  // no greeting
HRESULT CWKSProtocol::GetMessageSizes(int32_t*, int32_t*) { return E_NOTIMPL; }
HRESULT CWKSProtocol::GetState(int32_t) { return E_NOTIMPL; }
HRESULT CWKSProtocol::CanHandleRequest(tagREFString) { return E_NOTIMPL; }
