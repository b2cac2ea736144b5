// IUIPropInterrogateImpl<T, I, N>: a table of typed setting items through which a generic property
// page reads and writes the owner's variables.
#pragma once

#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "module/Module.h"
#include "module/SmartPtr.h"
#include "module/ValueType.h"
#include "module/interfaces/Component.h"
#include "text/Conversions.h"
#include "text/FileName.h"
#include "text/MarkupScan.h"
#include "text/RefString.h"

constexpr int32_t UIPROP_TABLE_ID = 0x2000000;  // addresses the table as a whole
constexpr uint16_t UIPROP_RANGE = 0;
constexpr uint16_t UIPROP_ENUMERATION = 2;
constexpr uint32_t UIPROP_COLOR = 0x20;
constexpr uint32_t UIPROP_FILENAME = 0x100;
constexpr uint32_t UIPROP_TRANSIENT = 0x04000000;

struct PROPERTYITEM {
    int32_t ID;
    uint32_t Flags;  // bits 0-3: the value type; the rest pass through to the page
    void* Value;     // the owner's variable; not owned
    uint16_t Kind;   // UIPROP_RANGE or UIPROP_ENUMERATION
    union {
        struct {
            int32_t Minimum;
            int32_t Maximum;
        };
        IUnknown* Enumeration;  // one reference, when Kind is UIPROP_ENUMERATION
    };
};

// Value types: 1 unsigned 8-bit, 2 signed 16-bit, 3 signed 32-bit, 4 single real, 5 double real,
// 6 IString*, 7 IUnknown*, 8 none (reads 0), 9 and 10-15 interface or none (refused). Reals cross
// Inquire/Control as the bit pattern of a single-precision real inside the integer.
// The persistence slots are declared by IUIPropInterrogatePersist, which hosts call by position.
template <class T, class I, int N>
class IUIPropInterrogateImpl : public IUIPropInterrogatePersist {
    static_assert(std::is_base_of_v<I, IUIPropInterrogatePersist>, "the table's slots 3-8 are IUIPropInterrogateEx's");

public:
    HRESULT Inquire(int32_t id, int32_t* value) override {  // slot 3
        if (id == UIPROP_TABLE_ID) {
            if (value == nullptr) return E_POINTER;  // a caller's error: refused rather than written through
            *value = m_ItemCount;
            return S_OK;
        }
        PROPERTYITEM* item = Find(id);
        if (item == nullptr) return E_INVALIDARG;
        const HRESULT flags = static_cast<HRESULT>(item->Flags);
        if (value == nullptr || item->Value == nullptr) return flags;
        switch (ValueTypeOf(static_cast<int32_t>(item->Flags))) {
            case VALUE_UINT8: *value = *static_cast<uint8_t*>(item->Value); return flags;
            case VALUE_INT16: *value = *static_cast<int16_t*>(item->Value); return flags;
            case VALUE_INT32: *value = *static_cast<int32_t*>(item->Value); return flags;
            case VALUE_FLOAT: std::memcpy(value, item->Value, 4); return flags;
            case VALUE_DOUBLE: {
                const float narrowed = static_cast<float>(*static_cast<double*>(item->Value));
                std::memcpy(value, &narrowed, 4);
                return flags;
            }
            case VALUE_NONE: *value = 0; return flags;
            default: return E_FAIL;
        }
    }

    HRESULT Control(int32_t id, int32_t value) override {  // slot 4
        PROPERTYITEM* item = Find(id);
        if (item == nullptr) return E_INVALIDARG;
        // Owners give every item of types 1-5 a variable; one without stores nothing, as Inquire
        // reads nothing from it.
        if (item->Value == nullptr) return S_OK;
        switch (ValueTypeOf(static_cast<int32_t>(item->Flags))) {
            case VALUE_UINT8: *static_cast<uint8_t*>(item->Value) = static_cast<uint8_t>(value); break;
            case VALUE_INT16: *static_cast<int16_t*>(item->Value) = static_cast<int16_t>(value); break;
            case VALUE_INT32: *static_cast<int32_t*>(item->Value) = value; break;
            case VALUE_FLOAT: std::memcpy(item->Value, &value, 4); break;
            case VALUE_DOUBLE: {
                float single;
                std::memcpy(&single, &value, 4);
                *static_cast<double*>(item->Value) = single;
                break;
            }
            default: break;  // the other types store nothing
        }
        return S_OK;
    }

