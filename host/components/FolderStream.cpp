#include "host/components/FolderStream.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <unordered_set>

#include <nlohmann/json.hpp>

#include "module/ValueType.h"
#include "host/kit/Files.h"
#include "host/collections/ComponentList.h"
#include "host/collections/ComponentRegistry.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"
#include "host/collections/Utf8.h"

namespace {

constexpr HOSTInterfaceEntry<CFolderStream> kFolderInterfaces[] = {
    HOSTAnswer<CFolderStream, IFolderStream>(IID_IFolderStream),
    HOSTAnswer<CFolderStream, IFolderStream>(IID_IDataStream),
    HOSTAnswer<CFolderStream, INamedCollection>(IID_INamedCollection),
    HOSTAnswer<CFolderStream, INamedCollection>(IID_ISimpleCollection),
};

// The size of a typed value of `type`, or 0 for a type that has no fixed-size number.
size_t TypedSize(int32_t type) {
    switch (type) {
        case VALUE_UINT8: return 1;
        case VALUE_INT16: return 2;
        case VALUE_INT32: return 4;
        case VALUE_FLOAT: return 4;
        case VALUE_DOUBLE: return 8;
        default: return 0;
    }
}

HRESULT FillVariant(const CFolderStream::Entry& entry, IVariant* variant) {
    switch (entry.value) {
        case CFolderStream::Value::kInteger: return variant->put_Integer(entry.integer);
        case CFolderStream::Value::kReal: return variant->put_Double(entry.real);
        case CFolderStream::Value::kEmpty: return variant->put_Object(nullptr);
        case CFolderStream::Value::kText: break;
    }
    SmartPtr<IString> text(HOSTNewString(entry.text.c_str(), static_cast<int32_t>(entry.text.size())));
    if (!text) return E_FAIL;
    return variant->put_String(text.get());
}

}  // namespace

// --- The folder ----------------------------------------------------------------------------------

HRESULT CFolderStream::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kFolderInterfaces>(this, iid, object);
}

HRESULT CFolderStream::GetBuffer(void** data, int32_t* bytes) {
    if (data == nullptr || bytes == nullptr) return E_POINTER;
    *data = nullptr;
    *bytes = 0;
    return E_NOTIMPL;
}

void CFolderStream::Put(Entry entry) {
    auto found = m_Index.find(entry.name);
    if (found != m_Index.end()) {
        m_Entries[found->second] = std::move(entry);
        return;
    }
    m_Index.emplace(entry.name, m_Entries.size());
    m_Entries.push_back(std::move(entry));
}

const CFolderStream::Entry* CFolderStream::Find(const std::wstring& name) const {
    auto found = m_Index.find(name);
    return found == m_Index.end() ? nullptr : &m_Entries[found->second];
}

HRESULT CFolderStream::Lookup(IString* name, Kind kind, const Entry** found) const {
    *found = nullptr;
    if (name == nullptr) return E_POINTER;
    const Entry* entry = Find(HOSTText(name));
    if (entry == nullptr) return E_FAIL;
    if (entry->kind != kind) return E_INVALIDARG;
    entry->read = true;
    *found = entry;
    return S_OK;
}

CFolderStream* CFolderStream::NewChild() const {
    if (m_Depth >= HOST_FOLDER_MAX_DEPTH) return nullptr;
    return new (std::nothrow) CFolderStream(m_Depth + 1);
}

HRESULT CFolderStream::OpenChild(IString* name, int32_t, IFolderStream** child) {
    if (child == nullptr) return E_POINTER;
    *child = nullptr;
    if (name == nullptr) return E_POINTER;
    std::wstring key = HOSTText(name);
    if (const Entry* found = Find(key); found && found->kind == Kind::kFolder) {
        found->read = true;
        *child = found->folder.Copy();
        return S_OK;
    }
    SmartPtr<CFolderStream> made(NewChild());
    if (!made) return E_FAIL;
    Entry entry;
    entry.name = std::move(key);
    entry.kind = Kind::kFolder;
    entry.folder = made;
    Put(std::move(entry));
    *child = made.Detach();
    return S_OK;
}

