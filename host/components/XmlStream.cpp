#include "host/components/XmlStream.h"

#include <pugixml.hpp>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/ComponentRegistry.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"
#include "host/collections/Utf8.h"

struct CXmlDocument {
    pugi::xml_document xml;
    uint64_t version = 1;  // counts changes, so that a stream knows when its cached text is stale
    size_t replaced = 0;   // characters written as U+FFFD, which XML cannot carry
};

namespace {

constexpr char kRootName[] = "wks";
constexpr char kVersion[] = "1";
// Line ends are kept as written (no parse_eol), and an element holding only blanks keeps them;
// blanks between elements are indentation and are dropped. Parsed as a fragment so that text
// outside the root element is kept, and refused, rather than silently dropped; so is a document
// type declaration, whose entities pugixml would leave unexpanded.
constexpr unsigned kParseOptions = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single |
                                   pugi::parse_fragment | pugi::parse_doctype;
constexpr char32_t kReplacement = 0xFFFD;
constexpr int kMaxObjectDepth = 64;

// Answered only by CXmlStream, so that the host API can tell its own streams from any other
// IXMLStream. Never handed to anyone: it is no interface of the framework's.
constexpr IID kSelf = {{0x58, 0x4d, 0x4c, 0x53, 0x74, 0x72, 0x65, 0x61, 0x6d, 0x53, 0x65, 0x6c, 0x66, 0x00, 0x77, 0x6b}};

template <class F>
HRESULT Guarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

// --- UTF-8 ---------------------------------------------------------------------------------------

bool IsScalar(uint32_t c) { return c != 0 && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

// What XML cannot carry (U+0000, surrogates, values beyond U+10FFFF) becomes U+FFFD, counted in
// `replaced` when given.
std::string ToUtf8(const wchar_t* text, size_t length, size_t* replaced = nullptr) {
    std::wstring_view view(text, length);
    if (replaced)
        for (wchar_t c : view) *replaced += !IsScalar(static_cast<uint32_t>(c));
    if (view.find(L'\0') == std::wstring_view::npos) return HOSTNarrowUtf8(view);
    std::wstring copy(view);
    for (wchar_t& c : copy)
        if (c == 0) c = static_cast<wchar_t>(kReplacement);
    return HOSTNarrowUtf8(copy);
}
std::string ToUtf8(const std::wstring& text, size_t* replaced = nullptr) {
    return ToUtf8(text.data(), text.size(), replaced);
}

// The offset of the first byte that is not part of well-formed UTF-8, or of the first NUL byte;
// npos when there is none.
size_t FindBadUtf8(std::string_view text) {
    return std::min(HOSTFindBadUtf8(text), text.find('\0'));
}

// The document's strings are well-formed (checked when read, made so when written).
std::wstring ToWide(const char* utf8) { return HOSTWidenUtf8(utf8); }

// --- Element names --------------------------------------------------------------------------------

// XML's name characters, without the colon.
bool IsNameStart(uint32_t c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || (c >= 0xC0 && c <= 0xD6) ||
           (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
           (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
           (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}
bool IsNameChar(uint32_t c) {
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

int HexDigit(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

// The length of the escape _xH..H_ (4 to 8 upper-case hexadecimal digits) at `name[i]`, and the
// character it stands for; 0 when there is none.
size_t ReadEscape(const std::wstring& name, size_t i, wchar_t& c) {
    if (name.compare(i, 2, L"_x") != 0) return 0;
    uint32_t value = 0;
    size_t digits = 0;
    for (int d; digits < 8 && i + 2 + digits < name.size() && (d = HexDigit(name[i + 2 + digits])) >= 0; ++digits)
        value = value << 4 | static_cast<uint32_t>(d);
    if (digits < 4 || i + 2 + digits >= name.size() || name[i + 2 + digits] != L'_') return 0;
    c = static_cast<wchar_t>(value);
    return digits + 3;
}

void AppendEscape(std::wstring& out, wchar_t c) {
    static const wchar_t kHex[] = L"0123456789ABCDEF";
    const uint32_t value = static_cast<uint32_t>(c);
    int digits = 4;
    while (digits < 8 && (value >> (4 * digits)) != 0) ++digits;
    out += L"_x";
    for (int d = digits - 1; d >= 0; --d) out += kHex[(value >> (4 * d)) & 0xF];
    out += L'_';
}

// A "_" followed by "x" is escaped too, so a literal "_" in the result is never followed by "x"
// and can never be taken for the start of an escape.
std::string EscapeName(const std::wstring& name) {
    if (name.empty()) return "_";
    if (name == L"_") return "_x005F_";
    std::wstring out;
    for (size_t i = 0; i < name.size(); ++i) {
        const uint32_t c = static_cast<uint32_t>(name[i]);
        const bool fits = i == 0 ? IsNameStart(c) : IsNameChar(c);
        if (!fits || (c == '_' && i + 1 < name.size() && name[i + 1] == L'x'))
            AppendEscape(out, name[i]);
        else
            out += name[i];
    }
    return ToUtf8(out);
}

std::wstring UnescapeName(const char* raw) {
    if (std::strcmp(raw, "_") == 0) return std::wstring();
    const std::wstring name = ToWide(raw);
    std::wstring out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size();) {
        wchar_t c;
        if (const size_t length = ReadEscape(name, i, c)) {
            out += c;
            i += length;
        } else {
            out += name[i++];
        }
    }
    return out;
}

// --- Elements -------------------------------------------------------------------------------------

pugi::xml_node Node(pugi::xml_node_struct* element) { return pugi::xml_node(element); }

pugi::xml_node FirstElement(pugi::xml_node parent) {
    pugi::xml_node child = parent.first_child();
    while (child && child.type() != pugi::node_element) child = child.next_sibling();
    return child;
}

pugi::xml_node ElementAfter(pugi::xml_node element) {
    pugi::xml_node next = element.next_sibling();
    while (next && next.type() != pugi::node_element) next = next.next_sibling();
    return next;
}

std::wstring NameOf(pugi::xml_node element) { return UnescapeName(element.name()); }

bool IsText(pugi::xml_node node) { return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata; }

class StringWriter final : public pugi::xml_writer {
public:
    explicit StringWriter(std::string& out) : m_Out(out) {}
    void write(const void* data, size_t size) override { m_Out.append(static_cast<const char*>(data), size); }

private:
    std::string& m_Out;
};

// An element's text: its text content when it has no child elements and `markup` is not asked
// for, else its inner markup.
std::wstring TextOf(pugi::xml_node element, bool markup) {
    std::string utf8;
    if (!markup && !FirstElement(element)) {
        for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling())
            if (IsText(child)) utf8 += child.value();
    } else {
        StringWriter writer(utf8);
        for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling())
            child.print(writer, "", pugi::format_raw, pugi::encoding_utf8);
    }
    return ToWide(utf8.c_str());
}

bool IsRoot(pugi::xml_node element) { return element.parent().type() == pugi::node_document; }

// Appends `text` to the element's text, extending its last text node when it ends with one.
bool AppendTo(pugi::xml_node element, const std::string& text) {
    if (text.empty()) return true;
    pugi::xml_node last = element.last_child();
    if (last.type() == pugi::node_pcdata) return last.set_value((std::string(last.value()) + text).c_str());
    pugi::xml_node added = element.append_child(pugi::node_pcdata);
    return added && added.set_value(text.c_str());
}

HRESULT CheckText(int32_t length, const void* text) {
    if (length < 0) return E_INVALIDARG;
    if (length > 0 && text == nullptr) return E_POINTER;
    return S_OK;
}

// "offset N (line L, column C)" for a byte offset into `text`; columns count bytes from 1.
std::string Where(std::string_view text, size_t offset) {
    if (offset > text.size()) offset = text.size();
    size_t line = 1, start = 0;
    for (size_t i = 0; i < offset; ++i)
        if (text[i] == '\n') ++line, start = i + 1;
    return "offset " + std::to_string(offset) + " (line " + std::to_string(line) + ", column " +
           std::to_string(offset - start + 1) + ")";
}

// Whether `text` holds a character reference (as the parser reads them: &#digits; or &#xhex;) to
// something that is no Unicode scalar value, U+0000 included, which the parser would write as a
// NUL that cuts the text short, or as bytes that are not UTF-8.
bool HasBadReference(const char* text) {
    for (const char* at = std::strstr(text, "&#"); at != nullptr; at = std::strstr(at + 1, "&#")) {
        const bool hex = at[2] == 'x';
        const char* digit = at + (hex ? 3 : 2);
        uint64_t value = 0;
        int count = 0;
        for (;; ++digit, ++count) {
            const char c = *digit;
            int d;
            if (c >= '0' && c <= '9')
                d = c - '0';
            else if (hex && ((c | ' ') >= 'a' && (c | ' ') <= 'f'))
                d = (c | ' ') - 'a' + 10;
            else
                break;
            value = std::min<uint64_t>(value * (hex ? 16 : 10) + static_cast<uint64_t>(d), 0x110000);
        }
        if (*digit == ';' && count > 0 && !IsScalar(static_cast<uint32_t>(value))) return true;
    }
    return false;
}

// The first node under `root`, in document order, whose text or attributes hold such a reference;
// empty when none. `root` comes from a parse that left references as they are written.
pugi::xml_node FindBadReference(pugi::xml_node root) {
    pugi::xml_node node = root;
    while (node) {
        if (node.type() == pugi::node_pcdata && HasBadReference(node.value())) return node;
        for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute())
            if (HasBadReference(a.value())) return node;
        if (node.first_child()) {
            node = node.first_child();
            continue;
        }
        while (node && node != root && !node.next_sibling()) node = node.parent();
        node = node == root ? pugi::xml_node() : node.next_sibling();
    }
    return pugi::xml_node();
}

// The problem with a parsed document's top level, with where it is; empty when it is one
// <wks version="1">.
std::string CheckRoot(const pugi::xml_document& xml, std::string_view utf8) {
    auto at = [&](const pugi::xml_node& node) {
        const ptrdiff_t offset = node.offset_debug();
        return " at " + Where(utf8, offset < 0 ? utf8.size() : static_cast<size_t>(offset));
    };
    int elements = 0;
    for (pugi::xml_node child = xml.first_child(); child; child = child.next_sibling()) {
        if (child.type() == pugi::node_element)
            ++elements;
        else if (child.type() == pugi::node_doctype)
            return "a document type declaration, whose entities would not be expanded," + at(child);
        else if (IsText(child))
            return "text outside the root element" + at(child);
    }
    if (elements == 0) return "no root element: a document holds one, <wks version=\"1\">" + at(pugi::xml_node());
    const pugi::xml_node root = xml.document_element();
    if (elements != 1) {
        pugi::xml_node second = root.next_sibling();
        while (second.type() != pugi::node_element) second = second.next_sibling();
        return std::to_string(elements) + " top-level elements: a document holds one, <wks version=\"1\">" + at(second);
    }
    if (std::strcmp(root.name(), kRootName) != 0) return "the root element is not <wks version=\"1\">" + at(root);
    const pugi::xml_attribute version = root.attribute("version");
    if (!version) return "the root element <wks> lacks version=\"1\"" + at(root);
    if (std::strcmp(version.value(), kVersion) != 0)
        return "a document of version \"" + std::string(version.value()) + "\", not \"1\"" + at(root);
    return std::string();
}

constexpr HOSTInterfaceEntry<CXmlStream> kInterfaces[] = {
    HOSTAnswer<CXmlStream, IXMLStream>(IID_IXMLStream),
    HOSTAnswer<CXmlStream, IXMLStream>(IID_IDataStream),
    HOSTAnswer<CXmlStream, IString>(IID_IString),
};

CXmlStream* Own(IXMLStream* stream) {
    void* self = nullptr;
    if (stream == nullptr || stream->QueryInterface(kSelf, &self) < 0 || self == nullptr) return nullptr;
    stream->Release();  // the caller's reference keeps it alive
    return static_cast<CXmlStream*>(static_cast<IXMLStream*>(self));
}

}  // namespace

CXmlStream::CXmlStream(std::shared_ptr<CXmlDocument> document, pugi::xml_node_struct* element)
    : m_Document(std::move(document)), m_Element(element), m_Current(element) {}

HRESULT CXmlStream::QueryInterface(const IID& iid, void** object) {
    if (object != nullptr && iid == kSelf) {
        *object = static_cast<IXMLStream*>(this);
        HostAddRef();
        return S_OK;
    }
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

// --- IDataStream ---------------------------------------------------------------------------------

HRESULT CXmlStream::Seek(int32_t, int32_t, int32_t) {
    m_Cursor = nullptr;
    return S_OK;
}

HRESULT CXmlStream::GetBuffer(void** data, int32_t* bytes) {
    if (data == nullptr || bytes == nullptr) return E_POINTER;
    *data = nullptr;
    *bytes = 0;
    return Guarded([&] {
        const std::wstring& text = Text();
        if (text.size() > INT32_MAX / sizeof(wchar_t)) return E_OUTOFMEMORY;
        *data = const_cast<wchar_t*>(text.c_str());
        *bytes = static_cast<int32_t>(text.size() * sizeof(wchar_t));
        return S_OK;
    });
}

HRESULT CXmlStream::Write(const void* bytes, int32_t byteCount, int32_t) {
    if (const HRESULT hr = CheckText(byteCount, bytes); hr < 0) return hr;
    return Guarded([&] {
        std::wstring text(static_cast<size_t>(byteCount) / sizeof(wchar_t), L'\0');
        if (!text.empty()) std::memcpy(&text[0], bytes, text.size() * sizeof(wchar_t));  // may be unaligned
        if (!AppendTo(Node(m_Current), ToUtf8(text, &m_Document->replaced))) return E_OUTOFMEMORY;
        ++m_Document->version;
        return S_OK;
    });
}

// --- IXMLStream: writing -------------------------------------------------------------------------

HRESULT CXmlStream::BeginElement(IString* name, int32_t, int32_t) {
    if (name == nullptr) return E_POINTER;
    return Guarded([&] {
        pugi::xml_node element = Node(m_Current).append_child(EscapeName(HOSTText(name)).c_str());
        if (!element) return E_OUTOFMEMORY;
        ++m_Document->version;
        m_Current = element.internal_object();
        m_Cursor = nullptr;
        return S_OK;
    });
}

HRESULT CXmlStream::BeginObjectElement(IUnknown* object, int32_t, int32_t) {
    if (object == nullptr) return E_POINTER;
    return Guarded([&] {
        std::wstring name;
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
        tagREFString text{0, nullptr};
        const bool named = info && info->GetName(0, &text) >= 0;
        if (named && text.text != nullptr && text.length > 0) name.assign(text.text, static_cast<size_t>(text.length));
        pugi::xml_node element = Node(m_Current).append_child(EscapeName(name).c_str());
        if (!element) return E_OUTOFMEMORY;
        ++m_Document->version;
        m_Current = element.internal_object();
        m_Cursor = nullptr;
        return named ? S_OK : S_FALSE;
    });
}

HRESULT CXmlStream::WriteElement(IString* name, int32_t, IString* text, int32_t) {
    if (name == nullptr) return E_POINTER;
    return Guarded([&] {
        pugi::xml_node element = Node(m_Current).append_child(EscapeName(HOSTText(name)).c_str());
        if (!element) return E_OUTOFMEMORY;
        ++m_Document->version;
        return AppendTo(element, ToUtf8(HOSTText(text), &m_Document->replaced)) ? S_OK : E_OUTOFMEMORY;
    });
}

HRESULT CXmlStream::EndElement() {
    if (m_Current == m_Element) return E_FAIL;  // nothing this stream opened is left open
    m_Current = Node(m_Current).parent().internal_object();
    m_Cursor = nullptr;
    return S_OK;
}

// --- IXMLStream: reading -------------------------------------------------------------------------

HRESULT CXmlStream::NextElement(tagREFString* name) {
    if (name == nullptr) return E_POINTER;
    *name = tagREFString{0, nullptr};
    return Guarded([&] {
        const pugi::xml_node next = m_Cursor ? ElementAfter(Node(m_Cursor)) : FirstElement(Node(m_Current));
        if (!next) return E_FAIL;
        m_Name = NameOf(next);
        m_Cursor = next.internal_object();
        *name = tagREFString{static_cast<int32_t>(m_Name.size()), m_Name.c_str()};
        return S_OK;
    });
}

pugi::xml_node_struct* CXmlStream::Find(const std::wstring& name) const {
    if (m_Cursor && NameOf(Node(m_Cursor)) == name) return m_Cursor;
    for (pugi::xml_node child = FirstElement(Node(m_Current)); child; child = ElementAfter(child))
        if (NameOf(child) == name) return child.internal_object();
    return nullptr;
}

HRESULT CXmlStream::OpenElement(int32_t nameLength, const wchar_t* name, tagREFString* text, IXMLStream** child,
                                int32_t) {
    if (text != nullptr) *text = tagREFString{0, nullptr};
    if (child != nullptr) *child = nullptr;
    if (const HRESULT hr = CheckText(nameLength, name); hr < 0) return hr;
    return Guarded([&] {
        // `name` may point at m_Name, from NextElement: copied before anything changes it.
        pugi::xml_node_struct* found = Find(std::wstring(name ? name : L"", static_cast<size_t>(nameLength)));
        if (found == nullptr) return E_FAIL;
        if (child == nullptr) {
            m_Scratch = TextOf(Node(found), false);
            if (text != nullptr) *text = tagREFString{static_cast<int32_t>(m_Scratch.size()), m_Scratch.c_str()};
            return S_OK;
        }
        CXmlStream* made = new (std::nothrow) CXmlStream(m_Document, found);
        if (made == nullptr) return E_OUTOFMEMORY;
        SmartPtr<IXMLStream> held(made);
        if (text != nullptr) {
            const std::wstring& content = made->Text();
            *text = tagREFString{static_cast<int32_t>(content.size()), content.c_str()};
        }
        *child = held.Detach();
        return S_OK;
    });
}

HRESULT CXmlStream::LoadObject(pugi::xml_node_struct* element, IUnknown** object) {
    // Objects that load objects from their own elements nest as deep as the document does: as
    // deep as folders may nest, and no deeper, so that a hostile document cannot exhaust the stack.
    static int depth = 0;
    if (depth >= kMaxObjectDepth) return E_FAIL;
    struct Nesting {
        Nesting() { ++depth; }
        ~Nesting() { --depth; }
    } nesting;
    const CREATORFUNCTION creator = HOSTFindComponent(NameOf(Node(element)));
    if (creator == nullptr) return E_FAIL;
    SmartPtr<IDataPersist> persist;
    if (creator(nullptr, &IID_IDataPersist, persist.OutVoid()) < 0 || !persist) return E_FAIL;
    CXmlStream* made = new (std::nothrow) CXmlStream(m_Document, element);
    if (made == nullptr) return E_OUTOFMEMORY;
    SmartPtr<IXMLStream> from(made);
    if (const HRESULT hr = persist->Load(from.get(), 0); hr < 0) return hr;
    return persist->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(object));
}

HRESULT CXmlStream::ReadContainedObject(IUnknown** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    return Guarded([&] {
        const pugi::xml_node first = FirstElement(Node(m_Current));
        return first ? LoadObject(first.internal_object(), object) : E_FAIL;
    });
}

HRESULT CXmlStream::ReadObject(int32_t nameLength, const wchar_t* name, IUnknown** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (const HRESULT hr = CheckText(nameLength, name); hr < 0) return hr;
    return Guarded([&] {
        pugi::xml_node_struct* found = Find(std::wstring(name ? name : L"", static_cast<size_t>(nameLength)));
        return found ? LoadObject(found, object) : E_FAIL;
    });
}

// --- IString -------------------------------------------------------------------------------------

const std::wstring& CXmlStream::Text() {
    if (m_TextVersion != m_Document->version) {
        const pugi::xml_node element = Node(m_Element);
        m_Text = TextOf(element, IsRoot(element));
        m_TextVersion = m_Document->version;
    }
    return m_Text;
}

HRESULT CXmlStream::GetText(wchar_t** text, int32_t* length) {
    if (text == nullptr || length == nullptr) return E_POINTER;
    *text = nullptr;
    *length = 0;
    return Guarded([&] {
        const std::wstring& content = Text();
        if (content.size() > INT32_MAX) return E_OUTOFMEMORY;
        *text = const_cast<wchar_t*>(content.c_str());
        *length = static_cast<int32_t>(content.size());
        return S_OK;
    });
}

HRESULT CXmlStream::SetText(int32_t length, const wchar_t* text) {
    if (const HRESULT hr = CheckText(length, text); hr < 0) return hr;
    pugi::xml_node element = Node(m_Element);
    if (FirstElement(element)) return E_FAIL;
    return Guarded([&] {
        const std::string utf8 = ToUtf8(text, static_cast<size_t>(length), &m_Document->replaced);
        while (element.first_child()) element.remove_child(element.first_child());  // text only: checked above
        ++m_Document->version;
        return AppendTo(element, utf8) ? S_OK : E_OUTOFMEMORY;
    });
}

HRESULT CXmlStream::AppendText(int32_t count, const wchar_t* chars) {
    if (const HRESULT hr = CheckText(count, chars); hr < 0) return hr;
    return Guarded([&] {
        if (!AppendTo(Node(m_Element), ToUtf8(chars, static_cast<size_t>(count), &m_Document->replaced)))
            return E_OUTOFMEMORY;
        ++m_Document->version;
        return S_OK;
    });
}

void CXmlStream::Save(std::string& utf8, size_t* replaced) const {
    if (replaced) *replaced = m_Document->replaced;
    utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    StringWriter writer(utf8);
    m_Document->xml.save(writer, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
}

// --- Host API ------------------------------------------------------------------------------------

IXMLStream* HOSTNewXMLStream() {
    IXMLStream* made = nullptr;
    Guarded([&] {
        auto document = std::make_shared<CXmlDocument>();
        pugi::xml_node root = document->xml.append_child(kRootName);
        if (!root || !root.append_attribute("version").set_value(kVersion)) return E_OUTOFMEMORY;
        made = new (std::nothrow) CXmlStream(std::move(document), root.internal_object());
        return S_OK;
    });
    return made;
}

bool HOSTXMLStreamToText(IXMLStream* stream, std::string& utf8, size_t* replaced) {
    CXmlStream* own = Own(stream);
    if (own == nullptr) return false;
    return Guarded([&] {
        own->Save(utf8, replaced);
        return S_OK;
    }) == S_OK;
}

namespace {

// Blanks beside child elements are layout, whatever wrote them (a reference such as &#32; too):
// they are dropped, so that the indented text written back reads back the same.
void DropLayoutBlanks(pugi::xml_document& document) {
    struct Collect : pugi::xml_tree_walker {
        std::vector<pugi::xml_node> blanks;
        bool for_each(pugi::xml_node& node) override {
            if (node.type() != pugi::node_pcdata || !node.parent().first_child().next_sibling()) return true;
            for (const char* c = node.value(); *c; ++c)
                if (*c != ' ' && *c != '\t' && *c != '\n' && *c != '\r') return true;
            for (pugi::xml_node sibling = node.parent().first_child(); sibling; sibling = sibling.next_sibling())
                if (sibling.type() == pugi::node_element) return blanks.push_back(node), true;
            return true;
        }
    } collect;
    document.traverse(collect);
    for (pugi::xml_node& blank : collect.blanks) blank.parent().remove_child(blank);
}

}  // namespace

IXMLStream* HOSTXMLStreamFromText(std::string_view utf8, std::string& problem) {
    IXMLStream* made = nullptr;
    problem.clear();
    const HRESULT hr = Guarded([&] {
        if (const size_t bad = FindBadUtf8(utf8); bad != std::string_view::npos) {
            problem = (utf8[bad] == 0 ? "a NUL byte at " : "malformed UTF-8 at ") + Where(utf8, bad);
            return E_FAIL;
        }
        auto document = std::make_shared<CXmlDocument>();
        const pugi::xml_parse_result parsed =
            document->xml.load_buffer(utf8.data(), utf8.size(), kParseOptions, pugi::encoding_utf8);
        if (!parsed) {
            problem = std::string(parsed.description()) + " at " + Where(utf8, static_cast<size_t>(parsed.offset));
            return E_FAIL;
        }
        problem = CheckRoot(document->xml, utf8);
        if (!problem.empty()) return E_FAIL;
        DropLayoutBlanks(document->xml);
        // The references, as written, from a second reading that leaves them alone.
        pugi::xml_document written;
        if (!written.load_buffer(utf8.data(), utf8.size(), kParseOptions & ~pugi::parse_escapes, pugi::encoding_utf8))
            return E_OUTOFMEMORY;  // the same text read once already: only memory can fail it
        if (const pugi::xml_node bad = FindBadReference(written)) {
            const ptrdiff_t at = bad.offset_debug();
            problem = "a character reference to U+0000, a surrogate or beyond U+10FFFF at " +
                      Where(utf8, at < 0 ? utf8.size() : static_cast<size_t>(at));
            return E_FAIL;
        }
        made = new (std::nothrow) CXmlStream(document, document->xml.document_element().internal_object());
        return made ? S_OK : E_OUTOFMEMORY;
    });
    if (hr == E_OUTOFMEMORY && problem.empty()) problem = "out of memory";
    return made;
}

HRESULT HOSTCreateXMLStream(void*, IID* iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid == nullptr) return E_INVALIDARG;
    IXMLStream* made = HOSTNewXMLStream();
    if (made == nullptr) return E_FAIL;
    const HRESULT hr = made->QueryInterface(*iid, object);
    made->Release();
    return hr;
}