    HRESULT ParameterRange(int32_t id, int32_t* minimum, int32_t* maximum) override {  // slot 5
        if (id == UIPROP_TABLE_ID) {
            if (m_ItemCount == 0) return Range(minimum, maximum, 0, 0, E_FAIL);
            int32_t low = m_Items[0]->ID, high = m_Items[0]->ID;
            for (int32_t i = 1; i < m_ItemCount; ++i) {
                if (m_Items[i]->ID < low) low = m_Items[i]->ID;
                if (m_Items[i]->ID > high) high = m_Items[i]->ID;
            }
            return Range(minimum, maximum, low, high, S_OK);
        }
        PROPERTYITEM* item = Find(id);
        if (item == nullptr || item->Kind != UIPROP_RANGE) return Range(minimum, maximum, 0, 0, E_INVALIDARG);
        return Range(minimum, maximum, item->Minimum, item->Maximum, S_OK);
    }

    HRESULT ParameterEnumeration(int32_t id, IUnknown** enumeration) override {  // slot 6
        PROPERTYITEM* item = Find(id);
        if (item == nullptr || item->Kind != UIPROP_ENUMERATION) return E_INVALIDARG;
        if (enumeration == nullptr) return E_POINTER;  // a caller's error: refused rather than written through
        if (item->Enumeration) item->Enumeration->AddRef();
        *enumeration = item->Enumeration;
        return S_OK;
    }

    HRESULT InquireEx(int32_t id, IUnknown** value) override {  // slot 7
        PROPERTYITEM* item = Find(id);
        if (item == nullptr) return E_INVALIDARG;
        const HRESULT flags = static_cast<HRESULT>(item->Flags);
        if (value == nullptr || item->Value == nullptr) return flags;
        switch (ValueTypeOf(static_cast<int32_t>(item->Flags))) {
            case VALUE_STRING:
            case VALUE_OBJECT: {
                IUnknown* held = *static_cast<IUnknown**>(item->Value);
                if (held) held->AddRef();
                *value = held;
                return flags;
            }
            case VALUE_DOUBLE: {
                // Without a variant factory the output is left null and the call fails.
                IVariant* made = CREFString::CreateVariant();
                if (made == nullptr) {
                    *value = nullptr;
                    return E_FAIL;
                }
                made->put_Double(*static_cast<double*>(item->Value));
                *value = made;
                return flags;
            }
            default: return E_FAIL;
        }
    }

    HRESULT ControlEx(int32_t id, IUnknown* value) override {  // slot 8
        PROPERTYITEM* item = Find(id);
        if (item == nullptr) return E_INVALIDARG;
        if (item->Value == nullptr) return E_FAIL;  // no variable to write into
        switch (ValueTypeOf(static_cast<int32_t>(item->Flags))) {
            case VALUE_STRING: {
                Owner().Lock();
                IString*& variable = *static_cast<IString**>(item->Value);
                IString* old = variable;
                variable = nullptr;
                if (old) old->Release();
                if (value) variable = QueryAs<IString>(value, IID_IString).Detach();
                Owner().Unlock();
                return S_OK;
            }
            case VALUE_OBJECT: {
                Owner().Lock();
                IUnknown*& variable = *static_cast<IUnknown**>(item->Value);
                IUnknown* old = variable;
                variable = nullptr;
                if (old) old->Release();
                if (value) {
                    value->AddRef();
                    variable = value;
                }
                Owner().Unlock();
                return S_OK;
            }
            case VALUE_DOUBLE: {
                SmartPtr<IVariant> variant = QueryAs<IVariant>(value, IID_IVariant);
                if (!variant) return E_FAIL;
                *static_cast<double*>(item->Value) = variant->get_Double();
                return S_OK;
            }
            default: return E_FAIL;
        }
    }

