// The reply to a query: the host's stream component serialises a collection as wide text, which
// is converted to multibyte bytes and stored in the response buffer.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "module/Module.h"
#include "protocol/WKSProtocol.h"

namespace {
constexpr int32_t kCsvOpenMode = 0x30000;
constexpr int32_t kReplyWork = 260;  // the least work buffer; small replies stay on the stack
}  // namespace

HRESULT CWKSProtocol::Reply(IUnknown* collection) {
    void* data = nullptr;
    int32_t bytes = 0;
    if (m_ReturnStyle == 0) {
        SmartPtr<ICSVStream> csv(static_cast<ICSVStream*>(CreateObject(tagREFString{9, L"CSVStream"}, &IID_ICSVStream)));
        if (!csv) return S_OK;
        csv->Open(0, kCsvOpenMode);
        csv->WriteObject(collection, 0);
        csv->Seek(0, 0, 0);
        csv->GetBuffer(&data, &bytes);
        return StoreReply(static_cast<const wchar_t*>(data), bytes / static_cast<int32_t>(sizeof(wchar_t)));
    }
    SmartPtr<IINIStream> ini(static_cast<IINIStream*>(CreateObject(tagREFString{9, L"INIStream"}, &IID_IINIStream)));
    if (!ini) return S_OK;
    ini->Open(0);
    ini->WriteObject(collection);
    ini->Seek(0, 0, 0);
    ini->GetBuffer(&data, &bytes);
    return StoreReply(static_cast<const wchar_t*>(data), bytes / static_cast<int32_t>(sizeof(wchar_t)));
}

// The work buffer starts at max(count + 4, 260) bytes and always keeps at least 4 bytes free
// after a character. It grows by doubling, not by fixed steps, so a reply whose characters take
// several bytes each costs time linear in its length; the bytes delivered are the same either way.
// A character the locale cannot write is left out. Out of memory, the reply is dropped whole and
// the response fields stay as they were.
HRESULT CWKSProtocol::StoreReply(const wchar_t* text, int32_t count) {
    if (text == nullptr || count <= 0) return S_OK;
    unsigned char local[kReplyWork];
    int64_t size = static_cast<int64_t>(count) + 4 > kReplyWork ? static_cast<int64_t>(count) + 4 : kReplyWork;
    unsigned char* work = size == kReplyWork ? local : static_cast<unsigned char*>(std::malloc(static_cast<size_t>(size)));
    if (work == nullptr) return S_OK;
    auto grow = [&](int64_t needed) {
        int64_t larger = size;
        while (larger < needed) larger *= 2;
        unsigned char* bigger = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(larger)));
        if (bigger == nullptr) return false;
        std::memcpy(bigger, work, static_cast<size_t>(size));
        if (work != local) std::free(work);
        work = bigger;
        size = larger;
        return true;
    };
    mbstate_t state{};
    int64_t used = 0;
    bool ok = true;
    const bool asciiItself = m_Locale.AsciiEncodesItself();  // the locale was noticed by ParseCommand
    for (int32_t i = 0; i < count && ok;) {
        if (asciiItself) {
            // At least 4 bytes are free here: characters that write themselves go straight in,
            // as many as fit with 4 bytes to spare (all of them, unless others took several bytes).
            const int64_t room = size - used - 4;
            const int32_t end = count - i <= room ? count : i + static_cast<int32_t>(room);
            const int32_t from = i;
            while (i < end && static_cast<uint32_t>(text[i]) - 1u < 0x7Fu) work[used++] = static_cast<unsigned char>(text[i++]);
            if (i != from) continue;
        }
        char bytes[MB_LEN_MAX];
        const int n = m_Locale.Encode(bytes, text[i++], state);
        if (n <= 0) continue;
        if (size - used < n + 4) ok = grow(used + n + 4);
        if (!ok) break;
        std::memcpy(work + used, bytes, static_cast<size_t>(n));
        used += n;
    }
    // The response fields count in 32 bits: a reply beyond that is not delivered.
    if (ok && used >= INT32_MAX) ok = false;
    if (ok) work[used] = 0;  // terminated, not counted

    if (ok && m_ResponseCapacity < used) {
        unsigned char* larger = new (std::nothrow) unsigned char[static_cast<size_t>(used) + 1];
        if (larger == nullptr) {
            ok = false;
        } else {
            delete[] m_Response;
            m_Response = larger;
            m_ResponseCapacity = static_cast<int32_t>(used + 1);
        }
    }
    if (ok) {
        std::memcpy(m_Response, work, static_cast<size_t>(used));
        m_ResponseLength = static_cast<int32_t>(used);
    }
    if (work != local) std::free(work);
    return S_OK;
}