HRESULT CFolderStream::WriteBytes(IString* name, const void* data, int32_t byteCount, int32_t) {
    if (name == nullptr || (data == nullptr && byteCount > 0)) return E_POINTER;
    if (byteCount < 0) return E_INVALIDARG;
    Entry entry;
    entry.name = HOSTText(name);
    entry.kind = Kind::kBytes;
    entry.bytes.assign(static_cast<const char*>(data), static_cast<size_t>(byteCount));
    Put(std::move(entry));
    return S_OK;
}

HRESULT CFolderStream::WriteTyped(IString* name, const void* value, int32_t type) {
    if (name == nullptr || value == nullptr) return E_POINTER;
    const size_t size = TypedSize(type);
    if (size == 0) return E_INVALIDARG;
    Entry entry;
    entry.name = HOSTText(name);
    entry.kind = Kind::kTyped;
    entry.type = type;
    entry.bytes.assign(static_cast<const char*>(value), size);
    Put(std::move(entry));
    return S_OK;
}

HRESULT CFolderStream::WriteValue(IString* name, IUnknown* value) {
    if (name == nullptr || value == nullptr) return E_POINTER;
    Entry entry;
    entry.kind = Kind::kValue;
    if (SmartPtr<IVariant> variant = QueryAs<IVariant>(value, IID_IVariant)) {
        const int16_t number = variant->get_NumberType();
        if (variant->IsString()) {
            SmartPtr<IString> text;
            variant->get_String(text.Out());
            entry.value = Value::kText;
            entry.text = HOSTText(text.get());
        } else if (number == 1) {
            entry.value = Value::kInteger;
            entry.integer = variant->get_Integer();
        } else if (number != 0) {
            entry.value = Value::kReal;
            entry.real = variant->get_Double();
        } else if (variant->IsObject()) {
            return E_INVALIDARG;  // an object is no value: WriteObject stores objects
        }
    } else if (SmartPtr<IString> text = QueryAs<IString>(value, IID_IString)) {
        entry.value = Value::kText;
        entry.text = HOSTText(text.get());
    } else {
        return E_INVALIDARG;
    }
    entry.name = HOSTText(name);
    Put(std::move(entry));
    return S_OK;
}

HRESULT CFolderStream::WriteObject(IString* name, IUnknown* object, int32_t) {
    if (name == nullptr || object == nullptr) return E_POINTER;
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object, IID_IDataPersist);
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    tagREFString component{0, nullptr};
    if (!persist || !info || info->GetName(0, &component) < 0 || component.length <= 0 || component.text == nullptr)
        return E_INVALIDARG;
    Entry entry;
    entry.name = HOSTText(name);
    entry.kind = Kind::kObject;
    entry.text.assign(component.text, static_cast<size_t>(component.length));
    entry.folder.Attach(NewChild());
    if (!entry.folder) return E_FAIL;
    persist->Save(static_cast<IFolderStream*>(entry.folder.get()), 0);  // its result is not judged
    Put(std::move(entry));
    return S_OK;
}

HRESULT CFolderStream::ReadBytes(IString* name, void* data, int32_t byteCount, int32_t) {
    if (data == nullptr && byteCount > 0) return E_POINTER;
    if (byteCount < 0) return E_INVALIDARG;
    const Entry* entry = nullptr;
    if (const HRESULT hr = Lookup(name, Kind::kBytes, &entry); hr < 0) return hr;
    if (entry->bytes.size() != static_cast<size_t>(byteCount)) return entry->read = false, E_INVALIDARG;
    if (byteCount > 0) std::memcpy(data, entry->bytes.data(), entry->bytes.size());
    return S_OK;
}

HRESULT CFolderStream::ReadTyped(IString* name, void* value, int32_t type) {
    if (value == nullptr) return E_POINTER;
    const Entry* entry = nullptr;
    if (const HRESULT hr = Lookup(name, Kind::kTyped, &entry); hr < 0) return hr;
    if (entry->type != type) return entry->read = false, E_INVALIDARG;
    std::memcpy(value, entry->bytes.data(), entry->bytes.size());
    return S_OK;
}