    // slot 9: one child folder per saved item (not transient, types 0-7), named by its caption
    // (the captions given, else the owner's string table, else the id), holding "ID" and "Flags"
    // (4 bytes each) and "Value": 4 bytes for types 0-3 (0 for type 0, which has no value), an
    // 8-byte double of the single-precision value for types 4 and 5, the string (installation-
    // relative for file names) for 6, the object for 7. `captions` is consumed. Always 0.
    HRESULT UIPropInterrogate_SaveFolderStream(INamedCollection* captions, IFolderStream* folder, int32_t) override {
        SmartPtr<INamedCollection> table = CaptionTable(captions);
        if (folder == nullptr) return S_OK;
        for (int32_t i = 0; i < m_ItemCount; ++i) {
            PROPERTYITEM* item = m_Items[i];
            const int32_t type = ValueTypeOf(static_cast<int32_t>(item->Flags));
            if (!Persisted(item, VALUE_OBJECT)) continue;
            SmartPtr<IString> caption = Caption(table.get(), item->ID);
            SmartPtr<IFolderStream> child;
            folder->OpenChild(caption.get(), 0, child.Out());
            if (!child) continue;
            child->WriteBytes(Name(L"ID").get(), &item->ID, 4, 0);
            child->WriteBytes(Name(L"Flags").get(), &item->Flags, 4, 0);
            SmartPtr<IString> value = Name(L"Value");
            if (type <= VALUE_INT32) {
                int32_t number = 0;
                this->Inquire(item->ID, &number);
                child->WriteBytes(value.get(), &number, 4, 0);
            } else if (type <= VALUE_DOUBLE) {
                const double widened = InquireReal(item->ID);
                child->WriteBytes(value.get(), &widened, 8, 0);
            } else if (type == VALUE_STRING) {
                child->WriteValue(value.get(), InquireText(item).get());
            } else {
                SmartPtr<IUnknown> held;
                this->InquireEx(item->ID, held.Out());
                child->WriteObject(value.get(), held.get(), 0);
            }
        }
        return S_OK;
    }
    // slot 10: reads the children at keys 0, 1, ... up to the first that fails; a child applies to
    // the first item of its "ID" when its "Flags" name the item's type and the item is not
    // transient. A missing number leaves the item as it is. Child names play no part. Always 0.
    HRESULT UIPropInterrogate_LoadFolderStream(IFolderStream* folder, int32_t) override {
        if (folder == nullptr) return S_OK;
        for (int32_t j = 0;; ++j) {
            SmartPtr<IVariant> key(IVCreate(j));
            SmartPtr<IFolderStream> child;
            if (!key || folder->OpenChildAt(key.get(), 0, child.Out()) < 0 || !child) break;
            int32_t id = 0;
            uint32_t flags = 0;
            // Both are read before either is judged.
            const bool hasId = child->ReadBytes(Name(L"ID").get(), &id, 4, 0) >= 0;
            const bool hasFlags = child->ReadBytes(Name(L"Flags").get(), &flags, 4, 0) >= 0;
            if (!hasId || !hasFlags) continue;
            PROPERTYITEM* item = Find(id);
            if (item == nullptr || ((flags ^ item->Flags) & 0x0F) != 0 || (item->Flags & UIPROP_TRANSIENT)) continue;
            const int32_t type = ValueTypeOf(static_cast<int32_t>(item->Flags));
            SmartPtr<IString> value = Name(L"Value");
            if (type <= VALUE_INT32) {
                int32_t number = 0;
                if (child->ReadBytes(value.get(), &number, 4, 0) >= 0) this->Control(id, number);
            } else if (type <= VALUE_DOUBLE) {
                double real = 0;
                if (child->ReadBytes(value.get(), &real, 8, 0) >= 0) ControlReal(id, real);
            } else if (type == VALUE_STRING) {
                SmartPtr<IString> text(CREFString::CreateString());
                child->ReadValue(value.get(), text.get());
                ControlText(id, text.get(), flags);
            } else if (type == VALUE_OBJECT) {
                SmartPtr<IUnknown> object;
                child->ReadObject(value.get(), object.Out(), 0);  // none clears the item
                this->ControlEx(id, object.get());
            }
        }
        return S_OK;
    }
    // slot 11: one element per saved item (not transient, types 0-6), named by its caption with
    // "_" for every space, its text the value: "%i" for types 0-3 (a colour, Flags exactly
    // UIPROP_COLOR, in ISCreateHex form), "%f" of the single-precision value for 4 and 5, the
    // string (installation-relative for file names) for 6. Without a caption table nothing is
    // written. `captions` is consumed. Always 0.
    HRESULT UIPropInterrogate_SaveXML(INamedCollection* captions, IDataStream* stream, int32_t) override {
        SmartPtr<INamedCollection> table = CaptionTable(captions);
        if (!table) return S_OK;  // the stream is not even asked
        SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
        if (!xml) return S_OK;
        for (int32_t i = 0; i < m_ItemCount; ++i) {
            PROPERTYITEM* item = m_Items[i];
            const int32_t type = ValueTypeOf(static_cast<int32_t>(item->Flags));
            if (!Persisted(item, VALUE_STRING)) continue;
            SmartPtr<IString> text;
            if (type <= VALUE_INT32) {
                int32_t number = 0;
                this->Inquire(item->ID, &number);
                // A colour is written as it is held: the loader exchanges no bytes either, so it
                // comes back unchanged, as the parameter collection's colours do.
                text.Attach(item->Flags == (UIPROP_COLOR | VALUE_INT32) ? ISCreateHex(number) : ISCreate(number));
            } else if (type <= VALUE_DOUBLE) {
                text.Attach(ISCreate(InquireReal(item->ID)));
            } else {
                text = InquireText(item);
            }
            xml->WriteElement(XmlCaption(table.get(), item->ID).get(), 0, text.get(), 0);
        }
        return S_OK;
    }
    // slot 12: reads the stream's whole text (its IString) element by element (CMarkupScan); an
    // element whose whole tag text equals an item's XML caption, case aside, sets the first such
    // item of types 0-6 that is not transient: integers through _IS2Integer (a leading "#" reads
    // hexadecimal), reals through _IS2Double, strings as they stand (absolute for file names).
    // Without a caption table nothing is read. `captions` is consumed. Always 0.
    HRESULT UIPropInterrogate_LoadXML(INamedCollection* captions, IDataStream* stream, int32_t) override {
        SmartPtr<INamedCollection> table = CaptionTable(captions);
        if (!table) return S_OK;  // the stream is not even asked
        SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
        SmartPtr<IString> whole = QueryAs<IString>(xml.get(), IID_IString);
        if (!whole) return S_OK;
        CMarkupScan scan{CREFString(whole.get())};
        tagREFString tag, content;
        while (scan.Next(&tag, &content)) {
            // Each element asks the table for the captions of the items it is compared with, in
            // table order, up to the first that matches: the table is asked as the steps compare.
            // Items the XML form does not hold take no part.
            PROPERTYITEM* item = nullptr;
            for (int32_t i = 0; i < m_ItemCount && item == nullptr; ++i) {
                if (!Persisted(m_Items[i], VALUE_STRING)) continue;
                SmartPtr<IString> name = XmlCaption(table.get(), m_Items[i]->ID);
                CREFString caption(name.get());
                if (caption.length == tag.length && caption.CompareI(tag, 0) == S_OK) item = m_Items[i];
            }
            if (item == nullptr) continue;
            const int32_t type = ValueTypeOf(static_cast<int32_t>(item->Flags));
            // A colour's bytes are taken as written, in the order the saver writes them.
            if (type <= VALUE_INT32) this->Control(item->ID, _IS2Integer(content, 10));
            // The stream being read is never written to: a real goes only to the item.
            else if (type <= VALUE_DOUBLE) ControlReal(item->ID, _IS2Double(content));
            else if (type == VALUE_STRING) ControlText(item->ID, SmartPtr<IString>(ISCreate(content)).get(), item->Flags);
        }
        return S_OK;
    }

