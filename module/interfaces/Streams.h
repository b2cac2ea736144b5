// Host streams. Every stream is an IDataStream; the folder, XML, CSV and INI streams extend it.
#pragma once

#include "module/interfaces/Strings.h"
#include "text/TagRefString.h"

class IVariant;

class IDataStream : public IUnknown {
public:
    virtual HRESULT Seek(int32_t, int32_t, int32_t) = 0;         // slot 3
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    virtual HRESULT GetBuffer(void** data, int32_t* bytes) = 0;  // slot 6: the content
    WKS_PLACEHOLDER(7)
    virtual HRESULT Write(const void* bytes, int32_t byteCount, int32_t) = 0;  // slot 8: appends
};

class IFolderStream : public IDataStream {
public:
    // slot 9: opens or creates the named child; the child also answers IDataStream
    virtual HRESULT OpenChild(IString* name, int32_t, IFolderStream** child) = 0;
    WKS_PLACEHOLDER(10)
    virtual HRESULT WriteBytes(IString* name, const void* data, int32_t byteCount, int32_t) = 0;  // 11
    virtual HRESULT WriteValue(IString* name, IUnknown* value) = 0;                  // slot 12
    virtual HRESULT WriteObject(IString* name, IUnknown* object, int32_t) = 0;       // slot 13
    virtual HRESULT WriteTyped(IString* name, const void* value, int32_t type) = 0;  // slot 14
    WKS_PLACEHOLDER(15)
    // slot 16: negative when there is no such entry
    virtual HRESULT ReadBytes(IString* name, void* data, int32_t byteCount, int32_t) = 0;
    virtual HRESULT ReadValue(IString* name, IUnknown* into) = 0;  // slot 17, negative when absent
    // slot 18: children in order for the keys 0, 1, 2, ...; negative past the last
    virtual HRESULT OpenChildAt(IVariant* key, int32_t, IFolderStream** child) = 0;
    virtual HRESULT ReadObject(IString* name, IUnknown** object, int32_t) = 0;  // slot 19
    virtual HRESULT ReadTyped(IString* name, void* value, int32_t type) = 0;    // slot 20
};

class IXMLStream : public IDataStream {
public:
    WKS_PLACEHOLDER(9)
    virtual HRESULT BeginElement(IString* name, int32_t, int32_t) = 0;         // slot 10
    virtual HRESULT BeginObjectElement(IUnknown* object, int32_t, int32_t) = 0;  // slot 11
    virtual HRESULT WriteElement(IString* name, int32_t, IString* text, int32_t) = 0;  // slot 12
    virtual HRESULT EndElement() = 0;                                           // slot 13
    virtual HRESULT NextElement(tagREFString* name) = 0;  // slot 14, not negative while one exists
    // slot 15
    virtual HRESULT OpenElement(int32_t nameLength, const wchar_t* name, tagREFString* text,
                                IXMLStream** child, int32_t) = 0;
    virtual HRESULT ReadContainedObject(IUnknown** object) = 0;  // slot 16
    virtual HRESULT ReadObject(int32_t nameLength, const wchar_t* name, IUnknown** object) = 0;  // 17
};

// GetBuffer of the CSV and INI streams yields their content as wide text.
class ICSVStream : public IDataStream {
public:
    WKS_PLACEHOLDER(9)
    virtual HRESULT WriteObject(IUnknown* object, int32_t) = 0;  // slot 10
    WKS_PLACEHOLDER(11)
    virtual HRESULT Open(int32_t, int32_t mode) = 0;             // slot 12, the module passes 0, 0x30000
};

class IINIStream : public IDataStream {
public:
    WKS_PLACEHOLDER(9)
    virtual HRESULT WriteObject(IUnknown* object) = 0;  // slot 10
    WKS_PLACEHOLDER(11)
    virtual HRESULT Open(int32_t) = 0;                  // slot 12, the module passes 0
};

class IDataPersist : public IUnknown {
public:
    virtual HRESULT Save(IDataStream* stream, int32_t mode) = 0;  // slot 3
    virtual HRESULT Load(IDataStream* stream, int32_t mode) = 0;  // slot 4
};