HRESULT CFolderStream::ReadValue(IString* name, IUnknown* into) {
    if (into == nullptr) return E_POINTER;
    const Entry* found = nullptr;
    if (const HRESULT hr = Lookup(name, Kind::kValue, &found); hr < 0) return hr;
    const Entry entry = *found;  // the target's own code runs next
    if (SmartPtr<IVariant> variant = QueryAs<IVariant>(into, IID_IVariant)) return FillVariant(entry, variant.get());
    SmartPtr<IString> text = QueryAs<IString>(into, IID_IString);
    if (!text || entry.value == Value::kInteger || entry.value == Value::kReal) {
        if (const Entry* again = Find(entry.name)) again->read = false;  // a number is no text
        return E_INVALIDARG;
    }
    return text->SetText(static_cast<int32_t>(entry.text.size()), entry.text.c_str());
}

HRESULT CFolderStream::OpenChildAt(IVariant* key, int32_t, IFolderStream** child) {
    if (child == nullptr || key == nullptr) return E_POINTER;
    *child = nullptr;
    if (key->get_NumberType() != 1) return E_INVALIDARG;
    int32_t wanted = key->get_Integer();
    if (wanted < 0) return E_FAIL;
    for (const Entry& entry : m_Entries) {
        if (entry.kind != Kind::kFolder || wanted-- > 0) continue;
        entry.read = true;
        *child = entry.folder.Copy();
        return S_OK;
    }
    return E_FAIL;
}

HRESULT CFolderStream::ReadObject(IString* name, IUnknown** object, int32_t) {
    if (object == nullptr) return E_POINTER;
    const Entry* entry = nullptr;
    if (const HRESULT hr = Lookup(name, Kind::kObject, &entry); hr < 0) return hr;
    // Loading runs the object's code, which may reach this folder: keep what it needs first.
    SmartPtr<CFolderStream> folder = entry->folder;
    IDataStream* stream = static_cast<IFolderStream*>(folder.get());
    // An object that cannot be made or loaded leaves its entry unread (found again by name: the
    // object's code may have changed this folder).
    const std::wstring key = entry->name;
    auto unread = [&](HRESULT hr) {
        if (const Entry* again = Find(key)) again->read = false;
        return hr;
    };
    // An entry naming a component nobody makes was not written by a save (an edit, another
    // product's file): it is refused even where an object would load in place, so that it is named.
    CREATORFUNCTION creator = HOSTFindComponent(entry->text);
    if (creator == nullptr) return unread(E_FAIL);
    if (SmartPtr<IDataPersist> place = QueryAs<IDataPersist>(*object, IID_IDataPersist)) {
        const HRESULT hr = place->Load(stream, 0);
        return hr < 0 ? unread(hr) : S_OK;
    }
    IID unknown = IID_IUnknown;
    SmartPtr<IUnknown> made;
    if (creator(nullptr, &unknown, made.OutVoid()) < 0 || !made) return unread(E_FAIL);
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(made.get(), IID_IDataPersist);
    if (!persist) return unread(E_FAIL);
    if (const HRESULT hr = persist->Load(stream, 0); hr < 0) return unread(hr);
    if (*object) (*object)->Release();
    *object = made.Detach();
    return S_OK;
}

HRESULT CFolderStream::get_Count(int32_t* count) {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<int32_t>(m_Entries.size());
    return S_OK;
}

HRESULT CFolderStream::get_Item(int32_t index, IUnknown** item) {
    if (item == nullptr) return E_POINTER;
    *item = nullptr;
    if (index < 0 || static_cast<size_t>(index) >= m_Entries.size()) return E_INVALIDARG;
    const Entry& entry = m_Entries[static_cast<size_t>(index)];
    if (entry.folder) {
        entry.read = true;
        *item = static_cast<IFolderStream*>(entry.folder.Copy());
        return S_OK;
    }
    if (entry.kind != Kind::kValue) return E_FAIL;
    SmartPtr<IVariant> variant;
    if (HOSTCreateVariant(nullptr, &IID_IVariant, variant.OutVoid()) < 0 || !variant) return E_FAIL;
    if (const HRESULT hr = FillVariant(entry, variant.get()); hr < 0) return hr;
    entry.read = true;
    *item = variant.Detach();
    return S_OK;
}

