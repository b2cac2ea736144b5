// CWKSProtocol: one endpoint of the line-oriented command protocol through which a remote client
// drives the objects of the host's workspace.
#pragma once

#include "interrogate/PropInterrogateImpl.h"
#include "module/interfaces/All.h"
#include "module/Object.h"
#include "parameters/InputParametersImpl.h"
#include "protocol/LocaleCache.h"
#include "text/RefString.h"

struct CommandFacets;  // what a command asks of its target, asked once
class CPathWalk;      // the state of resolving one command's path

class WKS_EXPORT CWKSProtocol final : public CObject<CWKSProtocol>,
                                      public IObjectInfoImpl<CWKSProtocol>,
                                      public InputParametersImpl<CWKSProtocol, IParametersCreatable>,
                                      public IUIPropInterrogateImpl<CWKSProtocol, IUIPropInterrogateEx, 10>,
                                      public IProtocolManager,
                                      public IUIPropertyPageSpecify {
public:
    CWKSProtocol() = default;
    ~CWKSProtocol();

    HRESULT QueryInterface(const IID& iid, void** object) override;
    int32_t AddRef() override { return CObject::AddRef(); }
    int32_t Release() override { return CObject::Release(); }
    HRESULT FinalConstruct() override;

    // The class's own operations, in the order of their slots after CObject's (7 to 17).
    HRESULT GetPages(int32_t, INamedCollection** pages, IUnknown**) override;
    HRESULT Bind(INamedCollection* collection, IUnknown*) override;
    HRESULT RecievedMessage(unsigned char* message, int32_t length) override;
    HRESULT GetResponse(unsigned char** response, int32_t* length) override;
    HRESULT GetInitialResponse(unsigned char** response, int32_t* length) override;
    HRESULT GetMessageSizes(int32_t*, int32_t*) override;
    HRESULT GetState(int32_t) override;
    HRESULT CanHandleRequest(tagREFString request) override;
    // Executes one command line against `table` (may be null). 0, or E_FAIL when it failed.
    virtual HRESULT ParseCommand(CREFString line, IRunningObjectTableEx* table);
    HRESULT Save(IDataStream* stream, int32_t mode) override;
    HRESULT Load(IDataStream* stream, int32_t mode) override;

    static constexpr int32_t kInitialResponse = 1000;

private:
    friend class CPathWalk;

    IUnknown* Self() { return static_cast<CObject<CWKSProtocol>*>(this); }
    IParametersCreatable* OwnParameters() { return static_cast<IParametersCreatable*>(this); }
    void AddEnumeratedReturnStyle();

    // The command language (Pibruflek.cpp): a query writes a reply; the other forms act.
    HRESULT Query(const CPathWalk& walk, const CommandFacets& facets);
    HRESULT Act(CREFString rest, const CPathWalk& walk, const CommandFacets& facets);
    HRESULT Assign(CREFString value, const CPathWalk& walk, const CommandFacets& facets);

    // The reply (Reply.cpp): serialises a collection with the host's stream of the chosen style
    // and stores the text as multibyte bytes in the response buffer.
    HRESULT Reply(IUnknown* collection);
    HRESULT StoreReply(const wchar_t* text, int32_t count);

    // The exchange (Exchange.cpp).
    int32_t m_State = 0;  // 0 idle, 2 lines pending
    SmartPtr<IString> m_Message;
    CREFString m_Text;
    int32_t m_LineCount = 0;
    unsigned char* m_Response = nullptr;
    int32_t m_ResponseLength = 0;
    int32_t m_ResponseCapacity = kInitialResponse;
    unsigned char m_ErrorResponse = '?';

    // Settings shown on the property page and persisted.
    int32_t m_UsePrompt = 1;
    int32_t m_ReturnStyle = 1;  // 0 comma-separated replies, otherwise INI-style

    // libc's answers for the locale of the moment, kept per object: the host calls one object
    // from one thread at a time, but may drive several objects from several threads.
    CLocaleCache m_Locale;
};

// The one component name this module answers to; defined with the entry points.
template <>
WKS_EXPORT tagREFString IObjectInfoImpl<CWKSProtocol>::m_ObjectName;

// Cuts `text` at each "|" and adds one item per piece to `collection`: name = the piece, value =
// its position from 0. A trailing "|" gives no empty last piece; an empty text gives none.
void WKSAddChoices(ISuperCollection* collection, CREFString text);