    // Adds an item during the owner's construction: a range, or, when `enumeration` is given, a
    // choice list (the item keeps its own reference to it).
    HRESULT AddItem(int32_t id, uint32_t flags, void* value, int32_t minimum, int32_t maximum,
                    IUnknown* enumeration = nullptr) {
        if (m_ItemCount >= m_ItemCapacity) {
            PROPERTYITEM** grown = new (std::nothrow) PROPERTYITEM*[m_ItemCapacity + N];
            if (grown == nullptr) return E_FAIL;
            if (m_ItemCount > 0) std::memcpy(grown, m_Items, sizeof(PROPERTYITEM*) * m_ItemCount);
            delete[] m_Items;
            m_Items = grown;
            m_ItemCapacity += N;
        }
        PROPERTYITEM* item = new (std::nothrow) PROPERTYITEM();
        if (item == nullptr) return E_FAIL;
        std::memset(static_cast<void*>(item), 0, sizeof(PROPERTYITEM));
        m_Items[m_ItemCount++] = item;
        item->ID = id;
        item->Value = value;
        item->Flags = flags;
        if (enumeration != nullptr) {
            item->Kind = UIPROP_ENUMERATION;
            enumeration->AddRef();
            item->Enumeration = enumeration;
        } else {
            item->Kind = UIPROP_RANGE;
            item->Minimum = minimum;
            item->Maximum = maximum;
        }
        return S_OK;
    }

protected:
    IUIPropInterrogateImpl() = default;
    ~IUIPropInterrogateImpl() {
        for (int32_t i = 0; i < m_ItemCount; ++i) {
            if (m_Items[i]->Kind == UIPROP_ENUMERATION && m_Items[i]->Enumeration) m_Items[i]->Enumeration->Release();
            delete m_Items[i];
            m_Items[i] = nullptr;
        }
        delete[] m_Items;
    }
    IUIPropInterrogateImpl(const IUIPropInterrogateImpl&) = delete;
    IUIPropInterrogateImpl& operator=(const IUIPropInterrogateImpl&) = delete;

    T& Owner() { return static_cast<T&>(*this); }