HRESULT CFolderStream::get_Index(IUnknown* key, int32_t* index) {
    if (index == nullptr) return E_POINTER;
    *index = -1;
    SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
    if (!name) return E_INVALIDARG;
    auto found = m_Index.find(HOSTText(name.get()));
    if (found == m_Index.end()) return E_FAIL;
    *index = static_cast<int32_t>(found->second);
    return S_OK;
}

HRESULT CFolderStream::get_ItemName(int32_t index, IString** name) {
    if (name == nullptr) return E_POINTER;
    *name = nullptr;
    if (index < 0 || static_cast<size_t>(index) >= m_Entries.size()) return E_INVALIDARG;
    const std::wstring& text = m_Entries[static_cast<size_t>(index)].name;
    *name = HOSTNewString(text.c_str(), static_cast<int32_t>(text.size()));
    return *name ? S_OK : E_FAIL;
}

HRESULT CFolderStream::Rename(int32_t index, IString* name) {
    if (name == nullptr) return E_POINTER;
    if (index < 0 || static_cast<size_t>(index) >= m_Entries.size()) return E_INVALIDARG;
    std::wstring text = HOSTText(name);
    Entry& entry = m_Entries[static_cast<size_t>(index)];
    if (text == entry.name) return S_OK;
    if (m_Index.count(text) != 0) return E_FAIL;
    m_Index.erase(entry.name);
    m_Index.emplace(text, static_cast<size_t>(index));
    entry.name = std::move(text);
    return S_OK;
}

HRESULT HOSTCreateFolderStream(void*, IID* iid, void** object) { return HOSTCreate<CFolderStream>(iid, object); }

IFolderStream* HOSTNewFolderStream() { return new (std::nothrow) CFolderStream(); }

// --- The text form -------------------------------------------------------------------------------

