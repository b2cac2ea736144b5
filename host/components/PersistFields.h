// The named fields a host object persists, in either kind of stream: a folder stream (typed
// values, byte blocks, values, objects and child folders) or an XML stream (one element per field,
// its text the value). Objects persist themselves through these, so that both kinds carry the same
// content:
//
//   field      folder stream                      XML stream
//   integer    typed value, type 3                element with the decimal text: <Flags>5</Flags>
//   bytes      byte block                         element with lower-case hexadecimal: <IID>00ff...</IID>
//   text       value (a string)                   element with the text
//   object     object entry (stored by component   element holding the object's element, named
//              name, made again by that name)      after its component: <Moniker><CollectionMoniker>...
//   group      child folder                       element holding the group's fields
//
// Reading finds a field by its name; a field that is missing, or not of the kind asked for, reads
// as absent and leaves the caller's value as it is.
#pragma once

#include <cstdint>
#include <string>

#include "host/collections/HostObject.h"

class CFields {
public:
    // Fields of `stream`; neither a folder nor an XML stream: Valid() is false and nothing happens.
    explicit CFields(IDataStream* stream);
    CFields(const CFields&) = delete;
    CFields& operator=(const CFields&) = delete;
    CFields(CFields&&) = default;
    // A group opened for writing in an XML stream is closed here.
    ~CFields();

    bool Valid() const { return m_Folder || m_Xml; }

    void WriteInteger(const wchar_t* name, int32_t value);
    void WriteBytes(const wchar_t* name, const void* bytes, int32_t count);
    void WriteText(const wchar_t* name, const std::wstring& text);
    // Only an object that persists itself and names its component; others are left out.
    void WriteObject(const wchar_t* name, IUnknown* object);
    // The fields of a new group `name`; write them before writing further fields here.
    CFields WriteGroup(const std::wstring& name);

    bool ReadInteger(const wchar_t* name, int32_t& value);
    bool ReadBytes(const wchar_t* name, void* bytes, int32_t count);
    bool ReadText(const wchar_t* name, std::wstring& text);
    // The stored object, made again by its component name and loaded; null when absent.
    SmartPtr<IUnknown> ReadObject(const wchar_t* name);
    // The fields of group `name`; not Valid() when there is no such group.
    CFields ReadGroup(const std::wstring& name);

private:
    CFields() = default;
    // The stream over the XML element `name` and its text, or null.
    SmartPtr<IXMLStream> XmlElement(const std::wstring& name, std::wstring* text);

    SmartPtr<IFolderStream> m_Folder;
    SmartPtr<IXMLStream> m_Xml;
    bool m_CloseElement = false;
};