    // The first item with `id`, or null.
    PROPERTYITEM* Find(int32_t id) {
        for (int32_t i = 0; i < m_ItemCount; ++i)
            if (m_Items[i]->ID == id) return m_Items[i];
        return nullptr;
    }

    static SmartPtr<IString> Name(const wchar_t* text) { return SmartPtr<IString>(ISCreate(text)); }

    // The caption table: `given` (whose reference is taken over), else the owner's strings from
    // the host's string table; null when there is none.
    SmartPtr<INamedCollection> CaptionTable(INamedCollection* given) {
        SmartPtr<INamedCollection> table(given);
        if (table) return table;
        SmartPtr<IComponentString> described(
            static_cast<IComponentString*>(CreateObject(tagREFString{15, L"ComponentString"}, &IID_IComponentString)));
        SmartPtr<IString> component;
        if (described) {
            described->SetObject(static_cast<I*>(this));
            described->get_Field(1, component.Out());
        }
        SmartPtr<IStringTable> strings(
            static_cast<IStringTable*>(CreateObject(tagREFString{11, L"StringTable"}, &IID_IStringTable)));
        if (strings && component) strings->get_ComponentStrings(component.get(), table.Out());  // no name, no list
        return table;
    }

    // The caption-table text under the id's decimal text, else that text itself.
    static SmartPtr<IString> Caption(INamedCollection* table, int32_t id) {
        SmartPtr<IString> key(ISCreate(id));
        int32_t index = 0;
        if (table && key && table->get_Index(key.get(), &index) >= 0) {
            SmartPtr<IUnknown> entry;
            table->get_Item(index, entry.Out());
            if (SmartPtr<IString> text = QueryAs<IString>(entry.get(), IID_IString)) return text;
        }
        return key;
    }

    // The caption as an XML element name: every space becomes "_".
    static SmartPtr<IString> XmlCaption(INamedCollection* table, int32_t id) {
        const SmartPtr<IString> caption = Caption(table, id);
        const CREFString text(caption.get());
        SmartPtr<IString> name(CREFString::CreateString());
        if (!name) return name;
        int32_t run = 0;  // start of the characters not yet appended
        for (int32_t i = 0; i <= text.length; ++i) {
            if (i < text.length && text.text[i] != L' ') continue;
            if (i > run) name->AppendText(i - run, text.text + run);
            if (i < text.length) name->AppendText(1, L"_");
            run = i + 1;
        }
        return name;
    }

    // A real item's value as Inquire gives it: single precision, widened.
    double InquireReal(int32_t id) {
        int32_t bits = 0;
        this->Inquire(id, &bits);
        float single = 0;
        std::memcpy(&single, &bits, 4);
        return single;
    }
    // A real narrowed to single precision, whose bit pattern Control takes.
    void ControlReal(int32_t id, double value) {
        const float single = static_cast<float>(value);
        int32_t bits = 0;
        std::memcpy(&bits, &single, 4);
        this->Control(id, bits);
    }
    // A string item's text as it is stored away: installation-relative when it names a file.
    SmartPtr<IString> InquireText(PROPERTYITEM* item) {
        SmartPtr<IUnknown> held;
        this->InquireEx(item->ID, held.Out());
        SmartPtr<IString> text = QueryAs<IString>(held.get(), IID_IString);
        if (text && (item->Flags & UIPROP_FILENAME)) {
            SmartPtr<IString> relative;
            FILENAMECreateRelative(text.get(), relative.Out());
            text = std::move(relative);
        }
        return text;
    }
    // A stored text back into a string item; `flags` (those stored with it) say whether it is a
    // file name to make absolute again.
    void ControlText(int32_t id, IString* stored, uint32_t flags) {
        SmartPtr<IString> text;
        text.Assign(stored);
        if (text && (flags & UIPROP_FILENAME)) {
            SmartPtr<IString> absolute;
            FILENAMECreateAbsolute(text.get(), absolute.Out());
            text = std::move(absolute);
        }
        this->ControlEx(id, text.get());
    }

    PROPERTYITEM** m_Items = nullptr;
    int32_t m_ItemCount = 0;
    int32_t m_ItemCapacity = 0;

private:
    // Whether a form that holds types up to `lastType` saves and loads `item`: never a transient one.
    static bool Persisted(const PROPERTYITEM* item, int32_t lastType) {
        return !(item->Flags & UIPROP_TRANSIENT) && ValueTypeOf(static_cast<int32_t>(item->Flags)) <= lastType;
    }
    static HRESULT Range(int32_t* minimum, int32_t* maximum, int32_t low, int32_t high, HRESULT hr) {
        if (minimum) *minimum = low;
        if (maximum) *maximum = high;
        return hr;
    }
};
