#include "host/components/PersistFields.h"

#include <climits>
#include <string>

#include "host/collections/HostString.h"

namespace {

constexpr int32_t kTypeInt32 = 3;

SmartPtr<IString> String(const std::wstring& text) {
    return SmartPtr<IString>(HOSTNewString(text.c_str(), static_cast<int32_t>(text.size())));
}

}  // namespace

CFields::CFields(IDataStream* stream)
    : m_Folder(QueryAs<IFolderStream>(stream, IID_IFolderStream)),
      m_Xml(m_Folder ? SmartPtr<IXMLStream>() : QueryAs<IXMLStream>(stream, IID_IXMLStream)) {}

CFields::~CFields() {
    if (m_CloseElement && m_Xml) m_Xml->EndElement();
}

void CFields::WriteInteger(const wchar_t* name, int32_t value) {
    if (m_Folder) m_Folder->WriteTyped(String(name).get(), &value, kTypeInt32);
    else if (m_Xml) m_Xml->WriteElement(String(name).get(), 0, String(std::to_wstring(value)).get(), 0);
}

void CFields::WriteBytes(const wchar_t* name, const void* bytes, int32_t count) {
    if (m_Folder) {
        m_Folder->WriteBytes(String(name).get(), bytes, count, 0);
    } else if (m_Xml) {
        static const wchar_t kHex[] = L"0123456789abcdef";
        std::wstring text;
        for (int32_t i = 0; i < count; ++i) {
            const uint8_t byte = static_cast<const uint8_t*>(bytes)[i];
            text += kHex[byte >> 4];
            text += kHex[byte & 15];
        }
        m_Xml->WriteElement(String(name).get(), 0, String(text).get(), 0);
    }
}

void CFields::WriteText(const wchar_t* name, const std::wstring& text) {
    if (m_Folder) m_Folder->WriteValue(String(name).get(), String(text).get());
    else if (m_Xml) m_Xml->WriteElement(String(name).get(), 0, String(text).get(), 0);
}

void CFields::WriteObject(const wchar_t* name, IUnknown* object) {
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object, IID_IDataPersist);
    if (!persist || !QueryAs<IObjectInfo>(object, IID_IObjectInfo)) return;
    if (m_Folder) {
        m_Folder->WriteObject(String(name).get(), object, 0);
    } else if (m_Xml && m_Xml->BeginElement(String(name).get(), 0, 0) >= 0) {
        if (m_Xml->BeginObjectElement(object, 0, 0) >= 0) {
            persist->Save(m_Xml.get(), 0);
            m_Xml->EndElement();
        }
        m_Xml->EndElement();
    }
}

CFields CFields::WriteGroup(const std::wstring& name) {
    CFields group;
    if (m_Folder) {
        m_Folder->OpenChild(String(name).get(), 0, group.m_Folder.Out());
    } else if (m_Xml && m_Xml->BeginElement(String(name).get(), 0, 0) >= 0) {
        group.m_Xml = m_Xml;
        group.m_CloseElement = true;
    }
    return group;
}

SmartPtr<IXMLStream> CFields::XmlElement(const std::wstring& name, std::wstring* text) {
    SmartPtr<IXMLStream> child;
    tagREFString content{0, nullptr};
    if (!m_Xml || m_Xml->OpenElement(static_cast<int32_t>(name.size()), name.c_str(), text ? &content : nullptr,
                                     child.Out(), 1) < 0)
        return SmartPtr<IXMLStream>();
    if (text != nullptr) text->assign(content.text ? content.text : L"", content.text ? content.length : 0);
    return child;
}

bool CFields::ReadInteger(const wchar_t* name, int32_t& value) {
    if (m_Folder) return m_Folder->ReadTyped(String(name).get(), &value, kTypeInt32) >= 0;
    std::wstring text;
    if (!XmlElement(name, &text)) return false;
    // Decimal, in the range of 32 bits, nothing else.
    size_t used = 0;
    try {
        const long long read = std::stoll(text, &used, 10);
        if (used != text.size() || read < INT32_MIN || read > INT32_MAX) return false;
        value = static_cast<int32_t>(read);
    } catch (...) {
        return false;
    }
    return true;
}

bool CFields::ReadBytes(const wchar_t* name, void* bytes, int32_t count) {
    if (m_Folder) return m_Folder->ReadBytes(String(name).get(), bytes, count, 0) >= 0;
    std::wstring text;
    if (!XmlElement(name, &text) || text.size() != 2 * static_cast<size_t>(count)) return false;
    auto digit = [](wchar_t c) { return c >= L'0' && c <= L'9' ? c - L'0' : c >= L'a' && c <= L'f' ? c - L'a' + 10 : -1; };
    std::string read(static_cast<size_t>(count), '\0');
    for (int32_t i = 0; i < count; ++i) {
        const int high = digit(text[2 * i]), low = digit(text[2 * i + 1]);
        if (high < 0 || low < 0) return false;
        read[i] = static_cast<char>(high << 4 | low);
    }
    read.copy(static_cast<char*>(bytes), read.size());
    return true;
}

bool CFields::ReadText(const wchar_t* name, std::wstring& text) {
    if (m_Xml) return static_cast<bool>(XmlElement(name, &text));
    SmartPtr<IString> read(HOSTNewString(L""));
    if (!m_Folder || !read || m_Folder->ReadValue(String(name).get(), read.get()) < 0) return false;
    text = HOSTText(read.get());
    return true;
}

SmartPtr<IUnknown> CFields::ReadObject(const wchar_t* name) {
    SmartPtr<IUnknown> object;
    if (m_Folder) {
        m_Folder->ReadObject(String(name).get(), object.Out(), 0);
    } else if (SmartPtr<IXMLStream> element = XmlElement(name, nullptr)) {
        element->ReadContainedObject(object.Out());
    }
    return object;
}

CFields CFields::ReadGroup(const std::wstring& name) {
    CFields group;
    if (m_Xml) {
        group.m_Xml = XmlElement(name, nullptr);
    } else if (SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(m_Folder.get(), IID_INamedCollection)) {
        int32_t index = -1;
        SmartPtr<IUnknown> entry;
        if (entries->get_Index(String(name).get(), &index) >= 0 && entries->get_Item(index, entry.Out()) >= 0)
            group.m_Folder = QueryAs<IFolderStream>(entry.get(), IID_IFolderStream);
    }
    return group;
}
