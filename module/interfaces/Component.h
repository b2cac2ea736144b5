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

class IProtocolManager : public IUnknown {
public:
    virtual HRESULT GetInitialResponse(unsigned char** response, int32_t* length) = 0;  // slot 3
    virtual HRESULT RecievedMessage(unsigned char* message, int32_t length) = 0;        // slot 4
    virtual HRESULT GetResponse(unsigned char** response, int32_t* length) = 0;         // slot 5
    virtual HRESULT CanHandleRequest(tagREFString request) = 0;                        // slot 6
    virtual HRESULT GetMessageSizes(int32_t*, int32_t*) = 0;                           // slot 7
    virtual HRESULT GetState(int32_t) = 0;                                              // slot 8
};
