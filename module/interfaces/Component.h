// Interfaces that components of this object model implement themselves.
#pragma once

#include "module/interfaces/Streams.h"
#include "module/interfaces/Collections.h"

class IObjectInfo : public IUnknown {
public:
    virtual HRESULT GetName(int32_t, tagREFString* name) = 0;  // slot 3
};

class IBindableObject : public IUnknown {
public:
    virtual HRESULT Bind(INamedCollection* collection, IUnknown*) = 0;  // slot 3
};

class IReplicableObject : public IUnknown {
public:
    virtual HRESULT Replicate(IUnknown** copy) = 0;  // slot 3
};

class IUIPropertyPageSpecify : public IUnknown {
public:
    virtual HRESULT GetPages(int32_t, INamedCollection** pages, IUnknown**) = 0;  // slot 3
};

class IUIPropInterrogate : public IUnknown {
public:
    virtual HRESULT Inquire(int32_t id, int32_t* value) = 0;                            // slot 3
    virtual HRESULT Control(int32_t id, int32_t value) = 0;                             // slot 4
    virtual HRESULT ParameterRange(int32_t id, int32_t* minimum, int32_t* maximum) = 0;  // slot 5
    virtual HRESULT ParameterEnumeration(int32_t id, IUnknown** enumeration) = 0;       // slot 6
};

class IUIPropInterrogateEx : public IUIPropInterrogate {
public:
    virtual HRESULT InquireEx(int32_t id, IUnknown** value) = 0;  // slot 7
    virtual HRESULT ControlEx(int32_t id, IUnknown* value) = 0;   // slot 8
};

// The persistence slots that follow ControlEx in every property table of the framework. They are
// not reached through QueryInterface: a host calls them by position on the table's
// IUIPropInterrogate, which is the whole table. A null caption table makes them look the captions up in the string table.
class IUIPropInterrogatePersist : public IUIPropInterrogateEx {
public:
    virtual HRESULT UIPropInterrogate_SaveFolderStream(INamedCollection* captions, IFolderStream* folder, int32_t) = 0;  // 9
    virtual HRESULT UIPropInterrogate_LoadFolderStream(IFolderStream* folder, int32_t) = 0;                             // 10
    virtual HRESULT UIPropInterrogate_SaveXML(INamedCollection* captions, IDataStream* stream, int32_t) = 0;           // 11
    virtual HRESULT UIPropInterrogate_LoadXML(INamedCollection* captions, IDataStream* stream, int32_t) = 0;           // 12
};

class IProtocolManager : public IUnknown {
public:
    virtual HRESULT GetInitialResponse(unsigned char** response, int32_t* length) = 0;  // slot 3
    virtual HRESULT RecievedMessage(unsigned char* message, int32_t length) = 0;        // slot 4
    virtual HRESULT GetResponse(unsigned char** response, int32_t* length) = 0;         // slot 5
    virtual HRESULT CanHandleRequest(tagREFString request) = 0;                        // slot 6
    virtual HRESULT GetMessageSizes(int32_t*, int32_t*) = 0;                           // slot 7
    virtual HRESULT GetState(int32_t) = 0;                                              // slot 8
};
