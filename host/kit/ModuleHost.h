// The module-host kit: loads a component module file as a host does and drives the protocol
// objects it makes. wks-host, the end-to-end tests, the benchmarks and the fuzz targets all host
// the module through it.
//
// The module resolves its own helper module as "./CollectionsEx.so" against the current
// directory, so a host process first moves into the folder that holds both (HOSTChangeToFolderOf).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "module/Creator.h"
#include "module/SmartPtr.h"
#include "module/interfaces/All.h"

// The folder of the running program (from /proc/self/exe), without a trailing slash; empty if unknown.
std::string HOSTProgramFolder();
// Makes the folder of `file` (or `file` itself when it is a folder) the current directory.
bool HOSTChangeToFolderOf(const std::string& file);

class CModuleHost {
public:
    CModuleHost() = default;
    CModuleHost(const CModuleHost&) = delete;
    CModuleHost& operator=(const CModuleHost&) = delete;
    // Hands the module a null collection, so that it lets go of the host's; the file stays loaded,
    // as objects it made may still be alive.
    ~CModuleHost();

    // Loads the module file at `path` with dlopen, finds InitializeModule and CreateFunction, and
    // initialises the module with the host's global component collection. On failure returns
    // false and sets `error` to one line saying what is wrong.
    bool Load(const std::string& path, std::string& error);
    bool Loaded() const { return m_Initialize != nullptr; }

    // A new object of `component` answering `iid`: CreateFunction, then the creator. The result
    // code of the step that failed (E_FAIL when nothing is loaded).
    HRESULT Create(const wchar_t* component, const IID& iid, void** object);

private:
    typedef HRESULT (*InitializeFn)(void*, IComponentCollection*);
    typedef HRESULT (*EntryFn)(tagREFString, void**);

    InitializeFn m_Initialize = nullptr;
    EntryFn m_Entry = nullptr;
    SmartPtr<IComponentCollection> m_Components;
};

// The object's settings, as its property page sets them: item ids of its property table.
inline constexpr int32_t kUsePromptItem = 1;
inline constexpr int32_t kReturnStyleItem = 2;  // 0 comma-separated, 1 INI lines

// One "WKSProtocol" object bound to a collection of named objects: hands it messages and
// collects its replies, one per line that produced one.
class CProtocolSession {
public:
    // Creates the object through `host` and binds it to `names` (which may be null). `prepare`,
    // when given, runs between the two, as a host loads a saved object before wiring it: a failure
    // it returns stops the opening. The result code of the step that failed; the session stays
    // closed then.
    HRESULT Open(CModuleHost& host, INamedCollection* names,
                 const std::function<HRESULT(IProtocolManager*)>& prepare = nullptr);
    void Close() { m_Manager.Reset(); }
    bool IsOpen() const { return static_cast<bool>(m_Manager); }
    IProtocolManager* Manager() const { return m_Manager.get(); }

    // Hands `length` bytes to RecievedMessage as one message, then calls GetResponse until it
    // reports the message done, calling `reply(const unsigned char* bytes, int32_t length)` for
    // every reply in order. Returns RecievedMessage's result: E_BREAK when the client asked to
    // break (no reply follows), E_INVALIDARG for a message longer than the exchange can take.
    // `again`, when given, receives the number of GetResponse calls that returned S_OK (asked to be
    // called again). The call that hands over a message's last line returns 1, as does one that
    // finds no line at all, so a message of N lines gives N - 1 (and an empty one 0).
    template <class ReplyFn>
    HRESULT Exchange(const void* bytes, size_t length, ReplyFn&& reply, int32_t* again = nullptr);

private:
    // A well-behaved object finishes a message within its line budget; this bounds a broken one.
    static constexpr int32_t kMaxCalls = 1024;
    SmartPtr<IProtocolManager> m_Manager;
};

template <class ReplyFn>
HRESULT CProtocolSession::Exchange(const void* bytes, size_t length, ReplyFn&& reply, int32_t* again) {
    if (again != nullptr) *again = 0;
    if (!m_Manager) return E_FAIL;
    if (length > static_cast<size_t>(INT32_MAX)) return E_INVALIDARG;
    // The exchange reads the message and never writes it; the slot takes a plain pointer.
    unsigned char* message = static_cast<unsigned char*>(const_cast<void*>(bytes));
    const HRESULT received = m_Manager->RecievedMessage(message, static_cast<int32_t>(length));
    if (received < 0) return received;
    for (int32_t call = 0; call < kMaxCalls; ++call) {
        unsigned char* out = nullptr;
        int32_t outLength = 0;
        const HRESULT more = m_Manager->GetResponse(&out, &outLength);
        if (out != nullptr) reply(static_cast<const unsigned char*>(out), outLength);
        if (more != S_OK) break;
        if (again != nullptr) ++*again;
    }
    return received;
}
