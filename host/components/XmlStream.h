// "XMLStream": a stream that writes and reads an XML document, element by element.
//
// The document has one root element, <wks version="1">, and a new stream is a view on it, so that
// several elements can be written side by side at the top. Every stream is a view on one element
// of a shared document; a child stream (OpenElement, the stream an object loads from) shares the
// document of the stream it came from and keeps it alive. A parameter Speed = 5, a parameter
// Colour with flags and a descriptor, and an element whose name is no XML name ("Max speed"):
//
//   <?xml version="1.0" encoding="UTF-8"?>
//   <wks version="1">
//     <Speed>5</Speed>
//     <Colour>
//       <Value>#FF8000</Value>
//       <Flags>#000010</Flags>
//       <InputParameters />
//     </Colour>
//     <Max_x0020_speed>12.5</Max_x0020_speed>
//   </wks>
//
// <InputParameters /> is an object element: named after the component of the object that saved
// itself into it (here, saving nothing), and re-created by that name when read.
//
// Writing keeps a current element, at first the stream's own: BeginElement appends a child to it
// and makes the child current; BeginObjectElement does the same with an element named after the
// object's component (IObjectInfo::GetName), into which the object then saves itself; WriteElement
// appends a complete element holding a text; EndElement makes the parent current again, and fails
// when only the stream's own element is left. Write appends wide characters to the current
// element's text.
//
// Reading works on the current element's children: NextElement steps a cursor over them;
// OpenElement and ReadObject take the child at the cursor when its name matches, else the first
// child of that name; ReadContainedObject the first child, whatever its name. ReadObject and
// ReadContainedObject create the component that the element names through the host's registry
// and load it (IDataPersist::Load) from a stream over the element. Seek puts the cursor back
// before the first child.
//
// Text of a stream (IString::GetText, GetBuffer): for an element without child elements, its text
// content, unescaped; for one with child elements, and always for the top-level stream, its inner
// markup as compact XML text. SetText replaces the text of an element without child elements
// (elements are never removed, so that every view on one stays valid); AppendText appends to the
// stream's element's text.
//
// Element names. An XML name cannot hold every text a caller names an element with (a blank, a
// leading digit, a colon), so names are escaped on the way in and unescaped on the way out: a
// character that may not stand where it stands (colons included, which namespaces would claim) is
// written _xHHHH_ with four to eight upper-case hexadecimal digits; a "_" followed by "x" is
// written _x005F_, so that no literal text reads as an escape; the empty name is written "_" and
// the name "_" itself _x005F_. Every wide text reads back as the same name; names that need none
// of this (Use_Prompt) are written as they are.
//
// Text. The document is UTF-8. Wide text is converted character by character; every Unicode
// scalar value round-trips except U+0000, which XML cannot hold: it, surrogates and values beyond
// U+10FFFF are written as U+FFFD. Control characters other than tab, line feed and carriage return
// are written as character references (&#N;), and line ends are kept as they are (a carriage
// return is not turned into a line feed on reading), so a text reads back exactly.
//
// Errors never leave as exceptions: an allocation that fails answers E_OUTOFMEMORY.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/collections/HostObject.h"

namespace pugi {
struct xml_node_struct;
}

// The document that the streams over its elements share.
struct CXmlDocument;

class HOST_API CXmlStream final : public IXMLStream, public IString, public CHostObject<CXmlStream> {
public:
    CXmlStream(std::shared_ptr<CXmlDocument> document, pugi::xml_node_struct* element);
    CXmlStream(const CXmlStream&) = delete;
    CXmlStream& operator=(const CXmlStream&) = delete;
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;

    // IDataStream
    HRESULT Seek(int32_t, int32_t, int32_t) override;
    HRESULT GetBuffer(void** data, int32_t* bytes) override;
    HRESULT Write(const void* bytes, int32_t byteCount, int32_t) override;
    // IXMLStream
    HRESULT BeginElement(IString* name, int32_t, int32_t) override;
    // An object without IObjectInfo gets an element with the empty name and S_FALSE, so that the
    // caller's EndElement still closes what this opened; ReadObject cannot re-create it.
    HRESULT BeginObjectElement(IUnknown* object, int32_t, int32_t) override;
    HRESULT WriteElement(IString* name, int32_t, IString* text, int32_t) override;
    HRESULT EndElement() override;
    // The name stays valid until the next call on this stream.
    HRESULT NextElement(tagREFString* name) override;
    // `text` points into the child stream's storage when a child is asked for, else into this
    // stream's until its next call. Either out-parameter may be null.
    HRESULT OpenElement(int32_t nameLength, const wchar_t* name, tagREFString* text, IXMLStream** child,
                        int32_t) override;
    HRESULT ReadContainedObject(IUnknown** object) override;
    HRESULT ReadObject(int32_t nameLength, const wchar_t* name, IUnknown** object) override;
    // IString: the text stays valid until the document changes.
    HRESULT GetText(wchar_t** text, int32_t* length) override;
    HRESULT SetText(int32_t length, const wchar_t* text) override;
    HRESULT AppendText(int32_t count, const wchar_t* chars) override;

    // The whole document (whichever element this stream views) as indented UTF-8; `replaced`,
    // when given, gets how many characters were written as U+FFFD.
    void Save(std::string& utf8, size_t* replaced = nullptr) const;
    // The stream's text, as GetText gives it.
    const std::wstring& Text();

private:
    pugi::xml_node_struct* Find(const std::wstring& name) const;
    HRESULT LoadObject(pugi::xml_node_struct* element, IUnknown** object);

    std::shared_ptr<CXmlDocument> m_Document;
    pugi::xml_node_struct* m_Element;  // the element this stream views
    pugi::xml_node_struct* m_Current;  // where writing goes: m_Element or an open descendant
    pugi::xml_node_struct* m_Cursor = nullptr;  // the child NextElement gave last; null before the first
    std::wstring m_Name;       // the name NextElement gave last
    std::wstring m_Scratch;    // OpenElement's text when no child stream is asked for
    std::wstring m_Text;       // the stream's text, as of document version m_TextVersion
    uint64_t m_TextVersion = 0;
};

// A new stream on the root of a new, empty document; one reference. Null when it cannot be made.
HOST_API IXMLStream* HOSTNewXMLStream();
// The whole document of `stream`, indented, UTF-8, with an XML declaration. False when `stream` is
// not an "XMLStream" or the text cannot be made. `replaced`, when given, gets how many characters
// XML cannot carry were written as U+FFFD.
HOST_API bool HOSTXMLStreamToText(IXMLStream* stream, std::string& utf8, size_t* replaced = nullptr);
// A new stream on the root of the document `utf8`; one reference. On malformed input (including
// bytes that are not UTF-8, NUL bytes, and character references to U+0000, surrogates or beyond
// U+10FFFF) or a root other than
// <wks version="1">: null, and `problem` says what and where (byte offset, line and column).
HOST_API IXMLStream* HOSTXMLStreamFromText(std::string_view utf8, std::string& problem);