namespace {

// Entries keep their keys in the order written, so that "name" leads.
using Json = nlohmann::ordered_json;

constexpr const char kFormat[] = "wks-folder";
constexpr int kVersion = 1;
// The JSON nesting that folders of the deepest allowed level need, with room to spare; deeper input
// is refused while it is read, before a tree is built for it.
constexpr int kJsonDepthLimit = 2 * HOST_FOLDER_MAX_DEPTH + 8;

// UTF-8 of a wide text; false when it holds a surrogate or a value beyond U+10FFFF.
bool ToUtf8(const std::wstring& wide, std::string& out) { return HOSTEncodeUtf8(wide, out); }

// The wide text of well-formed UTF-8: shortest forms only, no surrogates, nothing beyond U+10FFFF.
bool FromUtf8(const std::string& bytes, std::wstring& out) { return HOSTDecodeUtf8(bytes, out); }

Json RealToJson(double real) {
    if (std::isnan(real)) return std::signbit(real) ? "-nan" : "nan";
    if (std::isinf(real)) return real < 0 ? "-inf" : "inf";
    return real;
}

// --- Writing --

bool EntriesToJson(const CFolderStream& folder, Json& list) {
    static const char kHex[] = "0123456789abcdef";
    list = Json::array();
    for (const CFolderStream::Entry& entry : folder.Entries()) {
        Json item = Json::object();
        std::string text;
        if (!ToUtf8(entry.name, text)) return false;
        item["name"] = text;
        switch (entry.kind) {
            case CFolderStream::Kind::kBytes: {
                std::string hex;
                hex.reserve(entry.bytes.size() * 2);
                for (unsigned char byte : entry.bytes) {
                    hex += kHex[byte >> 4];
                    hex += kHex[byte & 0x0F];
                }
                item["bytes"] = std::move(hex);
                break;
            }
            case CFolderStream::Kind::kTyped: {
                item["typed"] = entry.type;
                const char* bytes = entry.bytes.data();
                if (entry.type == VALUE_UINT8) {
                    item["value"] = static_cast<uint8_t>(bytes[0]);
                } else if (entry.type == VALUE_INT16) {
                    int16_t number;
                    std::memcpy(&number, bytes, sizeof number);
                    item["value"] = number;
                } else if (entry.type == VALUE_INT32) {
                    int32_t number;
                    std::memcpy(&number, bytes, sizeof number);
                    item["value"] = number;
                } else if (entry.type == VALUE_FLOAT) {
                    float number;
                    std::memcpy(&number, bytes, sizeof number);
                    item["value"] = RealToJson(number);
                } else {
                    double number;
                    std::memcpy(&number, bytes, sizeof number);
                    item["value"] = RealToJson(number);
                }
                break;
            }
            case CFolderStream::Kind::kValue:
                switch (entry.value) {
                    case CFolderStream::Value::kEmpty: item["empty"] = true; break;
                    case CFolderStream::Value::kInteger: item["integer"] = entry.integer; break;
                    case CFolderStream::Value::kReal: item["real"] = RealToJson(entry.real); break;
                    case CFolderStream::Value::kText:
                        if (!ToUtf8(entry.text, text)) return false;
                        item["string"] = text;
                        break;
                }
                break;
            case CFolderStream::Kind::kObject:
                if (!ToUtf8(entry.text, text)) return false;
                item["object"] = text;
                [[fallthrough]];
            case CFolderStream::Kind::kFolder: {
                Json children;
                if (!EntriesToJson(*entry.folder.get(), children)) return false;
                item["folder"] = std::move(children);
                break;
            }
        }
        list.push_back(std::move(item));
    }
    return true;
}

// --- Reading --

// Thrown inside the reader with the problem's text; the API catches it.
struct Refusal {
    std::string problem;
};

// A text fit for one line of a problem: control characters become '?'; with `ascii`, so do bytes
// beyond ASCII (the parser quotes input as it found it, which may be invalid UTF-8).
std::string OneLine(std::string text, bool ascii = false) {
    for (char& c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || (ascii && byte >= 0x80)) c = '?';
    }
    return text;
}

[[noreturn]] void Refuse(const std::string& path, const std::string& problem) {
    throw Refusal{path.empty() ? problem : "entry " + OneLine(path) + ": " + problem};
}

// A 32-bit integer from `value` within [low, high]; false for anything else.
bool IntegerIn(const Json& value, int64_t low, int64_t high, int64_t& out) {
    if (value.is_number_unsigned()) {
        const uint64_t number = value.get<uint64_t>();
        if (number > static_cast<uint64_t>(high)) return false;
        out = static_cast<int64_t>(number);
        return out >= low;
    }
    if (!value.is_number_integer()) return false;
    out = value.get<int64_t>();
    return out >= low && out <= high;
}

// A number, or one of the texts that stand for NaN and the infinities.
bool RealFrom(const Json& value, double& out) {
    if (value.is_number()) {
        out = value.get<double>();
        return true;
    }
    if (!value.is_string()) return false;
    const std::string& text = value.get_ref<const std::string&>();
    if (text == "nan" || text == "-nan") {
        out = std::copysign(std::numeric_limits<double>::quiet_NaN(), text[0] == '-' ? -1.0 : 1.0);
    } else if (text == "inf" || text == "-inf") {
        out = text[0] == '-' ? -HUGE_VAL : HUGE_VAL;
    } else {
        return false;
    }
    return true;
}

bool HexDigit(char c, uint8_t& digit) {
    if (c >= '0' && c <= '9') digit = static_cast<uint8_t>(c - '0');
    else if (c >= 'a' && c <= 'f') digit = static_cast<uint8_t>(c - 'a' + 10);
    else return false;
    return true;
}

