// A parameter collection: ISimpleCollection (slots 3-4), INamedCollection (5-10),
// IParameters (11-17), IParametersCreatable (18-22).
#pragma once

#include "module/interfaces/Collections.h"

class IParameters : public INamedCollection {
public:
    virtual HRESULT Get(int32_t index, IString** name, IVariant** value, IUnknown** descriptor,
                        int32_t* flags) = 0;                                     // slot 11
    virtual HRESULT get_ItemVariant(int32_t index, IVariant** value) = 0;        // slot 12
    virtual HRESULT put_Item(int32_t index, IUnknown* value) = 0;                // slot 13
    virtual HRESULT get_ItemDescriptor(int32_t index, IUnknown** descriptor) = 0;  // slot 14
    virtual HRESULT put_ItemDescriptor(int32_t index, IUnknown* descriptor) = 0;   // slot 15
    virtual HRESULT get_ItemFlags(int32_t index, int32_t* flags) = 0;            // slot 16
    virtual HRESULT put_ItemFlags(int32_t index, int32_t flags) = 0;             // slot 17
};

class IParametersCreatable : public IParameters {
public:
    virtual HRESULT Add(IString* name, IUnknown* value, IUnknown* descriptor, int32_t flags) = 0;  // 18
    virtual HRESULT Remove(int32_t index) = 0;        // slot 19
    virtual HRESULT RemoveAll() = 0;                  // slot 20
    virtual HRESULT Copy(IParameters* source) = 0;    // slot 21
    virtual HRESULT Sort(int32_t) = 0;                // slot 22
};

class IDataStream;

// The persistence slots that follow Sort in every parameter collection of the framework. They are
// not reached through QueryInterface: a host calls them by position on the collection's
// IParametersCreatable. Mode bits: 0x10000 names in CSV, 0x800000 compact form, 0x1000000 rebuild
// on loading, 0x2000000 load objects in place (object form).
class IParametersPersist : public IParametersCreatable {
public:
    virtual HRESULT Params_SaveCSV(IDataStream* stream, int32_t mode) = 0;             // slot 23
    virtual HRESULT Params_SaveXML(IDataStream* stream, int32_t mode) = 0;             // slot 24
    virtual HRESULT Params_LoadXML(IDataStream* stream, int32_t mode, int32_t) = 0;    // slot 25
    virtual HRESULT Params_SaveFolderStream(IDataStream* stream, int32_t mode) = 0;    // slot 26
    virtual HRESULT Params_LoadFolderStream(IDataStream* stream, int32_t mode) = 0;    // slot 27
    virtual HRESULT Params_SaveXMLUnk(IDataStream* stream, int32_t mode) = 0;          // slot 28
    virtual HRESULT Params_LoadXMLUnk(IDataStream* stream, int32_t mode) = 0;          // slot 29
};