std::wstring TextOf(const Json& value, const std::string& path, const char* key) {
    std::wstring wide;
    if (!value.is_string()) Refuse(path, std::string("\"") + key + "\" is not a string");
    if (!FromUtf8(value.get_ref<const std::string&>(), wide)) Refuse(path, std::string("\"") + key + "\" is not valid UTF-8");
    return wide;
}

void ReadEntries(const Json& list, CFolderStream& folder, const std::string& path);

// One entry of `folder`: its name, then exactly the keys of one kind.
void ReadEntry(const Json& item, size_t position, CFolderStream& folder, const std::string& parent) {
    const std::string at = (parent.empty() ? "" : parent + "/") + "#" + std::to_string(position);
    if (!item.is_object()) Refuse(at, "not an object");
    static const char* const kKeys[] = {"name", "bytes", "typed", "value", "string", "integer", "real", "empty", "folder", "object"};
    for (const auto& element : item.items()) {
        bool known = false;
        for (const char* name : kKeys) known = known || element.key() == name;
        if (!known) Refuse(at, "unknown key \"" + OneLine(element.key()) + "\"");
    }
    if (!item.contains("name")) Refuse(at, "\"name\" is missing");
    CFolderStream::Entry entry;
    entry.name = TextOf(item["name"], at, "name");
    const std::string path = (parent.empty() ? "" : parent + "/") + item["name"].get_ref<const std::string&>();
    if (folder.Find(entry.name) != nullptr) Refuse(path, "the name is repeated in its folder");

    // The kind: "object" and "typed" take a second key ("folder", "value"); the others stand alone.
    const char* kind = nullptr;
    const char* second = nullptr;
    if (item.contains("object")) kind = "object", second = "folder";
    else if (item.contains("typed")) kind = "typed", second = "value";
    else
        for (const char* single : {"bytes", "string", "integer", "real", "empty", "folder"})
            if (kind == nullptr && item.contains(single)) kind = single;
    if (kind == nullptr) Refuse(path, "no kind of entry (bytes, typed, string, integer, real, empty, folder or object)");
    if (second != nullptr && !item.contains(second)) Refuse(path, std::string("\"") + kind + "\" needs \"" + second + "\"");
    if (item.size() != (second ? 3u : 2u)) Refuse(path, "keys of more than one kind of entry");
    const Json& content = item[kind];
    const std::string which(kind);

    if (which == "bytes") {
        if (!content.is_string()) Refuse(path, "\"bytes\" is not a string");
        const std::string& hex = content.get_ref<const std::string&>();
        if (hex.size() % 2 != 0 || hex.size() / 2 > static_cast<size_t>(INT32_MAX))
            Refuse(path, "\"bytes\" is not lowercase hexadecimal, two digits a byte");
        entry.kind = CFolderStream::Kind::kBytes;
        entry.bytes.reserve(hex.size() / 2);
        for (size_t i = 0; i < hex.size(); i += 2) {
            uint8_t high = 0, low = 0;
            if (!HexDigit(hex[i], high) || !HexDigit(hex[i + 1], low))
                Refuse(path, "\"bytes\" is not lowercase hexadecimal, two digits a byte");
            entry.bytes += static_cast<char>((high << 4) | low);
        }
    } else if (which == "typed") {
        int64_t type = 0;
        if (!IntegerIn(content, VALUE_UINT8, VALUE_DOUBLE, type)) Refuse(path, "\"typed\" is not a value type from 1 to 5");
        entry.kind = CFolderStream::Kind::kTyped;
        entry.type = static_cast<int32_t>(type);
        const Json& value = item["value"];
        int64_t number = 0;
        double real = 0;
        const char* wrong = "\"value\" is out of range for its type";
        if (type == VALUE_UINT8) {
            if (!IntegerIn(value, 0, UINT8_MAX, number)) Refuse(path, wrong);
            const uint8_t held = static_cast<uint8_t>(number);
            entry.bytes.assign(reinterpret_cast<const char*>(&held), sizeof held);
        } else if (type == VALUE_INT16) {
            if (!IntegerIn(value, INT16_MIN, INT16_MAX, number)) Refuse(path, wrong);
            const int16_t held = static_cast<int16_t>(number);
            entry.bytes.assign(reinterpret_cast<const char*>(&held), sizeof held);
        } else if (type == VALUE_INT32) {
            if (!IntegerIn(value, INT32_MIN, INT32_MAX, number)) Refuse(path, wrong);
            const int32_t held = static_cast<int32_t>(number);
            entry.bytes.assign(reinterpret_cast<const char*>(&held), sizeof held);
        } else if (type == VALUE_FLOAT) {
            if (!RealFrom(value, real) || (std::isfinite(real) && std::fabs(real) > std::numeric_limits<float>::max()))
                Refuse(path, wrong);
            const float held = static_cast<float>(real);
            entry.bytes.assign(reinterpret_cast<const char*>(&held), sizeof held);
        } else {
            if (!RealFrom(value, real)) Refuse(path, wrong);
            entry.bytes.assign(reinterpret_cast<const char*>(&real), sizeof real);
        }
    } else if (which == "string") {
        entry.kind = CFolderStream::Kind::kValue;
        entry.value = CFolderStream::Value::kText;
        entry.text = TextOf(content, path, "string");
    } else if (which == "integer") {
        int64_t number = 0;
        if (!IntegerIn(content, INT32_MIN, INT32_MAX, number)) Refuse(path, "\"integer\" is not a 32-bit integer");
        entry.kind = CFolderStream::Kind::kValue;
        entry.value = CFolderStream::Value::kInteger;
        entry.integer = static_cast<int32_t>(number);
    } else if (which == "real") {
        if (!RealFrom(content, entry.real)) Refuse(path, "\"real\" is not a number, \"nan\", \"-nan\", \"inf\" or \"-inf\"");
        entry.kind = CFolderStream::Kind::kValue;
        entry.value = CFolderStream::Value::kReal;
    } else if (which == "empty") {
        if (content != true) Refuse(path, "\"empty\" is not true");
        entry.kind = CFolderStream::Kind::kValue;
        entry.value = CFolderStream::Value::kEmpty;
    } else {  // "folder" or "object"
        entry.kind = which == "object" ? CFolderStream::Kind::kObject : CFolderStream::Kind::kFolder;
        if (which == "object") {
            entry.text = TextOf(content, path, "object");
            if (entry.text.empty()) Refuse(path, "\"object\" is empty");
        }
        if (folder.Depth() >= HOST_FOLDER_MAX_DEPTH)
            Refuse(path, "folders nest deeper than " + std::to_string(HOST_FOLDER_MAX_DEPTH) + " levels");
        entry.folder.Attach(new (std::nothrow) CFolderStream(folder.Depth() + 1));
        if (!entry.folder) throw Refusal{"out of memory"};
        ReadEntries(item["folder"], *entry.folder.get(), path);
    }
    folder.Put(std::move(entry));
}

void ReadEntries(const Json& list, CFolderStream& folder, const std::string& path) {
    if (!list.is_array()) Refuse(path, path.empty() ? "\"entries\" is not an array" : "\"folder\" is not an array");
    for (size_t i = 0; i < list.size(); ++i) ReadEntry(list[i], i, folder, path);
}

// The JSON value of `text`; refuses a key repeated within one object (which the parser would
// otherwise take the last of) and nesting beyond the limit while parsing.
Json Parse(std::string_view text) {
    std::vector<std::unordered_set<std::string>> keys;  // of the objects open now, innermost last
    Json::parser_callback_t check = [&keys](int depth, Json::parse_event_t event, Json& parsed) {
        switch (event) {
            case Json::parse_event_t::object_start:
            case Json::parse_event_t::array_start:
                if (depth >= kJsonDepthLimit) throw Refusal{"values nest deeper than the format allows"};
                if (event == Json::parse_event_t::object_start) keys.emplace_back();
                break;
            case Json::parse_event_t::object_end:
                keys.pop_back();
                break;
            case Json::parse_event_t::key:
                if (!keys.back().insert(parsed.get<std::string>()).second)
                    throw Refusal{"key \"" + OneLine(parsed.get<std::string>()) + "\" is repeated in an object"};
                break;
            default:
                break;
        }
        return true;
    };
    return Json::parse(text.begin(), text.end(), check);
}

// nlohmann's message without its "[json.exception...] " tag and, for a syntax error, with the
// position first: "line 3, column 7: syntax error ...".
std::string ParserProblem(const char* what) {
    std::string text(what);
    if (size_t tag = text.find("] "); text.rfind("[json.exception.", 0) == 0 && tag != std::string::npos) text.erase(0, tag + 2);
    if (text.rfind("parse error at ", 0) == 0) text.erase(0, 15);
    return OneLine(text, true);
}

}  // namespace

bool HOSTFolderStreamToText(IFolderStream* folder, std::string& text) {
    const CFolderStream* own = dynamic_cast<CFolderStream*>(folder);
    if (own == nullptr) return false;
    try {
        Json document = Json::object();
        document["format"] = kFormat;
        document["version"] = kVersion;
        Json entries;
        if (!EntriesToJson(*own, entries)) return false;
        document["entries"] = std::move(entries);
        std::string written = document.dump(2);
        written += '\n';
        text = std::move(written);
        return true;
    } catch (...) {  // out of memory while writing
        return false;
    }
}

namespace {

void CollectUnread(const CFolderStream& folder, const std::wstring& prefix, std::vector<std::wstring>& paths) {
    for (const CFolderStream::Entry& entry : folder.Entries()) {
        if (!entry.read) paths.push_back(prefix + entry.name);
        else if (entry.folder) CollectUnread(*entry.folder.get(), prefix + entry.name + L"/", paths);
    }
}

}  // namespace

std::vector<std::wstring> HOSTFolderStreamUnread(IFolderStream* folder) {
    std::vector<std::wstring> paths;
    if (const CFolderStream* own = dynamic_cast<CFolderStream*>(folder)) CollectUnread(*own, std::wstring(), paths);
    return paths;
}

IFolderStream* HOSTFolderStreamFromText(std::string_view text, std::string& problem) {
    try {
        // Another kind of file altogether (a picture, a workspace) is named as such, not by the
        // parser's complaint about its first character.
        // (A byte order mark an editor put first is the parser's to pass over.)
        const std::string_view body = WithoutByteOrderMark(text);
        const size_t first = body.find_first_not_of(" \t\r\n");
        if (first == std::string_view::npos) Refuse("", "the text is empty");
        if (body[first] != '{') {
            const unsigned char c = static_cast<unsigned char>(body[first]);
            char shown[16];
            std::snprintf(shown, sizeof shown, c > 0x20 && c < 0x7F ? "'%c'" : "byte 0x%02X", c);
            Refuse("", std::string("the text is not a JSON object: it begins with ") + shown);
        }
        const Json document = Parse(text);
        if (!document.is_object()) Refuse("", "the text is not a JSON object");
        for (const auto& element : document.items())
            if (element.key() != "format" && element.key() != "version" && element.key() != "entries")
                Refuse("", "unknown key \"" + OneLine(element.key()) + "\"");
        for (const char* key : {"format", "version", "entries"})
            if (!document.contains(key)) Refuse("", std::string("\"") + key + "\" is missing");
        if (document["format"] != kFormat) Refuse("", "\"format\" is not \"wks-folder\"");
        if (!document["version"].is_number_integer() || document["version"] != kVersion)
            Refuse("", "version " + OneLine(document["version"].dump()) + " is not known: this host reads version 1");
        SmartPtr<CFolderStream> root(new (std::nothrow) CFolderStream());
        if (!root) throw Refusal{"out of memory"};
        ReadEntries(document["entries"], *root.get(), "");
        problem.clear();
        return static_cast<IFolderStream*>(root.Detach());
    } catch (const Refusal& refusal) {
        problem = refusal.problem;
    } catch (const Json::exception& error) {
        problem = ParserProblem(error.what());
    } catch (const std::bad_alloc&) {
        problem = "out of memory";
    } catch (...) {
        problem = "the text cannot be read";
    }
    return nullptr;
}
